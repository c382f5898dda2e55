#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/Decimal.h"

namespace brassline {

// Evaluates a formula of decimal numbers with + - * /, unary signs and parentheses, in
// exact decimal arithmetic ("19.99 * 3", "(100 - 2.5) / 3"). A malformed formula answers
// an empty optional and, when `error` is given, the reason with its position. Division by
// zero answers not-a-number, as the arithmetic does.
std::optional<Decimal> evaluateDecimalFormula(std::string_view text, std::string* error = nullptr);

}  // namespace brassline
