#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

// A run of a UTF-8 text, in bytes. Every range handed out here starts and ends on a
// character boundary, so `text.substr(location, length)` is always whole characters; in
// ill-formed text each ill-formed sequence counts as one character.
struct TextRange {
    size_t location = 0;
    size_t length = 0;

    size_t end() const { return location + length; }
    bool intersects(const TextRange& other) const { return location < other.end() && other.location < end(); }
    bool operator==(const TextRange& other) const = default;
};

// Token types. Each is also the key of its label in the translation tables.
inline constexpr const char* kTokenTypePersonalName = "Name";
inline constexpr const char* kTokenTypeOrganization = "Organization";
inline constexpr const char* kTokenTypeNumber = "Number";
inline constexpr const char* kTokenTypeLink = "Link";
inline constexpr const char* kTokenTypePhoneNumber = "Phone";
inline constexpr const char* kTokenTypeDate = "Date";
inline constexpr const char* kTokenTypeQuote = "Quote";
inline constexpr const char* kTokenTypePlace = "Place";
inline constexpr const char* kTokenTypeAddress = "Address";

// A detected value: `value` is exactly the text at `range`.
struct PlaceHolderToken {
    std::string value;
    std::string type;
    TextRange range;

    // {"value", "type", "range": {"location", "length"}}.
    Value::Dictionary record() const;
    bool operator==(const PlaceHolderToken& other) const = default;
};

// The six finders in the order analyzeString runs them. Each answers its tokens in text
// order; none fails: invalid UTF-8 reads as U+FFFD and yields no token inside it. Texts
// above 1 MB are not analysed (answer empty, with a log line).
std::vector<PlaceHolderToken> findNamesAndOrganizationsInString(std::string_view text);
std::vector<PlaceHolderToken> findNumbersURLsAndDatesInString(std::string_view text);
std::vector<PlaceHolderToken> findQuotedTermsInString(std::string_view text);
std::vector<PlaceHolderToken> findCustomDatesInString(std::string_view text);
std::vector<PlaceHolderToken> findPlacesInString(std::string_view text);
std::vector<PlaceHolderToken> findAddressesInString(std::string_view text);

// All six finders' tokens, sorted by start, with overlaps settled.
std::vector<PlaceHolderToken> analyzeString(std::string_view text);
// Sorted by range start (finder order kept among equal starts); of two intersecting
// tokens the shorter goes, on equal length the later one.
std::vector<PlaceHolderToken> settleOverlaps(std::vector<PlaceHolderToken> tokens);

// Matches of the bracket pattern "\[(.*?)\]" (a bracket pair on one line, the shortest
// one from the leftmost "["), whole brackets included. A bracket without partner is none.
std::vector<TextRange> placeHolderRanges(std::string_view text);
// The word segments that hold a letter or a digit.
std::vector<TextRange> wordRanges(std::string_view text);

}  // namespace brassline
