#pragma once

#include <iosfwd>
#include <string>

namespace brassline::placeholdercommands {

// The command-line operations on substitution values, apart from argument parsing. Each
// opens the company file read-only in spirit (nothing is saved), writes its answer to
// `out` and its failure to `err`, and answers the exit code: 0, or 1 for a refused file
// or an unknown uid.

// `text` with every tag "<key/>" replaced from the object's substitution dictionary.
int fill(const std::string& path, const std::string& uid, const std::string& text, std::ostream& out,
         std::ostream& err);
// The object's substitution dictionary: one "key<TAB>value" line per key in key order
// (line breaks in values written as "\n"), or with `json` one JSON object. The object
// entry shows the object's uid.
int dictionary(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err);

}  // namespace brassline::placeholdercommands
