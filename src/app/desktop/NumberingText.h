#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "lifecycle/NumberPattern.h"

namespace brassline::desktop {

// A number pattern as one line a person edits: literal text with each token written as
// its option in braces without the "ZP" ("RE-{Year}-{Increment3}"). `kind` is "invoice",
// "estimate" or "client"; it decides which tokens the line may hold, as the token menus
// of that kind offer them.
std::string patternText(const NumberPattern& pattern);
// The pattern of a line; empty with the reason in `error` for an unclosed brace or a
// token the kind does not offer. Braces can't appear as literals.
std::optional<NumberPattern> parsePatternText(std::string_view text, std::string_view kind,
                                              std::string* error = nullptr);
// The tokens of a kind in menu order, as {option, tag}.
std::vector<std::pair<std::string, std::string>> offeredTokens(std::string_view kind);

}  // namespace brassline::desktop
