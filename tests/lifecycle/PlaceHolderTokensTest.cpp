#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unicode/utf8.h>

#include "lifecycle/PlaceHolderTokens.h"

namespace brassline {
namespace {

struct Expected {
    std::string value;
    std::string type;
};

std::vector<Expected> summary(const std::vector<PlaceHolderToken>& tokens) {
    std::vector<Expected> result;
    for (const PlaceHolderToken& token : tokens) {
        result.push_back({token.value, token.type});
    }
    return result;
}

bool operator==(const Expected& a, const Expected& b) {
    return a.value == b.value && a.type == b.type;
}

void PrintTo(const Expected& token, std::ostream* out) {
    *out << token.type << ":'" << token.value << "'";
}

// Every token reads exactly its range, ranges sit on character boundaries (an ill-formed
// sequence counts as one character), and the settled list is ordered and free of overlaps.
void expectWellFormed(std::string_view text, const std::vector<PlaceHolderToken>& tokens) {
    std::vector<bool> starts(text.size() + 1, false);
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t index = 0; index < length;) {
        starts[static_cast<size_t>(index)] = true;
        UChar32 c = 0;
        U8_NEXT(bytes, index, length, c);
        (void)c;
    }
    starts[text.size()] = true;
    auto boundary = [&](size_t offset) { return offset < starts.size() && starts[offset]; };
    for (size_t i = 0; i < tokens.size(); ++i) {
        const PlaceHolderToken& token = tokens[i];
        ASSERT_LE(token.range.end(), text.size());
        EXPECT_EQ(token.value, text.substr(token.range.location, token.range.length));
        EXPECT_TRUE(boundary(token.range.location) && boundary(token.range.end()));
        EXPECT_GT(token.range.length, 0u);
        if (i > 0) {
            EXPECT_LE(tokens[i - 1].range.end(), token.range.location);
        }
    }
}

TEST(PlaceHolderTokensTest, BracketPatternNeedsBothBracketsOnOneLine) {
    struct Row {
        const char* text;
        std::vector<TextRange> expected;
    };
    // Offsets are bytes: "Grüße " is 8 bytes (ü and ß take two), "[Straße]" 9.
    const Row rows[] = {
        {"Dear [Name], welcome", {{5, 6}}},
        {"no partner [here", {}},
        {"closing first ] then [", {}},
        {"[[a]", {{0, 4}}},
        {"[a][b]", {{0, 3}, {3, 3}}},
        {"[a] and [b]", {{0, 3}, {8, 3}}},
        {"[a\nb]", {}},
        {"[]", {{0, 2}}},
        {"Grüße [Straße]!", {{8, 9}}},
        {"[outer [inner] rest]", {{0, 14}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(placeHolderRanges(row.text), row.expected);
    }
}

TEST(PlaceHolderTokensTest, GermanTextWithUmlauts) {
    const std::string text =
        "Sehr geehrte Frau Müller, wir liefern am 12. März 2025 in die Bahnhofstraße 5, 80335 München.";
    const std::vector<PlaceHolderToken> tokens = analyzeString(text);
    expectWellFormed(text, tokens);
    const std::vector<Expected> expected = {
        {"Müller", kTokenTypePersonalName},
        {"12. März 2025", kTokenTypeDate},
        {"Bahnhofstraße 5, 80335 München", kTokenTypeAddress},
    };
    EXPECT_EQ(summary(tokens), expected);
}

TEST(PlaceHolderTokensTest, EnglishTextWithEveryKind) {
    const std::string text =
        "Dear Ms. Anna Berg, the workshop \"Design Sprint\" on March 12, 2025 takes place at 221 Baker Street, "
        "London NW1 6XE, United Kingdom. Call +44 20 7946 0958 or visit https://example.org/workshop.";
    const std::vector<PlaceHolderToken> tokens = analyzeString(text);
    expectWellFormed(text, tokens);
    const std::vector<Expected> expected = {
        {"Anna Berg", kTokenTypePersonalName},
        {"Design Sprint", kTokenTypeQuote},
        {"March 12, 2025", kTokenTypeDate},
        {"221 Baker Street, London NW1 6XE", kTokenTypeAddress},
        {"United Kingdom", kTokenTypePlace},
        {"+44 20 7946 0958", kTokenTypePhoneNumber},
        {"https://example.org/workshop", kTokenTypeLink},
    };
    EXPECT_EQ(summary(tokens), expected);
}

TEST(PlaceHolderTokensTest, EachFinderOnItsOwn) {
    using Finder = std::vector<PlaceHolderToken> (*)(std::string_view);
    struct Row {
        const char* name;
        Finder finder;
        const char* text;
        std::vector<Expected> expected;
    };
    const Row rows[] = {
        {"organisation without the article",
         findNamesAndOrganizationsInString,
         "Die Bäckerei Schäfer GmbH liefert",
         {{"Bäckerei Schäfer GmbH", kTokenTypeOrganization}}},
        {"title stays with the name",
         findNamesAndOrganizationsInString,
         "Guten Tag Herr Dr. Jürgen Weiß,",
         {{"Dr. Jürgen Weiß", kTokenTypePersonalName}}},
        {"capitals alone are no name", findNamesAndOrganizationsInString, "Die Rechnung Nummer Vier", {}},
        {"leap days only in leap years",
         analyzeString,
         "29.02.2024 und 2024-02-29, nicht 29.02.2023",
         {{"29.02.2024", kTokenTypeDate}, {"2024-02-29", kTokenTypeDate}, {"29.02.2023", kTokenTypeNumber}}},
        {"mail address and amount",
         findNumbersURLsAndDatesInString,
         "an jörg@beispiel.de: 19 %",
         {{"jörg@beispiel.de", kTokenTypeLink}, {"19 %", kTokenTypeNumber}}},
        {"German quotes",
         findQuotedTermsInString,
         "Projekt „Grüne Wiese“ und «Alpha»",
         {{"Grüne Wiese", kTokenTypeQuote}, {"Alpha", kTokenTypeQuote}}},
        {"unclosed quote", findQuotedTermsInString, "Projekt „offen", {}},
        {"month with year only",
         findCustomDatesInString,
         "ab Januar 2026 bis 3 Feb.",
         {{"Januar 2026", kTokenTypeDate}, {"3 Feb.", kTokenTypeDate}}},
        {"month alone is no date", findCustomDatesInString, "im Mai", {}},
        {"day 32 is no date", findCustomDatesInString, "32. März", {}},
        {"countries and a postal city",
         findPlacesInString,
         "Lieferung nach Österreich und 8001 Zürich",
         {{"Österreich", kTokenTypePlace}, {"Zürich", kTokenTypePlace}}},
        {"country codes are not places", findPlacesInString, "Das ist DE und in AT", {}},
        {"street on two lines",
         findAddressesInString,
         "Lindenallee 12a\n50667 Köln",
         {{"Lindenallee 12a\n50667 Köln", kTokenTypeAddress}}},
        {"French street",
         findAddressesInString,
         "12, rue de la Paix, 75002 Paris",
         {{"12, rue de la Paix, 75002 Paris", kTokenTypeAddress}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const std::vector<PlaceHolderToken> tokens = row.finder(row.text);
        EXPECT_EQ(summary(tokens), row.expected);
        for (const PlaceHolderToken& token : tokens) {
            EXPECT_EQ(token.value, std::string_view(row.text).substr(token.range.location, token.range.length));
        }
    }
}

TEST(PlaceHolderTokensTest, OverlapsGoToTheLongerToken) {
    auto token = [](const char* type, size_t location, size_t length) {
        return PlaceHolderToken{std::string(length, 'x'), type, {location, length}};
    };
    struct Row {
        const char* name;
        std::vector<PlaceHolderToken> input;
        std::vector<std::string> keptTypes;
    };
    const Row rows[] = {
        {"contained shorter goes", {token("A", 0, 5), token("B", 3, 1)}, {"A"}},
        {"later longer wins", {token("A", 0, 3), token("B", 2, 6)}, {"B"}},
        {"equal length keeps the first", {token("A", 0, 4), token("B", 2, 4)}, {"A"}},
        {"adjacent both stay", {token("A", 0, 3), token("B", 3, 2)}, {"A", "B"}},
        {"unsorted input is sorted", {token("B", 10, 2), token("A", 0, 2)}, {"A", "B"}},
        // B (3..9) replaces A (0..4); C (8..10) meets B and is shorter.
        {"winner meets the next", {token("A", 0, 4), token("B", 3, 6), token("C", 8, 2)}, {"B"}},
        {"empty", {}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<std::string> types;
        for (const PlaceHolderToken& kept : settleOverlaps(row.input)) {
            types.push_back(kept.type);
        }
        EXPECT_EQ(types, row.keptTypes);
    }
}

TEST(PlaceHolderTokensTest, ArbitraryTextNeverBreaksTheRanges) {
    const std::vector<std::string> fragments = {
        "[",     "]",       "„",       "“",    "\"",    "«",    "»",    " ",    "\n",       ".",
        ",",     "ä",       "ß",       "Ö",    "€",     "%",    "\xff", "\xc3", "\xe2\x80", "\xb8",
        "12",    "2025",    "03.04.",  "März", "March", "Herr", "Frau", "GmbH", "Straße",   "Street",
        "80335", "München", "Schweiz", "www.", "@",     "+49",  "0",    "Mr.",  "rue",      "-"};
    std::mt19937 random(20250312);
    for (int round = 0; round < 400; ++round) {
        std::string text;
        const size_t count = random() % 24;
        for (size_t i = 0; i < count; ++i) {
            text += fragments[random() % fragments.size()];
        }
        SCOPED_TRACE(text);
        const std::vector<PlaceHolderToken> tokens = analyzeString(text);
        expectWellFormed(text, tokens);
        EXPECT_EQ(analyzeString(text), tokens);
        for (const TextRange& range : placeHolderRanges(text)) {
            ASSERT_LE(range.end(), text.size());
            EXPECT_EQ(text[range.location], '[');
            EXPECT_EQ(text[range.end() - 1], ']');
        }
    }
}

}  // namespace
}  // namespace brassline
