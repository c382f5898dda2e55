#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/BLParser.h"

namespace brassline {
namespace {

using Strings = std::vector<std::string>;

struct TextCase {
    const char* label;
    std::string text;
    Strings expected;
};

TEST(ParserTest, ExtractIBANsFindsRunsOfTheTableLengthAsWritten) {
    const std::vector<TextCase> cases = {
        {"plain in a sentence", "Please pay to DE89370400440532013000 by Friday.", {"DE89370400440532013000"}},
        {"lower case is kept as written", "iban: de89370400440532013000", {"de89370400440532013000"}},
        {"groups with blanks are not found", "DE89 3704 0044 0532 0130 00", {}},
        // The pattern has no word boundary: a longer run yields its first 22 characters.
        {"a longer run gives its prefix", "DE8937040044053201300099", {"DE89370400440532013000"}},
        {"one character short", "DE8937040044053201300", {}},
        // "_" is a word character, so the expression matches 22 characters; without it 21
        // remain and the run is dropped; the search goes on behind the match.
        {"underscore shortens the run", "DE89_370400440532013000", {}},
        {"unknown country", "XX89370400440532013000", {}},
        // Each country searches the whole text on its own, so the Maltese account number
        // also holds a Lithuanian-shaped run ("LT01" and 16 more).
        {"shortest and longest countries",
         "NO9386011117947 and MT84MALT011000012345MTLCAST001S",
         {"LT011000012345MTLCAS", "MT84MALT011000012345MTLCAST001S", "NO9386011117947"}},
        {"two of one country in text order",
         "DE88370400440532013000/DE89370400440532013000",
         {"DE88370400440532013000", "DE89370400440532013000"}},
        // Results come grouped by country in table order (CH, DE, GB), not in text order.
        {"several countries",
         "GB29NWBK60161331926819; DE89370400440532013000; CH9300762011623852957",
         {"CH9300762011623852957", "DE89370400440532013000", "GB29NWBK60161331926819"}},
        {"Arabic text around", "حوّل المبلغ إلى SA0380000000608010167519 شكراً", {"SA0380000000608010167519"}},
        {"letters of another script right behind", "SA0380000000608010167519شكراً", {"SA0380000000608010167519"}},
        // Letters of any script are word characters and alphanumeric: the run is
        // IBAN-shaped, and only the check digits could tell it apart.
        {"Cyrillic letters inside", "DE89ЖЖЖЖ00440532013000", {"DE89ЖЖЖЖ00440532013000"}},
        {"Arabic-Indic check digits", "DE٨٩370400440532013000", {"DE٨٩370400440532013000"}},
        {"Kelvin sign folds to k", "\u212AW81CBKU0000000000001234560101", {"\u212AW81CBKU0000000000001234560101"}},
        {"empty", "", {}},
    };
    for (const TextCase& row : cases) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(extractIBANs(row.text), row.expected);
    }
}

TEST(ParserTest, ExtractIBANsInVeryLongTexts) {
    std::string text;
    const std::string filler = "Zahlung für Rechnung 2026-0042, Verwendungszweck Miete ";
    text += "CH9300762011623852957 ";
    for (int i = 0; i < 20000; ++i) {
        text += filler;
        if (i == 10000) {
            text += "FR1420041010050500013M02606 ";
        }
    }
    text += "GB29NWBK60161331926819";
    ASSERT_GT(text.size(), 1000000u);
    EXPECT_EQ(extractIBANs(text),
              (Strings{"CH9300762011623852957", "FR1420041010050500013M02606", "GB29NWBK60161331926819"}));

    // A long run of digits after a code: one match, then no further code to start one.
    std::string digits = "NO";
    digits.append(15 * 1000 - 2, '1');
    const Strings found = extractIBANs(digits);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0], "NO" + std::string(13, '1'));
}

TEST(ParserTest, IBANChecksumAndLengths) {
    struct Row {
        const char* iban;
        bool valid;
    };
    // Check digits worked out by the mod-97 rule (ISO 7064) by hand for the altered ones.
    const std::vector<Row> rows = {
        {"DE89370400440532013000", true},       {"DE88370400440532013000", false},
        {"de89370400440532013000", true},       {"GB29 NWBK 6016 1331 9268 19", true},
        {"CH9300762011623852957", true},        {"MT84MALT011000012345MTLCAST001S", true},
        {"DE8937040044053201300", false},       {"US12345678901234567890", false},
        {"DE89-3704-0044-0532-0130-00", false}, {"", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.iban);
        EXPECT_EQ(hasValidIBANChecksum(row.iban), row.valid);
    }
    EXPECT_EQ(ibanLengthForCountry("de"), 22);
    EXPECT_EQ(ibanLengthForCountry("NO"), 15);
    EXPECT_EQ(ibanLengthForCountry("MT"), 31);
    EXPECT_EQ(ibanLengthForCountry("US"), 0);
    EXPECT_EQ(ibanCharacterSet().size(), 36u);
}

