#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "core/ValueTransformers.h"
#include "layout/PaymentCodeCommands.h"
#include "lifecycle/SubstitutionCache.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

class PaymentCodeCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        resetSubstitutionHooks();
        setCurrentFormattingLocale("en_US");
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
        set("default.profile",
            {"organization=Orvane Works", "iban=DE33 1002 0500 0001 1947 00", "bic=BFSWDE33BER", "address=Hauptstr. 1",
             "zip=10115", "city=Berlin", "countryCode=DE", "email=pay@orvane.example"});
        m_client = insert("Client", {"firstName=Ada", "lastName=L\u00FCbke", "address=Marktgasse 28", "zip=9400",
                                     "city=Rorschach", "countryCode=CH"});
        m_euro = insert("Currency", {"name=EUR"});
        m_invoice = insert("Invoice", {"name=RE-1", "parentDocument=" + m_client, "currency=" + m_euro});
        insert("Cost", {"unitPrice=115.5", "quantity=2", "parent=" + m_invoice});
    }
    void TearDown() override {
        BLSubstitutionCache::resetForTesting();
        RunLoop::resetMainForTesting();
        resetModelHooks();
        resetSubstitutionHooks();
        NotificationCenter::resetDefaultCenterForTesting();
        setCurrentFormattingLocale("");
    }

    std::string insert(const std::string& entity, const std::vector<std::string>& values) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::insert(m_path, entity, values, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }
    void set(const std::string& uid, const std::vector<std::string>& values) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::set(m_path, uid, values, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
    }
    CommandResult paymentCode(const std::string& uid, const std::string& kind, const std::string& png = {}) {
        BLSubstitutionCache::resetForTesting();
        return runCommand([&](auto& out, auto& err) {
            return paymentcodecommands::paymentCode({m_path, uid, kind, png}, out, err);
        });
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
    std::string m_client;
    std::string m_euro;
    std::string m_invoice;
};

TEST_F(PaymentCodeCommandsTest, PayloadOfEachKind) {
    // 2 × 115.50 = 231.00 open.
    CommandResult epc = paymentCode(m_invoice, "epc");
    ASSERT_EQ(epc.code, 0) << epc.err;
    EXPECT_EQ(epc.out,
              "BCD\n001\n1\nSCT\nBFSWDE33BER\nOrvane Works\nDE33100205000001194700\nEUR231.00\n\n\nInvoice RE-1\n");
    EXPECT_EQ(epc.err, "");

    CommandResult bezahlCode = paymentCode(m_invoice, "bezahlcode");
    ASSERT_EQ(bezahlCode.code, 0) << bezahlCode.err;
    EXPECT_EQ(bezahlCode.out,
              "bank://singlepaymentsepa?amount=231,00&bic=BFSWDE33BER&currency=EUR&iban=DE33100205000001194700"
              "&name=Orvane%20Works&reason=Invoice%20RE-1");

    CommandResult paypal = paymentCode(m_invoice, "paypal");
    EXPECT_EQ(paypal.out,
              "https://www.paypal.com/cgi-bin/webscr?cmd=_xclick&business=pay%40orvane.example&item_name=RE-1"
              "&currency_code=EUR&amount=231.00");

    // Not sent: the Stripe code says so, and the command says why.
    CommandResult stripe = paymentCode(m_invoice, "stripe");
    EXPECT_EQ(stripe.code, 0);
    EXPECT_EQ(stripe.out, "Must send document first");
    EXPECT_NE(stripe.err.find("no Stripe payment link"), std::string::npos);
}

