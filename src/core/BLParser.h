#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Value.h"

namespace brassline {

// Country names to ISO codes. The table is built once at construction from every region
// ICU knows (plus "IC") in the given locale, "en_US" and "fr_FR", and the codes
// themselves, then a few fixed extra names. Read-only afterwards, so any thread may read.
class BLParser {
public:
    // The parser of the process's current ICU locale, built on first use.
    static const BLParser& sharedParser();
    // `localeID` stands for the current locale ("de_CH"); empty means ICU's default.
    explicit BLParser(std::string localeID = {});

    // Lower-cased names and codes to upper-case country codes.
    const std::unordered_map<std::string, std::string>& countriesDict() const { return m_countries; }
    // The code for a country name or code in any case. An unknown or empty value answers
    // the locale's own country, so an unknown country silently becomes the user's.
    std::string parseCountryCode(const Value& value) const;
    std::string parseCountryCode(std::string_view text) const;
    // The locale's country code ("" when the locale names none).
    const std::string& localeCountryCode() const { return m_localeCountry; }

private:
    std::string m_localeID;
    std::string m_localeCountry;
    std::unordered_map<std::string, std::string> m_countries;
};

// The characters an IBAN is written with.
const std::string& ibanCharacterSet();

// IBAN-shaped runs: a known country code, two digits and exactly as many word characters
// as that country's IBAN has (63 countries). Answers each run as written in the text;
// check digits are not tested. Results are grouped by country in table order.
std::vector<std::string> extractIBANs(std::string_view text);
// The ISO 13616 mod-97 test of an IBAN (blanks allowed, case ignored).
bool hasValidIBANChecksum(std::string_view iban);
// The total IBAN length of a country, 0 for a country without IBANs in the table.
int ibanLengthForCountry(std::string_view countryCode);
// The ISO 9362 shape of a BIC: four letters for the bank, two for the country, two
// letters or digits for the place and optionally three for the branch (blanks allowed,
// case ignored). Whether the bank exists is not known here.
bool isValidBIC(std::string_view bic);

// Numbers written with the locale's grouping and decimal separators ("-1.234,56" in
// de_DE), as they stand in the text; empty `localeID` means ICU's default locale.
std::vector<std::string> extractNumbers(std::string_view text, std::string_view localeID = {});

// The text with combining marks removed ("Zürich" gives "Zurich"; "ß" stays).
std::string removeDiacritics(std::string_view text);
// Any script transliterated to plain lower-case ASCII ("Straße" gives "strasse").
std::string asciiLowercase(std::string_view text);

// Upper case by the locale-independent rules ("straße" gives "STRASSE").
std::string uppercaseText(std::string_view text);

// Blanks to U+00A0 and back.
std::string stringByReplacingSpacesWithNbsp(std::string_view text);
std::string stringByReplacingNbspWithSpaces(std::string_view text);

}  // namespace brassline
