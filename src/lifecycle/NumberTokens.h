#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/Value.h"

namespace brassline {

class ManagedObject;

// The preferences that tokens and counters read and write, by key path ("invoice.number").
// The document's preference controller stands behind it, or an overlay that keeps writes
// to itself for a preview.
class NumberingPreferences {
public:
    virtual ~NumberingPreferences() = default;
    virtual Value valueForKeyPath(std::string_view keyPath) = 0;
    virtual void setValueForKeyPath(const Value& value, std::string_view keyPath) = 0;
};

// What one token evaluation sees. `object` may be null (the preview of a pattern).
struct TokenInput {
    ManagedObject* object = nullptr;
    NumberingPreferences* preferences = nullptr;
    int64_t autoIncrement = 1;
};

// The text of the token named `option` ("ZPIncrement3", "ZPYear", or a composed name
// "ZPIncrement3.followUpType.<uid>" that counts on that type's counter). Empty for an
// unknown option and for a token with nothing to say (a reference that is not set).
std::optional<std::string> tokenValue(std::string_view option, const TokenInput& input);
bool isKnownTokenOption(std::string_view option);

// The localized word for the token's kind ("year", "client"), when it has one.
std::optional<std::string> tokenPrefix(std::string_view option);
// The text of the token in an editable field: "Year (2024)" for the date tokens, the
// money terms' own phrases; empty when the option has no display name of its own.
std::optional<std::string> tokenDisplayName(std::string_view option, NumberingPreferences* preferences);

// "%0<width>ld" of the value: a value wider than the width is printed in full, never cut.
std::string formatCounter(int64_t value, int width);

// The counter key a counter token reads ("client.number"); empty for other tokens.
std::optional<std::string> counterKeyForOption(std::string_view option);

}  // namespace brassline
