#include <cairo.h>
#include <gtest/gtest.h>

#include "../money/ItemTestSupport.h"
#include "core/Localization.h"
#include "core/ValueTransformers.h"
#include "layout/BLLinkPaymentCodes.h"
#include "layout/BLOCRBPaymentCode.h"
#include "layout/BLSEPAPaymentCode.h"
#include "layout/BLSwissPaymentCode.h"
#include "layout/PaymentCodeDrawing.h"
#include "layout/ZPPaymentCodeNumberTransformers.h"
#include "lifecycle/SubstitutionCache.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"

namespace brassline {
namespace {

// Pixels that are not white in a rectangle of an image surface.
int inkIn(cairo_surface_t* surface, int left, int right, int top, int bottom) {
    cairo_surface_flush(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    int stride = cairo_image_surface_get_stride(surface);
    int count = 0;
    for (int y = top; y < bottom; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(data + y * stride);
        for (int x = left; x < right; ++x) {
            count += (row[x] & 0xFFFFFFU) != 0xFFFFFFU ? 1 : 0;
        }
    }
    return count;
}

// A white image surface with a context on it.
struct WhiteCanvas {
    WhiteCanvas(int width, int height)
        : surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)), cr(cairo_create(surface)) {
        cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
        cairo_paint(cr);
    }
    ~WhiteCanvas() {
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }
    WhiteCanvas(const WhiteCanvas&) = delete;
    WhiteCanvas& operator=(const WhiteCanvas&) = delete;
    cairo_surface_t* surface;
    cairo_t* cr;
};

// Payment codes filled from real documents: the keys of the resource settings meet the
// document's substitution values.
class PaymentCodeDocumentTest : public ItemFixture {
protected:
    void SetUp() override {
        ItemFixture::SetUp();
        setCurrentLanguage("en");
        setCurrentFormattingLocale("en_US");
        BLSubstitutionCache::resetForTesting();
        resetSubstitutionHooks();
        installPaymentCodeHooks();
    }
    void TearDown() override {
        BLSubstitutionCache::resetForTesting();
        resetSubstitutionHooks();
        setCurrentFormattingLocale("");
        setCurrentLanguage("");
        ItemFixture::TearDown();
    }

