#pragma once

#include <string>
#include <string_view>

namespace brassline {

// The translation of a built-in word by its text key ("untitled", "invoice", "draft") in
// the current language; a key missing there falls back to English, and a key missing in
// English answers itself. Tables load lazily from <resources>/Localizable/<language>.json.
// Thread-safe.
std::string localizedString(std::string_view key);
// The same for one language ("de", "en"), whatever the current language is.
std::string localizedString(std::string_view key, std::string_view language);

// The current language as a lower-case ISO 639 code. By default it comes from LC_ALL,
// LC_MESSAGES or LANG ("de_DE.UTF-8" gives "de"), else English. Setting a locale-like name
// keeps only its language; an empty name returns to the environment's.
std::string currentLanguage();
void setCurrentLanguage(std::string_view language);

// Where the tables are read: the environment variable BRASSLINE_RESOURCES, else the
// resources folder of the build. Setting a folder (empty: the default again) drops the
// tables loaded so far.
std::string localizationResourcesDirectory();
void setLocalizationResourcesDirectory(std::string directory);

}  // namespace brassline
