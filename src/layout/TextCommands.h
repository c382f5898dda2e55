#pragma once

#include <iosfwd>
#include <string>

namespace brassline::textcommands {

// `brassline render-text`: the measured height of `text` at `widthPoints` and its lines as
// broken there, in `font` ("Family Size"; Helvetica 12 when empty). Answers an exit code
// (store/CommandFile.h); prints on `out`, complaints on `err`.
int renderText(const std::string& text, double widthPoints, const std::string& font, bool hyphenate, bool json,
               std::ostream& out, std::ostream& err);

}  // namespace brassline::textcommands
