#pragma once

#include <iosfwd>
#include <string>

namespace brassline::contactcommands {

// The command-line operations on contacts, apart from argument parsing. Each opens the
// company file read-only in effect (nothing is saved), writes its answer to `out` and its
// failure to `err`, and answers the exit code: 0 on success, 1 for bad input or a refused
// file. Balances need the item hooks installed (installItemHooks) beforehand.

// The vCard text of the contact with `uid`.
int vcard(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err);
// The contact's address as documents print it.
int address(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err);
// The clients by number, then name: number, display name and balance tab-separated, or
// with `json` one object per line with "uid", "number" (null without one),
// "displayName" and "balance".
int clients(const std::string& path, bool json, std::ostream& out, std::ostream& err);

}  // namespace brassline::contactcommands
