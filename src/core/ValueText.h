#pragma once

#include <string>
#include <string_view>

#include "core/Value.h"

// Text helpers shared by the Value sources (descriptions, JSON); not for other callers.
namespace brassline::valuetext {

// The shortest text that reads back as the same double; "nan", "inf" and "-inf".
std::string doubleText(double value);
// The text in double quotes with quotes, backslashes and control characters escaped.
std::string quoted(std::string_view text);
// Standard base64 with padding (RFC 4648, section 4).
std::string base64(const Bytes& bytes);

}  // namespace brassline::valuetext
