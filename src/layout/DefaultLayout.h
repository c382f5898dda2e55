#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "layout/BLLayoutController.h"

namespace brassline {

// The default layouts are authored as a readable description (resources/layouts/*.json):
// pages and sections with their elements, fonts, colours and anchors. The build writes the
// layout packages from it; the program reads the packages and, if they are missing, builds
// from the description itself.

// Builds the archive records from a description; `variant` ("Letter") moves elements
// anchored right or at the bottom to the variant's paper. Nothing, with the reason, for a
// description that doesn't read.
std::optional<LayoutArchive> buildLayoutFromDescription(std::string_view json, std::string_view variant,
                                                        std::string* error = nullptr);
// The name and paper size a description gives for a variant ("" is the main form).
std::string describedLayoutName(std::string_view json, std::string_view variant);
Size describedPaperSize(std::string_view json, std::string_view variant);

// The archive bytes of the default layout, A4 or US Letter; nothing if neither the built
// package nor the description can be read (logged).
std::optional<Bytes> defaultLayoutData(bool letter);
std::string defaultLayoutName(bool letter);
Size defaultPaperSize(bool letter);
// Where the default packages are looked for; tests may point it elsewhere (empty: built-in).
std::string defaultLayoutsDirectory();
void setDefaultLayoutsDirectory(std::string directory);

// Whether a country (ISO 3166 code) prints on US Letter.
bool paperUsesLetter(std::string_view countryCode);
// The country of the process's default locale ("US" of "en_US"); "" when none.
std::string currentRegion();

}  // namespace brassline
