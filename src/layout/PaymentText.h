#pragma once

#include <string>
#include <string_view>

namespace brassline {

// Text rules of the payment codes. All texts are UTF-8; nothing here fails: a text that
// does not fit a rule answers "" or false.

// Blanks, tabs, line breaks and non-breaking spaces removed ("DE89 3704 0044" is
// "DE8937040044").
std::string removeWhiteFromIBAN(std::string_view text);
// Line breaks become blanks, non-breaking spaces too; the ends trimmed.
std::string singleLine(std::string_view text);
// Blanks, tabs, line breaks and non-breaking spaces trimmed from both ends.
std::string trimmed(std::string_view text);

// The IBAN test: letters and digits only (after white space is removed, in upper case), a
// country of the IBAN registry with its length, two check digits, and the ISO 7064 mod
// 97-10 check giving 1.
bool isValidIBAN(std::string_view text);
// A valid IBAN whose five characters from index 4 (the Swiss institution identifier) lie
// from 30000 up to and excluding 32000: the account takes QR references.
bool isQRIBAN(std::string_view text);

// The characters that Swiss payment fields accept: the blank, ASCII letters and digits,
// .,;:'´+-/\()?*[]{}!"#%&<>÷=@_$£ and the Latin letters àáâäçèéêëìíîïñòóôöùúûüýß
// ÀÁÂÄÇÈÉÊËÌÍÎÏÒÓÔÖÙÚÛÜÑ.
bool isSwissBankingCharacter(char32_t character);
// "’" becomes "'", non-breaking spaces and line breaks become blanks, and every character
// outside the Swiss set is dropped.
std::string swissBankingString(std::string_view text);

// A street line split into the street and the house number at its end, read from the
// first line of `address` as "^(.*?)(\s+\d+[a-zA-Z]?)$"; both "" without a match. A
// non-breaking space counts as a blank.
struct SwissStreetAddress {
    std::string street;
    std::string number;
};
SwissStreetAddress separateSwissStreetAddress(std::string_view address);

// Percent escapes of a whole URL in UTF-8: what may stand in a URL stays (letters, digits,
// -_.!~*'() and ;/?:@&=+$,#), everything else becomes %XX.
std::string percentEscapedURL(std::string_view text);
// Percent escapes of one query value in UTF-8: only letters, digits and -_.~ stay, so
// that !*'();:@&=+$,/?%#[] and the blank are escaped too.
std::string URLEncodeForOCR(std::string_view text);

}  // namespace brassline
