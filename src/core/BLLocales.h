#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace brassline {

// The address templates and country records of resources/AddressFormats.json. A template
// is keyed by recipient country ("DE") or by sender and recipient country ("JP-JP") and
// holds the tags <Street/>, <ZIP/>, <City/>, <State/> and possibly <Recipient/>.
// Immutable once loaded, so any thread may read.
class BLLocales {
public:
    // Loaded on first use from the resources folder; empty tables (and a log line) when
    // the file is missing or unreadable.
    static const BLLocales& sharedLocales();
    // Reads a file of that format; nothing (and a log line naming the file) on failure.
    static std::optional<BLLocales> loadFromFile(const std::string& path);
    static std::optional<BLLocales> loadFromJSON(std::string_view text);

    const std::map<std::string, std::string, std::less<>>& addressFormatDictionary() const { return m_formats; }
    // The template of a key, null when there is none.
    const std::string* addressFormat(std::string_view key) const;
    // The "countryNameLocale" of a country's record, nothing when it has none.
    std::optional<std::string> countryNameLocale(std::string_view countryCode) const;

private:
    std::map<std::string, std::string, std::less<>> m_formats;
    std::map<std::string, std::string, std::less<>> m_countryNameLocales;
};

// The country part of ICU's default locale ("DE" for de_DE), "" when it names none.
std::string currentLocaleCountryCode();
// The name of a country in a locale ("Schweiz" for CH in de), through ICU; nothing when
// ICU has no name for the code. An empty locale means ICU's default.
std::optional<std::string> countryDisplayName(std::string_view countryCode, std::string_view localeID = {});

}  // namespace brassline
