#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

// One element of a number pattern: literal text, or a token record with its tag
// (`field`), the evaluator's name (`option`, absent for tags without variants) and the
// `uid` a token field gives it, which plays no part in evaluation.
struct PatternElement {
    bool isToken = false;
    std::string text;  // The literal; empty for a token.
    std::string field;
    std::optional<std::string> option;
    std::string uid;

    static PatternElement literal(std::string text);
    static PatternElement token(std::string field, std::optional<std::string> option = std::nullopt);
    bool operator==(const PatternElement&) const = default;
};

using NumberPattern = std::vector<PatternElement>;

// A pattern from its stored form: the archived bytes (a binary or XML property list) or
// the list itself. Null reads as no pattern; anything malformed answers empty with the
// reason in `error`.
std::optional<NumberPattern> patternFromValue(const Value& value, std::string* error = nullptr);
// The list of strings and records, and the archived bytes that preferences store.
Value patternToList(const NumberPattern& pattern);
Value archivedPattern(const NumberPattern& pattern);

// The same list as JSON: ["RE-", {"field": "year", "option": "ZPYear"}, "-", ...].
std::optional<NumberPattern> patternFromJSON(std::string_view json, std::string* error = nullptr);
std::string patternToJSON(const NumberPattern& pattern);

// Whether any token of the pattern has this tag.
bool patternHasField(const NumberPattern& pattern, std::string_view field);

}  // namespace brassline