TEST_F(PaymentCodeCommandsTest, SwissCodeOfACompanyInSwitzerland) {
    set("default.profile",
        {"iban=CH44 3199 9123 0008 8901 2", "address=Rue du Lac 1268", "zip=2501", "city=Biel", "countryCode=CH"});
    CommandResult swiss = paymentCode(m_invoice, "swiss");
    ASSERT_EQ(swiss.code, 0) << swiss.err;
    // No prefix: 0, RE-1 as digits (R 82 → 2, E 69 → 9, 1) padded to 25, check digit.
    EXPECT_EQ(swiss.out,
              "SPC\n0200\n1\nCH4431999123000889012\nS\nOrvane Works\nRue du Lac\n1268\n2501\nBiel\nCH\n"
              "\n\n\n\n\n\n\n231.00\nEUR\nS\nAda L\u00FCbke\nMarktgasse\n28\n9400\nRorschach\nCH\nQRR\n"
              "000000000000000000000002919\n\nEPD");

    set("default.profile", {"iban=CH44 3199 9123 0008 8901 3"});
    CommandResult wrongIBAN = paymentCode(m_invoice, "swiss");
    EXPECT_EQ(wrongIBAN.code, 1);
    EXPECT_NE(wrongIBAN.err.find("The IBAN CH44 3199 9123 0008 8901 3 fails its check"), std::string::npos);
    EXPECT_NE(wrongIBAN.err.find("warning sign"), std::string::npos);
}

TEST_F(PaymentCodeCommandsTest, BadInputIsToldOnStandardError) {
    struct Row {
        const char* name;
        std::string uid;
        const char* kind;
        const char* message;
    };
    std::string estimate = insert("Estimate", {"name=AN-1", "parentDocument=" + m_client});
    insert("Cost", {"unitPrice=10", "parent=" + estimate});
    std::string empty = insert("Invoice", {"name=RE-2", "parentDocument=" + m_client});
    const Row rows[] = {
        {"unknown kind", m_invoice, "qr", "unknown payment code kind \"qr\""},
        {"no such uid", "nope", "epc", "no object with uid 'nope'"},
        {"not a document", m_client, "epc", "is no document"},
        {"an estimate", estimate, "epc", "An estimate shows no payment code"},
        {"nothing to pay", empty, "epc", "Nothing is left to pay"},
        {"no kind and a layout without classes", m_invoice, "", "no payment code until layouts are drawn"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CommandResult result = paymentCode(row.uid, row.kind);
        EXPECT_EQ(result.code, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
    }
}

TEST_F(PaymentCodeCommandsTest, KindFromTheLayoutClassesAndPNG) {
    std::string layout = insert("Layout", {"name=Aluminium", "classes=BLLayoutTextView,BLLayoutSEPAQRCodeView"});
    set(m_invoice, {"layout=" + layout});
    std::string png = m_folder / "epc.png";
    CommandResult result = paymentCode(m_invoice, "", png);
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out.substr(0, 8), "BCD\n001\n");
    EXPECT_NE(result.err.find("BLLayoutSEPAQRCodeView"), std::string::npos);
    EXPECT_TRUE(std::filesystem::file_size(png) > 1000U);

    CommandResult ocrb = paymentCode(m_invoice, "ocrb", m_folder / "ocrb.png");
    EXPECT_EQ(ocrb.code, 1);
    EXPECT_EQ(ocrb.out, "0100000231009>000000000000000000000002919+ 000000000>");
    EXPECT_NE(ocrb.err.find("a line of text, not a symbol"), std::string::npos);
}

TEST(PaymentCodeKindsTest, NamesAndLayoutClasses) {
    EXPECT_EQ(paymentcodecommands::kindNamed("swiss"), PaymentCodeKind::Swiss);
    EXPECT_FALSE(paymentcodecommands::kindNamed("Swiss").has_value());
    EXPECT_EQ(paymentcodecommands::kindInLayoutClasses("BLLayoutTextView, BLLayoutESRQRCodeView"),
              PaymentCodeKind::Swiss);
    // A name inside another does not count: BLLayoutOCRBView is no BLLayoutOCRBViewX.
    EXPECT_FALSE(paymentcodecommands::kindInLayoutClasses("BLLayoutOCRBViewX,BLLayoutPageView").has_value());
    EXPECT_FALSE(paymentcodecommands::kindInLayoutClasses("").has_value());
}

}  // namespace
}  // namespace brassline
