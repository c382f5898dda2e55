#pragma once

#include <string>
#include <vector>

#include "core/Value.h"

namespace brassline {

class BLLayout;
class ManagedObjectContext;

// Layout packages: a folder "<name>.brassline" with Info.plist ("type" "layout3",
// "paperFormat", "name", "osVersion", "appVersion"), Data.plist (the archive) and Fonts/
// (the font files of the layout's fonts, found through fontconfig). The preview PDF and
// thumbnail join once the PDF output stands.

// Writes the package, replacing whatever stood at `path`. False, with the reason, when the
// layout has no archive or the folder can't be written.
bool saveLayoutPackage(const BLLayout& layout, const std::string& path, std::string* error = nullptr);
// The same from parts: what the build writes the default packages with.
bool writeLayoutPackage(const std::string& path, const std::string& name, const std::string& paperFormat,
                        const Bytes& data, const std::vector<std::string>& fontNames, std::string* error = nullptr);

struct LayoutImport {
    enum class Outcome { Imported, Replaced, NameTaken, Refused };
    Outcome outcome = Outcome::Refused;
    BLLayout* layout = nullptr;
    std::string message;  // What went wrong, or what was done.
};

// Opens a package into the company file: a "layout3" package is read whole and checked
// (Data.plist present and decodable, every file in Fonts a font file inside the package)
// before anything is written; its fonts are registered for this process. A "design"
// package converts from the older form. A layout of the same name is replaced only with
// `replace`; otherwise the answer is NameTaken and nothing changes. Another "type" is no
// layout (Refused). Without a context the answer is the message to open a company first.
LayoutImport importLayoutPackage(ManagedObjectContext* context, const std::string& path, bool replace);

// Whether bytes begin like a font file (TrueType, OpenType, collections, WOFF, Type 1).
bool looksLikeFontFile(const Bytes& head);

}  // namespace brassline
