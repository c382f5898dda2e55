#pragma once

#include <iosfwd>
#include <string>

namespace brassline::tagcommands {

// The command-line operations on layout tags and fill-in fields, apart from argument
// parsing. Each opens the company file without saving, writes its answer to `out` and its
// failure to `err`, and answers the exit code: 0 on success, 1 for bad input or a refused
// file.

// The tag catalogue: one section per line ("name:") with its tags indented below, nested
// sections further in; with `json` one array of {"name", "tags", "sections"}.
int tags(const std::string& path, bool json, std::ostream& out, std::ostream& err);
// The fill-in fields of a document (its lead and its lines' texts): per field the object's
// uid, the field name and its text, then its bracket fields or detected values with their
// types; with `json` one array of {"uid", "field", "text", "fields", "tokens"}.
int placeholders(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err);

}  // namespace brassline::tagcommands
