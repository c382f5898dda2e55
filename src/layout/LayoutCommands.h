#pragma once

#include <iosfwd>
#include <string>

namespace brassline::layoutcommands {

// The `brassline layout ...` commands. Each answers an exit code (store/CommandFile.h),
// prints its result on `out` and its complaints on `err`.

// Every layout: uid, name, paper size and name, usage.
int list(const std::string& path, bool json, std::ostream& out, std::ostream& err);
// Writes the layout as a package at `package`.
int exportLayout(const std::string& path, const std::string& uid, const std::string& package, std::ostream& out,
                 std::ostream& err);
// Imports a package; a layout of the same name is replaced only with `replace`.
int importPackage(const std::string& path, const std::string& package, bool replace, std::ostream& out,
                  std::ostream& err);
// The layoutDictionaryRepresentation of every page and every section.
int dump(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err);
// Shows the paper, or sets it from a name ("A4", "letter") or a size ("{612, 792}").
int paper(const std::string& path, const std::string& uid, const std::string& sizeOrName, std::ostream& out,
          std::ostream& err);

}  // namespace brassline::layoutcommands