    BLProfile* profile(const char* iban, const char* bic, const char* address, const char* zip, const char* city,
                       const char* country) {
        auto* sender = insert<BLProfile>();
        sender->setOrganization(std::string("Orvane Works"));
        sender->setIban(std::string(iban));
        sender->setBic(std::string(bic));
        sender->setAddress(std::string(address));
        sender->setZip(std::string(zip));
        sender->setCity(std::string(city));
        sender->setCountryCode(std::string(country));
        sender->setEmail(std::string("pay@orvane.example"));
        sender->setIsDefault(true);
        return sender;
    }
    BLClient* client(const char* address, const char* zip, const char* city) {
        auto* client = insert<BLClient>();
        client->setFirstName(std::string("Pia"));
        client->setLastName(std::string("Rutschmann"));
        client->setAddress(std::string(address));
        client->setZip(std::string(zip));
        client->setCity(std::string(city));
        client->setCountryCode(std::string("CH"));
        return client;
    }
    BLInvoice* invoice(const char* currency, const char* amount, BLClient* recipient) {
        BLInvoice* invoice = invoiceIn(currency);
        if (recipient != nullptr) {
            invoice->setParentDocument(recipient);
        }
        if (amount != nullptr) {
            addCost(invoice, amount);
        }
        invoice->setName(std::string("RE-0042"));
        return invoice;
    }
    void setPreference(const std::string& key, const Value& value) {
        auto* preference =
            static_cast<BLPreference*>(BLBase::insertInManagedObjectContext(context(), "Preference", "BLPref." + key));
        preference->setPayload(value);
    }
};

TEST_F(PaymentCodeDocumentTest, EPCCodeOfAnInvoice) {
    BLProfile* sender = profile("DE33 1002 0500 0001 1947 00", "BFSWDE33BER", "Hauptstr. 1", "10115", "Berlin", "DE");
    BLInvoice* document = invoice("EUR", "231.05", nullptr);
    BLSEPAPaymentCode code;
    code.takeDefaultSettings();
    code.fillDefaultsValueFromProfile(*sender);
    code.substituteValues(substitutionDictionary(*document));
    EXPECT_EQ(code.URL(),
              "BCD\n001\n1\nSCT\nBFSWDE33BER\nOrvane Works\nDE33100205000001194700\nEUR231.05\n\n\nInvoice RE-0042\n");
    EXPECT_TRUE(code.shouldDisplay(false));
}

TEST_F(PaymentCodeDocumentTest, SwissCodeOfAnInvoiceWithQRReference) {
    BLProfile* sender = profile("CH44 3199 9123 0008 8901 2", "", "Rue du Lac 1268", "2501", "Biel", "CH");
    setPreference("ch.besr", Value("210000"));
    BLInvoice* document = invoice("CHF", "3949.75", client("Marktgasse 28", "9400", "Rorschach"));
    BLSwissPaymentCode code;
    code.takeDefaultSettings();
    code.fillDefaultsValueFromProfile(*sender);
    SubstitutionDictionary values = substitutionDictionary(*document);
    // The document's keys filled by the installed references: RE-0042 is 290042.
    EXPECT_EQ(values["document.ch_refnumber"].toString(), "210000000000000000002900429");
    prepareSubstitutionForSwissCode(values, code);
    code.substituteValues(values);
    EXPECT_TRUE(code.validParameters());
    EXPECT_EQ(code.URL(),
              "SPC\n0200\n1\nCH4431999123000889012\nS\nOrvane Works\nRue du Lac\n1268\n2501\nBiel\nCH\n"
              "\n\n\n\n\n\n\n3949.75\nCHF\nS\nPia Rutschmann\nMarktgasse\n28\n9400\nRorschach\nCH\n"
              "QRR\n210000000000000000002900429\n\nEPD");
}

TEST_F(PaymentCodeDocumentTest, ProfileFillsTheConstants) {
    BLProfile* sender = profile("CH93 0076 2011 6238 5295 7", "POFICHBEXXX", "Bahnhofstrasse 12b\nPostfach", "8001",
                                "Z\u00FCrich", "CH");
    BLSwissPaymentCode swiss;
    // Settings of an older layout kept the number apart.
    swiss.setSettings({Value(Value::Dictionary{{"parameterName", Value("street")}, {"value", Value("Gasse 5 ")}}),
                       Value(Value::Dictionary{{"parameterName", Value("streetNumber")}, {"value", Value("5")}})});
    swiss.fillDefaultsValueFromProfile(*sender);
    EXPECT_TRUE(swiss.settingsValueForKey("streetNumber").isNull());
    EXPECT_EQ(swiss.settingsValueForKey("street"), Value("Bahnhofstrasse 12b\nPostfach"));
    EXPECT_EQ(swiss.settingsValueForKey("countryCode"), Value("CH"));
    EXPECT_EQ(swiss.settingsValueForKey("city"), Value("Z\u00FCrich"));

    BLSwissPaymentCode older;
    older.setSettings({Value(Value::Dictionary{{"parameterName", Value("street")}, {"value", Value("Gasse 5 ")}}),
                       Value(Value::Dictionary{{"parameterName", Value("streetNumber")}, {"value", Value("5")}})});
    auto* empty = insert<BLProfile>();
    older.fillDefaultsValueFromProfile(*empty);
    // Merged first ("Gasse" and "5"), then the profile's empty address takes its place.
    EXPECT_EQ(older.settingsValueForKey("street"), Value(""));

    BLSEPAPaymentCode sepa;
    sepa.fillDefaultsValueFromProfile(*sender);
    EXPECT_EQ(sepa.settingsValueForKey("IBAN"), Value("CH93 0076 2011 6238 5295 7"));
    EXPECT_EQ(sepa.settingsValueForKey("BIC"), Value("POFICHBEXXX"));
    EXPECT_EQ(sepa.settingsValueForKey("name"), Value("Orvane Works"));

    BLPayPalPaymentCode paypal;
    paypal.fillDefaultsValueFromProfile(*sender);
    EXPECT_EQ(paypal.settingsValueForKey("email"), Value("pay@orvane.example"));
}

TEST_F(PaymentCodeDocumentTest, WhenACodeShows) {
    profile("DE33100205000001194700", "BFSWDE33BER", "", "", "", "DE");
    BLClient* debtor = client("Marktgasse 28", "9400", "Rorschach");
    BLClient* directDebit = client("Marktgasse 29", "9400", "Rorschach");
    directDebit->setIban(std::string("DE89370400440532013000"));
    directDebit->setSepaMandateID(std::string("M-1"));
    directDebit->setSepaMandateDate(Date::dateWithYear(2025, 1, 2));
    BLClient* mandateWithoutDate = client("Marktgasse 30", "9400", "Rorschach");
    mandateWithoutDate->setIban(std::string("DE89370400440532013000"));
    mandateWithoutDate->setSepaMandateID(std::string("M-2"));

    BLEstimate* estimate = estimateIn("EUR");
    addCost(estimate, "100");

    struct Row {
        const char* name;
        BLSendable* document;
        bool hideOnDirectDebit;
        bool shows;
    };
    const Row rows[] = {
        {"open invoice", invoice("EUR", "231.05", debtor), false, true},
        {"balance 0: nothing to pay", invoice("EUR", nullptr, debtor), false, false},
        {"a credit (negative balance)", invoice("EUR", "-10", debtor), false, false},
        {"estimates never", estimate, false, false},
        {"client pays by direct debit, hidden on direct debit", invoice("EUR", "50", directDebit), true, false},
        {"client pays by direct debit, not hidden", invoice("EUR", "50", directDebit), false, true},
        {"a mandate without a date is no direct debit", invoice("EUR", "50", mandateWithoutDate), true, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLSubstitutionCache::resetForTesting();
        BLSEPAPaymentCode code;
        code.substituteValues(substitutionDictionary(*row.document));
        EXPECT_EQ(code.shouldDisplay(row.hideOnDirectDebit), row.shows);
    }

    BLSEPAPaymentCode editor;
    EXPECT_TRUE(editor.shouldDisplay(true));  // No values: the layout editor shows every code.
    BLSEPAPaymentCode noDocument;
    noDocument.substituteValues({{"document.balance", Value("5.00")}});
    EXPECT_FALSE(noDocument.shouldDisplay(false));
}

TEST_F(PaymentCodeDocumentTest, OCRBLineOfAnInvoiceIsDrawnAtTheTopOfItsElement) {
    setPreference("ch.vesr", Value("010001628"));
    BLInvoice* document = invoice("CHF", "3949.75", nullptr);
    BLOCRBPaymentCode line;
    line.substituteValues(substitutionDictionary(*document));
    // RE-0042 is 290042; no prefix: 0 and the number padded to 25, check digit 2.
    EXPECT_EQ(line.annotationString(), "0100003949753>000000000000000000002900422+ 010001628>");

    WhiteCanvas canvas(460, 60);
    EXPECT_EQ(drawPaymentCode(canvas.cr, line, {10.0, 10.0, 440.0, 40.0}, {}), PaymentCodeDrawing::Drawn);
    // Ink only in the first line of the code bounds (from y = 11, 10 points high).
    EXPECT_GT(inkIn(canvas.surface, 0, 460, 11, 25), 500);
    EXPECT_EQ(inkIn(canvas.surface, 0, 460, 0, 10), 0);
    EXPECT_EQ(inkIn(canvas.surface, 0, 460, 27, 60), 0);
}

TEST_F(PaymentCodeDocumentTest, AmountBoxesHoldFrancsRightAlignedAndCentimes) {
    BLInvoice* document = invoice("CHF", "3949.75", nullptr);
    BLESRCostPaymentCode boxes;
    boxes.takeDefaultSettings();
    boxes.substituteValues(substitutionDictionary(*document));
    WhiteCanvas canvas(222, 30);
    EXPECT_EQ(drawPaymentCode(canvas.cr, boxes, {0.0, 0.0, 222.0, 30.0}, {}), PaymentCodeDrawing::Drawn);
    // Code bounds 1 to 221: eleven cells of 20 points. 3949 stands in cells 4 to 7, the
    // dot's cell 8 stays empty, 75 fills cells 9 and 10.
    auto cell = [&](int index) { return inkIn(canvas.surface, 1 + index * 20, 1 + (index + 1) * 20, 0, 30); };
    for (int index : {0, 1, 2, 3, 8}) {
        SCOPED_TRACE(index);
        EXPECT_EQ(cell(index), 0);
    }
    for (int index : {4, 5, 6, 7, 9, 10}) {
        SCOPED_TRACE(index);
        EXPECT_GT(cell(index), 10);
    }
}

}  // namespace
}  // namespace brassline
