#include <algorithm>

#include <gtest/gtest.h>

#include "PaymentTestSupport.h"
#include "core/Log.h"
#include "layout/BLLinkPaymentCodes.h"
#include "layout/BLOCRBPaymentCode.h"
#include "layout/BLSEPAPaymentCode.h"
#include "layout/BLSwissPaymentCode.h"
#include "layout/ZPPaymentCodeNumberTransformers.h"
#include "money/BLExchangeRates.h"

namespace brassline {
namespace {

using Params = std::map<std::string, std::string, std::less<>>;

size_t lineCount(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    size_t start = 0;
    while (true) {
        size_t end = text.find('\n', start);
        result.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) {
            return result;
        }
        start = end + 1;
    }
}

// The Swiss settings of a creditor with the usual keys for amount, currency and text.
BLSwissPaymentCode swissCode(const char* iban, const char* name, const char* street, const char* zip,
                             const char* city) {
    BLSwissPaymentCode code;
    code.setSettings({setting("IBAN", iban), setting("name", name), setting("street", street), setting("zip", zip),
                      setting("city", city), setting("countryCode", "CH"),
                      keyed("amount", "document.balanceForSEPAQRCode"), keyed("currency", "currency.name"),
                      keyed("reason", "title")});
    return code;
}

SubstitutionDictionary debtor(const char* name, const char* street, const char* zip, const char* city) {
    return {{"recipient.organizationOrName", Value(name)},
            {"recipient.street", Value(street)},
            {"recipient.zip", Value(zip)},
            {"recipient.city", Value(city)},
            {"recipient.countryCode", Value("CH")}};
}

TEST(PaymentCodePayloadTest, EPCMatchesThePublishedVersion001Payload) {
    BLSEPAPaymentCode code;
    code.setSettings(BLPaymentCode::defaultSettings("BLLayoutSEPAQRCodeView"));
    code.setSettingValueForKey(Value("DE33 1002 0500 0001 1947 00"), "IBAN");
    code.setSettingValueForKey(Value("BFSWDE33BER"), "BIC");
    code.setSettingValueForKey(Value("Wikimedia Foerdergesellschaft"), "name");
    code.substituteValues({{"document.balanceForSEPAQRCode", Value("123.45")},
                           {"currency.name", Value("EUR")},
                           {"title", Value("Spende fuer Wikipedia")},
                           {"document.ogm.be", Value("+++090/9337/55493+++")}});
    // The OGM stays off a German account: line 10 is empty and the text follows.
    EXPECT_EQ(code.URL(), paymentCodeTestData("qr_version_001.txt"));
    EXPECT_TRUE(code.parameterProblems().empty());
}

TEST(PaymentCodePayloadTest, EPCLineRules) {
    struct Row {
        const char* name;
        Value::Array settings;
        SubstitutionDictionary values;
        const char* expected;
    };
    const Row rows[] = {
        {"Belgian account: the structured communication on line 10, no text line",
         {setting("IBAN", "BE68 5390 0754 7034"), setting("BIC", "GKCCBEBB"), setting("name", "Atelier Brel"),
          keyed("amount", "a"), keyed("currency", "c"), keyed("reason", "r"), keyed("OGM", "o")},
         {{"a", Value("10.00")}, {"c", Value("EUR")}, {"r", Value("Invoice 7")}, {"o", Value("+++090/9337/55493+++")}},
         "BCD\n001\n1\nSCT\nGKCCBEBB\nAtelier Brel\nBE68539007547034\nEUR10.00\n\n+++090/9337/55493+++\n"},
        {"Belgian account without OGM: the text as elsewhere",
         {setting("IBAN", "BE68539007547034"), setting("name", "Atelier Brel"), keyed("reason", "r")},
         {{"r", Value("Invoice 7")}},
         "BCD\n001\n1\nSCT\n\nAtelier Brel\nBE68539007547034\n\n\n\nInvoice 7\n"},
        {"An amount without currency leaves line 8 empty; no text ends after line 10",
         {setting("IBAN", "DE89370400440532013000"), setting("name", "Orvane\nWorks"), keyed("amount", "a")},
         {{"a", Value("5.00")}},
         "BCD\n001\n1\nSCT\n\nOrvane Works\nDE89370400440532013000\n\n\n"},
        {"Nothing set: every line is there and empty", {}, {}, "BCD\n001\n1\nSCT\n\n\n\n\n\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLSEPAPaymentCode code;
        code.setSettings(row.settings);
        code.substituteValues(row.values);
        EXPECT_EQ(code.URL(), row.expected);
    }
}

TEST(PaymentCodePayloadTest, SwissMatchesPublishedPayloadsWithOrdinaryIBAN) {
    // An ordinary IBAN (institution 00791): "NON", no reference, the text on line 30.
    BLSwissPaymentCode code =
        swissCode("CH58 0079 1123 0008 8901 2", "Robert Schneider AG", "Rue du Lac 1268", "2501", "Biel");
    SubstitutionDictionary values = debtor("Pia Rutschmann", "Marktgasse 28", "9400", "Rorschach");
    values["document.balanceForSEPAQRCode"] = "3949.75";
    values["currency.name"] = "CHF";
    values["title"] = "Bill no. 3139 for gardening work and disposal of waste material";
    code.substituteValues(values);
    EXPECT_EQ(code.URL(), paymentCodeTestData("SampleQrCodeText-1.txt"));
    EXPECT_TRUE(code.validParameters());
}

TEST(PaymentCodePayloadTest, SwissMatchesPublishedPayloadsWithQRIBAN) {
    struct Row {
        const char* file;
        const char* amount;
        const char* currency;
    };
    const Row rows[] = {
        {"qr-ultimate-debtor.txt", "25.90", "CHF"},
        // No amount: line 19 stays empty, the currency stands.
        {"qr-payment-information-without-amount-but-debtor.txt", nullptr, "EUR"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        BLSwissPaymentCode code =
            swissCode("CH44 3199 9123 0008 8901 2", "Thomas LeClaire", "Rue examplaire 22a", "1000", "Lausanne");
        SubstitutionDictionary values = debtor("Thomas LeClaire", "Rue examplaire 22a", "1000", "Lausanne");
        if (row.amount != nullptr) {
            values["document.balanceForSEPAQRCode"] = row.amount;
        }
        values["currency.name"] = row.currency;
        // A QR-IBAN takes the reference and leaves the text line empty.
        values["title"] = "Invoice 1234568";
        values["document.ch_refnumber"] = "123456789012345678901234567";
        code.substituteValues(values);
        EXPECT_EQ(code.URL(), paymentCodeTestData(row.file));
    }
}

TEST(PaymentCodePayloadTest, SwissEdgeCases) {
    BLSwissPaymentCode code = swissCode("CH9300762011623852957", "Caf\u00E9 \u0141una\u00A0GmbH", "Bahnhofstrasse",
                                        " 8001 ", "Z\u00FCrich\n");
    code.setSettingValueForKey(Value("12b"), "streetNumber");
    code.setSettingValueForKey(Value("DE"), "countryCode");
    code.substituteValues({{"recipient.organizationOrName", Value("  M\u00FCller\nS\u00F6hne \u20AC ")},
                           {"recipient.street", Value("Marktgasse\u00A028")},
                           {"recipient.zip", Value("9400")},
                           {"recipient.city", Value("St.\u00A0Gallen")},
                           {"title", Value("Invoice\u00A0RE-1")}});
    std::vector<std::string> got = lines(code.URL());
    ASSERT_EQ(got.size(), 31U);
    EXPECT_EQ(got[5], "Caf\u00E9 una GmbH");  // Ł goes, the non-breaking space is a blank.
    EXPECT_EQ(got[6], "Bahnhofstrasse");      // street and streetNumber are read as one line.
    EXPECT_EQ(got[7], "12b");
    EXPECT_EQ(got[8], "8001");
    EXPECT_EQ(got[9], "Z\u00FCrich");
    EXPECT_EQ(got[10], "CH");  // Germany is no country of the Swiss bill.
    EXPECT_EQ(got[18], "");    // No amount, no currency.
    EXPECT_EQ(got[19], "");
    EXPECT_EQ(got[21], "M\u00FCller S\u00F6hne");  // Line break a blank, € dropped, ends trimmed.
    EXPECT_EQ(got[22], "Marktgasse");
    EXPECT_EQ(got[23], "28");
    EXPECT_EQ(got[25], "St. Gallen");
    EXPECT_EQ(got[26], "CH");  // No country of the debtor: CH.
    EXPECT_EQ(got[27], "NON");
    EXPECT_EQ(got[28], "");
    EXPECT_EQ(got[29], "Invoice RE-1");  // Non-breaking spaces anywhere become blanks.
    EXPECT_EQ(got[30], "EPD");

    code.setSettingValueForKey(Value("LI"), "countryCode");
    EXPECT_EQ(lines(code.URL())[10], "LI");

    BLSwissPaymentCode empty;
    EXPECT_EQ(lineCount(empty.URL()), 31U);
}

TEST(PaymentCodePayloadTest, SwissBadInputMakesParametersInvalid) {
    struct Row {
        const char* name;
        const char* parameter;
        const char* value;
        const char* amount;
        const char* problem;
    };
    const Row rows[] = {
        {"wrong IBAN check sum", "IBAN", "CH9300762011623852958", "10.00", "fails its check"},
        {"missing creditor", "name", "", "10.00", "\"name\" has no value"},
        {"blank city", "city", "  ", "10.00", "\"city\" has no value"},
        {"amount 0", nullptr, nullptr, "0.00", "is not above 0"},
        {"amount above the maximum", nullptr, nullptr, "1000000000.00", "above 999,999,999.99"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLSwissPaymentCode code = swissCode("CH9300762011623852957", "Orvane Works", "Rue du Lac 1", "2501", "Biel");
        if (row.parameter != nullptr) {
            code.setSettingValueForKey(Value(row.value), row.parameter);
        }
        code.substituteValues({{"document.balanceForSEPAQRCode", Value(row.amount)}});
        EXPECT_FALSE(code.validParameters());
        std::vector<std::string> problems = code.parameterProblems();
        EXPECT_TRUE(std::any_of(problems.begin(), problems.end(), [&](const std::string& problem) {
            return problem.find(row.problem) != std::string::npos;
        })) << (problems.empty() ? std::string("no problems") : problems.front());
    }

    BLSwissPaymentCode good = swissCode("CH9300762011623852957", "Orvane Works", "Rue du Lac 1", "2501", "Biel");
    good.substituteValues({{"document.balanceForSEPAQRCode", Value("999999999.99")},
                           {"currency.name", Value("CHF")},
                           {"recipient.organizationOrName", Value("\u0141ukasz")}});
    EXPECT_TRUE(good.validParameters());
    // Dropped characters leave the code valid and are told.
    std::vector<std::string> problems = good.parameterProblems();
    ASSERT_EQ(problems.size(), 1U);
    EXPECT_EQ(problems[0], "The debtor's name loses characters outside the Swiss set: \u0141");
}

TEST(PaymentCodePayloadTest, EPCBadInputIsTold) {
    BLSEPAPaymentCode code;
    code.setSettings({setting("IBAN", "DE89370400440532013001"), keyed("amount", "a"), setting("currency", "USD")});
    code.substituteValues({{"a", Value("1000000000.00")}});
    std::vector<std::string> problems = code.parameterProblems();
    std::vector<std::string> expected = {"The amount 1000000000.00 is above 999,999,999.99",
                                         "The IBAN DE89370400440532013001 fails its check",
                                         "The currency USD is not the euro of SEPA credit transfers",
                                         "The BIC is missing", "The creditor's name is missing"};
    EXPECT_EQ(problems, expected);
    // The payload is made all the same: the EPC code has no warning rule.
    EXPECT_TRUE(code.validParameters());

    // 140 characters of text pass, 141 do not; names and texts at their longest still fit.
    BLSEPAPaymentCode longest;
    std::string name(70, 'n');
    std::string text(140, 't');
    longest.setSettings({setting("IBAN", "DE89370400440532013000"), setting("BIC", "COBADEFFXXX"),
                         setting("name", name.c_str()), setting("amount", "1.00"), setting("currency", "EUR"),
                         setting("reason", text.c_str())});
    EXPECT_TRUE(longest.parameterProblems().empty());
    longest.setSettingValueForKey(Value(text + "t"), "reason");
    EXPECT_EQ(longest.parameterProblems(), std::vector<std::string>{"The text is longer than 140 characters"});
}

TEST(PaymentCodePayloadTest, BezahlCodeURL) {
    auto bezahlCode = BLPaymentCode::forElementClass("BLLayoutQRCodeView");
    bezahlCode->takeDefaultSettings();
    SubstitutionDictionary values{{"sender.organizationOrName", Value("M\u00FCller GmbH")},
                                  {"sender.IBAN", Value("DE33100205000001194700")},
                                  {"sender.BIC", Value("BFSWDE33BER")},
                                  {"document.balanceForQRCode", Value("231,05")},
                                  {"currency.name", Value("EUR")},
                                  {"title", Value("Invoice RE-1")}};
    bezahlCode->substituteValues(values);
    // Parameters in key order; blanks and ü escaped, the comma stays.
    EXPECT_EQ(bezahlCode->URL(),
              "bank://singlepaymentsepa?amount=231,05&bic=BFSWDE33BER&currency=EUR&iban=DE33100205000001194700"
              "&name=M%C3%BCller%20GmbH&reason=Invoice%20RE-1");
    values.erase("sender.BIC");
    bezahlCode->substituteValues(values);
    EXPECT_EQ(bezahlCode->URL(),
              "bank://singlepayment?amount=231,05&currency=EUR&iban=DE33100205000001194700"
              "&name=M%C3%BCller%20GmbH&reason=Invoice%20RE-1");
}

TEST(PaymentCodePayloadTest, LinkPayloads) {
    BLPayPalPaymentCode paypal;
    paypal.takeDefaultSettings();
    paypal.setSettingValueForKey(Value("pay@orvane.example"), "email");
    paypal.substituteValues({{"document.nameForPayPal", Value("RE/42 \u00E4")},
                             {"currency.name", Value("EUR")},
                             {"document.balanceForPayPal", Value("231.05")}});
    EXPECT_EQ(paypal.URL(),
              "https://www.paypal.com/cgi-bin/webscr?cmd=_xclick&business=pay%40orvane.example"
              "&item_name=RE%2F42%20%C3%A4&currency_code=EUR&amount=231.05");

    BLStripePaymentCode stripe;
    stripe.substituteValues({});
    EXPECT_EQ(stripe.URL(), "Must send document first");
    EXPECT_EQ(stripe.parameterProblems().size(), 1U);
    stripe.substituteValues({{"document.meta.stripe_payment_link", Value(" https://buy.stripe.com/test_42 ")}});
    EXPECT_EQ(stripe.URL(), "https://buy.stripe.com/test_42");
    EXPECT_TRUE(stripe.parameterProblems().empty());
}

TEST(PaymentCodePayloadTest, OCRBLineAndAmountBoxes) {
    setExchangeRatesServiceURLForTesting("https://service.example/");
    BLOCRBPaymentCode line;
    line.substituteValues(
        {{"document.ch_ocr_line_new", Value("0100003949753>210000000003139471430009017+ 010001628>")}});
    EXPECT_EQ(line.annotationString(), "0100003949753>210000000003139471430009017+ 010001628>");
    EXPECT_EQ(line.URL(),
              "https://service.example/PaymentTools/copy.php?value="
              "0100003949753%3E210000000003139471430009017%2B%20010001628%3E");
    EXPECT_FALSE(line.drawsQRSymbol());
    setExchangeRatesServiceURLForTesting("");

    struct Row {
        const char* amount;
        const char* francs;
        const char* centimes;
    };
    const Row rows[] = {{"3949.75", "3949", "75"}, {"12", "12", "00"}, {"0,5", "0", "50"}, {"", "", ""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.amount);
        BLESRCostPaymentCode boxes;
        boxes.takeDefaultSettings();
        boxes.substituteValues({{"document.balanceForSEPAQRCode", Value(row.amount)}});
        EXPECT_EQ(boxes.amountBoxes().francs, row.francs);
        EXPECT_EQ(boxes.amountBoxes().centimes, row.centimes);
    }
}

TEST(PaymentCodeSettingsTest, DefaultSettingsPutKeyedRecordsFirst) {
    Value::Array records = BLPaymentCode::defaultSettings("BLLayoutSEPAQRCodeView");
    std::vector<std::string> names;
    for (const Value& record : records) {
        names.push_back(record["parameterName"].toString());
    }
    std::vector<std::string> expected = {"amount", "currency", "reason", "OGM", "IBAN", "BIC", "name"};
    EXPECT_EQ(names, expected);
    EXPECT_EQ(records[0]["key"].toString(), "document.balanceForSEPAQRCode");

    for (const char* className :
         {"BLLayoutQRCodeView", "BLLayoutSEPAQRCodeView", "BLLayoutESRQRCodeView", "BLLayoutStripeQRCodeView",
          "BLLayoutPayPalView", "BLLayoutOCRBView", "BLLayoutESRCostView"}) {
        SCOPED_TRACE(className);
        auto code = BLPaymentCode::forElementClass(className);
        ASSERT_NE(code, nullptr);
        EXPECT_EQ(code->elementClassName(), className);
    }
    EXPECT_EQ(BLPaymentCode::forElementClass("BLLayoutTextView"), nullptr);

    LogCapture log;
    EXPECT_TRUE(BLPaymentCode::defaultSettings("BLLayoutNoSuchView").empty());
    EXPECT_TRUE(log.contains("BLLayoutNoSuchView.plist are missing"));
}

TEST(PaymentCodeSettingsTest, SettingRecordsAndParams) {
    BLSEPAPaymentCode code;
    code.setSettings({keyed("amount", "document.balanceForSEPAQRCode"), setting("IBAN", "DE89370400440532013000"),
                      setting("BIC", "")});
    // Before substitution (the editor) a keyed parameter has no value; empty constants go.
    EXPECT_EQ(code.params(), (Params{{"IBAN", "DE89370400440532013000"}}));
    code.substituteValues({{"document.balanceForSEPAQRCode", Value("12.00")}});
    EXPECT_EQ(code.params(), (Params{{"IBAN", "DE89370400440532013000"}, {"amount", "12.00"}}));

    // Setting a constant replaces the record, key and all; an unknown name adds one.
    code.setSettingValueForKey(Value("7.00"), "amount");
    code.setSettingValueForKey(Value("Orvane"), "name");
    EXPECT_EQ(code.settingsValueForKey("amount"), Value("7.00"));
    EXPECT_EQ(code.settings().size(), 4U);
    EXPECT_EQ(code.param("amount"), "7.00");
    code.removeSettingValueForKey("IBAN");
    EXPECT_TRUE(code.settingsValueForKey("IBAN").isNull());
    EXPECT_EQ(code.cleanedParams(), (Params{{"amount", "7.00"}, {"name", "Orvane"}}));

    auto copy = code.clone();
    EXPECT_EQ(copy->kind(), PaymentCodeKind::EPC);
    EXPECT_EQ(copy->params(), code.params());
}

TEST(PaymentCodeSettingsTest, SwissRequiredParametersAndPreparation) {
    BLSwissPaymentCode code;
    std::vector<std::string> required = {"countryCode", "city", "IBAN", "zip", "street", "name"};
    EXPECT_EQ(code.requiredParamters(), required);
    EXPECT_TRUE(BLPaymentCode::forKind(PaymentCodeKind::EPC)->requiredParamters().empty());
    EXPECT_FALSE(code.supportsColor());
    EXPECT_FALSE(code.hasLinkAnnotation());

    code.setSettings({setting("IBAN", "CH93 0076 2011 6238 5295 7")});
    EXPECT_EQ(code.rawIBAN(), "CH93 0076 2011 6238 5295 7");
    EXPECT_EQ(code.IBAN(), "CH9300762011623852957");
    SubstitutionDictionary values{{"document.number", Value("RE-7")}, {"document.ch_refnumber", Value("x")}};
    prepareSubstitutionForSwissCode(values, code);
    EXPECT_EQ(values["sender.IBAN"].toString(), "CH93 0076 2011 6238 5295 7");
    EXPECT_EQ(values["document.ch_refnumber"].toString(), "RE-7");

    code.setSettings({setting("IBAN", "CH4431999123000889012")});
    values["document.ch_refnumber"] = "x";
    prepareSubstitutionForSwissCode(values, code);
    EXPECT_EQ(values["document.ch_refnumber"].toString(), "x");  // A QR-IBAN keeps the reference.
}

TEST(PaymentCodeTransformersTest, AmountsWithTheirDecimalMark) {
    installPaymentCodeHooks();
    const ValueTransformer* bezahlCode = valueTransformerForName("ZPBezahlCodeNumberTransformer");
    const ValueTransformer* sepa = valueTransformerForName("ZPSEPACodeNumberTransformer");
    ASSERT_NE(bezahlCode, nullptr);
    ASSERT_NE(sepa, nullptr);
    struct Row {
        Value input;
        const char* comma;
        const char* point;
    };
    const Row rows[] = {
        {Value(*Decimal::parse("1234.5")), "1234,50", "1234.50"},
        {Value(*Decimal::parse("1000000")), "1000000,00", "1000000.00"},  // No grouping.
        {Value(*Decimal::parse("0.005")), "0,01", "0.01"},                // Plain rounding.
        {Value(*Decimal::parse("-2.345")), "-2,35", "-2.35"},
        {Value("19.9"), "19,90", "19.90"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.point);
        EXPECT_EQ(bezahlCode->transformedValue(row.input), Value(row.comma));
        EXPECT_EQ(sepa->transformedValue(row.input), Value(row.point));
    }
    EXPECT_TRUE(sepa->transformedValue(Value("abc")).isNull());
    resetSubstitutionHooks();
}

}  // namespace
}  // namespace brassline
