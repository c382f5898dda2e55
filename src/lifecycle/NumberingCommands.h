#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace brassline::numbercommands {

// The command-line operations on numbers, apart from argument parsing. Each opens the
// company file, writes its answer to `out` and its failure to `err`, and answers the
// exit code: 0 on success, 1 for bad input or a refused file, 2 when a save fails.

// The number the object with `uid` has, or "<number> (next)" for the one it would get
// now; nothing is taken and nothing saved.
int showNumber(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err);
// The stored pattern of a kind ("invoice", "estimate", "client", "project", "filename",
// "directory" or "followUpType.<uid>") as JSON, with its preview, counter and reset mode;
// with `json` set, stores that pattern instead (tokens get a uid; unknown options are
// refused by name) and saves.
int pattern(const std::string& path, const std::string& kind, const std::optional<std::string>& json, std::ostream& out,
            std::ostream& err);

}  // namespace brassline::numbercommands
