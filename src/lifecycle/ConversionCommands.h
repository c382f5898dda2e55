#pragma once

#include <iosfwd>
#include <string>

namespace brassline::conversioncommands {

// The command-line conversions, apart from argument parsing. Each opens the company file,
// makes the new draft, saves, prints its uid on `out` and answers the exit code: 0 on
// success, 1 for bad input (unknown uid, a target the source can't become), 2 when the
// save fails. Messages go to `err`.

// `target` is "invoice" (from an estimate), "estimate" or "credit-note" (from an invoice).
int convert(const std::string& path, const std::string& uid, const std::string& target, std::ostream& out,
            std::ostream& err);
// A fresh draft of an invoice or estimate beside it.
int duplicate(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err);

}  // namespace brassline::conversioncommands
