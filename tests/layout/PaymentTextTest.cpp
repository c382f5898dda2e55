#include <gtest/gtest.h>

#include "PaymentTestSupport.h"
#include "layout/PaymentText.h"

namespace brassline {
namespace {

TEST(PaymentTextTest, IBANTestFollowsTheRegistryAndTheModulo97Check) {
    struct Row {
        const char* iban;
        bool valid;
    };
    const Row rows[] = {
        {"DE89 3704 0044 0532 0130 00", true},  // The common German example.
        {"DE89370400440532013001", false},      // Last digit changed: the remainder is no longer 1.
        {"DE98370400440532013000", false},      // Check digits swapped.
        {"DE8937040044053201300", false},       // One digit short of Germany's 22.
        {"CH93 0076 2011 6238 5295 7", true},
        {"CH44 3199 9123 0008 8901 2", true},   // A QR-IBAN is an IBAN too.
        {"BE68 5390 0754 7034", true},          // Belgium's 16 characters.
        {"XX89370400440532013000", false},      // No such country.
        {"de89 3704 0044 0532 0130 00", true},  // Lower case reads as upper case.
        {"DE89\u00A03704\u00A00044\u00A00532\u00A00130\u00A000", true},
        {"", false},
        {"DE8", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.iban);
        EXPECT_EQ(isValidIBAN(row.iban), row.valid);
    }
}

TEST(PaymentTextTest, IBANTestsAgreeWithThePublishedValidationVectors) {
    int checked = 0;
    for (const auto& row : paymentCodeTestRows("manuelbl-SwissQRBill-validation-vectors.tsv")) {
        if (row.size() < 3 || (row[0] != "isValidIBAN" && row[0] != "isQRIBAN")) {
            continue;
        }
        SCOPED_TRACE(row[0] + " " + row[1]);
        bool answer = row[0] == "isQRIBAN" ? isQRIBAN(row[1]) : isValidIBAN(row[1]);
        EXPECT_EQ(answer, row[2] == "true");
        ++checked;
    }
    EXPECT_EQ(checked, 18);
}

TEST(PaymentTextTest, QRIBANHasAnInstitutionFrom30000To31999) {
    struct Row {
        const char* iban;
        bool qr;
    };
    const Row rows[] = {
        {"CH44 3199 9123 0008 8901 2", true},  // 31999: the last one inside.
        {"CH5800791123000889012", false},      // 00791: an ordinary account.
        {"CH9300762011623852957", false},
        {"CH4431999123000889013", false},   // The range fits, the check sum does not.
        {"DE89370400440532013000", false},  // 37040: a German bank code, not Swiss.
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.iban);
        EXPECT_EQ(isQRIBAN(row.iban), row.qr);
    }
}

TEST(PaymentTextTest, SwissBankingStringKeepsTheSwissSetAndDropsTheRest) {
    struct Row {
        const char* input;
        const char* expected;
    };
    const Row rows[] = {
        {"Müller & Söhne AG", "Müller & Söhne AG"},
        {"L\u2019Atelier", "L'Atelier"},    // The typographic apostrophe becomes "'".
        {"Rue\u00A0du Lac", "Rue du Lac"},  // Non-breaking space: a blank.
        {"Zeile 1\nZeile 2\r\n", "Zeile 1 Zeile 2  "},
        {"Łódź 😃 Straße", "ód  Straße"},  // Ł, ź and the emoji are outside; ó and ß inside.
        {"Price: 5 £ ÷ 2 = 2.5 £", "Price: 5 £ ÷ 2 = 2.5 £"},
        {"€ 100", " 100"},  // The euro sign is not in the set.
        {"Åsa Ødegård", "sa degrd"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.input);
        EXPECT_EQ(swissBankingString(row.input), row.expected);
    }
}

TEST(PaymentTextTest, StreetAddressSplitsAtTheHouseNumber) {
    struct Row {
        const char* address;
        const char* street;
        const char* number;
    };
    const Row rows[] = {
        {"Rue du Lac 1268", "Rue du Lac", "1268"},
        {"Rue examplaire 22a", "Rue examplaire", "22a"},
        {"Bahnhofstrasse 1\nPostfach 12", "Bahnhofstrasse", "1"},  // Only the first line counts.
        {"Marktgasse\u00A028", "Marktgasse", "28"},                // A non-breaking space is a blank.
        {"  Grosse Marktgasse   28  ", "", ""},                    // A trailing blank: no match.
        {"Bahnhofstrasse", "", ""},                                // No number, no street either.
        {"Route 66 12", "Route 66", "12"},
        {"Hauptstrasse 12ab", "", ""},  // At most one letter.
        {"A12", "", ""},                // A blank must stand before the number.
        {" 7", "", "7"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.address);
        SwissStreetAddress parts = separateSwissStreetAddress(row.address);
        EXPECT_EQ(parts.street, row.street);
        EXPECT_EQ(parts.number, row.number);
    }
}

TEST(PaymentTextTest, WhiteSpaceHelpers) {
    EXPECT_EQ(removeWhiteFromIBAN(" CH44 3199\u00A09123\n0008 8901 2 "), "CH4431999123000889012");
    EXPECT_EQ(singleLine("  Orvane\nWorks\u00A0GmbH \n"), "Orvane Works GmbH");
    EXPECT_EQ(trimmed("\u00A0 Biel \n"), "Biel");
}

TEST(PaymentTextTest, PercentEscapes) {
    // The whole URL keeps what may stand in a URL; é is two UTF-8 bytes.
    EXPECT_EQ(percentEscapedURL("bank://singlepayment?name=Café Müller&amount=12,50"),
              "bank://singlepayment?name=Caf%C3%A9%20M%C3%BCller&amount=12,50");
    EXPECT_EQ(percentEscapedURL("a\"b<c>d%e"), "a%22b%3Cc%3Ed%25e");
    // A query value escapes the reserved signs too.
    EXPECT_EQ(URLEncodeForOCR("!*'();:@&=+$,/?%#[] a-_.~"),
              "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D%20a-_.~");
    EXPECT_EQ(URLEncodeForOCR("0100003949753>210000000003139471430009017+ 010001628>"),
              "0100003949753%3E210000000003139471430009017%2B%20010001628%3E");
}

}  // namespace
}  // namespace brassline