TEST(ParserTest, BICShape) {
    struct Row {
        const char* bic;
        bool valid;
    };
    const std::vector<Row> rows = {
        {"COBADEFF", true},     {"COBADEFFXXX", true}, {"cobadeff 370", true},  {"DEUTDEDB110", true},
        {"COBADEF", false},     {"COBADEFFXX", false}, {"C0BADEFF", false},     {"COBAD3FF", false},
        {"COBADEFF-XX", false}, {"", false},           {"COBADEFF1234", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bic);
        EXPECT_EQ(isValidBIC(row.bic), row.valid);
    }
}

TEST(ParserTest, ExtractNumbersUsesTheLocaleSeparators) {
    struct Row {
        const char* locale;
        std::string text;
        Strings expected;
    };
    const std::vector<Row> rows = {
        {"en_US", "Total 1,234.56 and -7 items", {"1,234.56", "-7"}},
        // Without grouping a long number splits after three digits: 12345 reads 123, 45.
        {"en_US", "ref 12345", {"123", "45"}},
        {"de_DE", "Summe 1.234,56 EUR, Rabatt -0,5", {"1.234,56", "-0,5"}},
        {"de_DE", "1,234.56", {"1,234", "56"}},
        {"de_CH", "CHF 1\u2019234.50", {"1\u2019234.50"}},
        {"fr_FR", "1\u202F234,5 €", {"1\u202F234,5"}},
        // Digits of other scripts are digits to the pattern.
        {"ar_EG", "المجموع \u0661\u066C\u0662\u0663\u0664\u066B\u0665", {"\u0661\u066C\u0662\u0663\u0664\u066B\u0665"}},
        {"en_US", "no digits here", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.locale) + ": " + row.text);
        EXPECT_EQ(extractNumbers(row.text, row.locale), row.expected);
    }
}

TEST(ParserTest, CountryNamesInSeveralLanguages) {
    const BLParser swiss("de_CH");
    const BLParser japanese("ja_JP");
    struct Row {
        const BLParser* parser;
        std::string text;
        const char* code;
    };
    const std::vector<Row> rows = {
        {&swiss, "Deutschland", "DE"},
        {&swiss, "Germany", "DE"},
        {&swiss, "ALLEMAGNE", "DE"},
        {&swiss, "de", "DE"},
        {&swiss, "Schweiz", "CH"},
        {&swiss, "Suisse", "CH"},
        {&swiss, "Switzerland", "CH"},
        {&swiss, "Österreich", "AT"},
        {&swiss, "Vereinigte Staaten", "US"},
        {&swiss, "Royaume-Uni", "GB"},
        {&swiss, "Canary Islands", "IC"},
        {&swiss, "ic", "IC"},
        {&swiss, "Russian Federation", "RU"},
        {&swiss, "Republic of Kosovo", "XK"},
        {&swiss, "Curacao", "CW"},
        {&swiss, "Curaçao", "CW"},
        // Unknown and empty names become the locale's own country.
        {&swiss, "Atlantis", "CH"},
        {&swiss, "", "CH"},
        {&swiss, "Deutschland ", "CH"},
        {&japanese, "ドイツ", "DE"},
        {&japanese, "日本", "JP"},
        {&japanese, "Japon", "JP"},
        {&japanese, "Atlantis", "JP"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(row.parser->parseCountryCode(std::string_view(row.text)), row.code);
    }
    // Any value is formatted as text first.
    EXPECT_EQ(swiss.parseCountryCode(Value(std::string("fr"))), "FR");
    EXPECT_EQ(swiss.parseCountryCode(Value(int64_t{49})), "CH");
    EXPECT_EQ(swiss.parseCountryCode(Value()), "CH");
    EXPECT_EQ(japanese.localeCountryCode(), "JP");
}

TEST(ParserTest, DiacriticsAndAsciiFolding) {
    struct Row {
        const char* text;
        const char* withoutDiacritics;
        const char* ascii;
    };
    const std::vector<Row> rows = {
        {"Zürich", "Zurich", "zurich"},
        {"Crème Brûlée", "Creme Brulee", "creme brulee"},
        // ß is a letter of its own, not a letter with a mark.
        {"Straße", "Straße", "strasse"},
        {"Ελλάδα", "Ελλαδα", "ellada"},
        {"Москва", "Москва", "moskva"},
        {"plain", "plain", "plain"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(removeDiacritics(row.text), row.withoutDiacritics);
        EXPECT_EQ(asciiLowercase(row.text), row.ascii);
    }
    EXPECT_EQ(stringByReplacingSpacesWithNbsp("a b  c"), "a\u00A0b\u00A0\u00A0c");
    EXPECT_EQ(stringByReplacingNbspWithSpaces("a\u00A0b c"), "a b c");
    EXPECT_EQ(uppercaseText("straße"), "STRASSE");
}

}  // namespace
}  // namespace brassline
