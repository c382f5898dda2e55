#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace brassline {

// Case and diacritic folding for comparisons that ignore them ([c], [d], [cd]).
enum FoldOptions : unsigned { kFoldNone = 0, kFoldCase = 1, kFoldDiacritics = 2 };

// Writes the folded form of UTF-8 `text` into `out` (replacing its contents): case folding
// as Unicode's default full folding, diacritics removed as NFD, marks dropped, NFC. Pure
// ASCII and text below U+0800 avoid ICU; anything else goes through it. Thread-safe.
void foldString(std::string_view text, unsigned options, std::string& out);
std::string foldedString(std::string_view text, unsigned options);

}  // namespace brassline
