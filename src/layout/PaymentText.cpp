#include "layout/PaymentText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include <unicode/utf8.h>

namespace brassline {

namespace {

constexpr char32_t kNoBreakSpace = 0x00A0;

bool isLineBreak(char32_t c) {
    return c == '\n' || c == '\r' || c == 0x0B || c == 0x0C || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool isWhite(char32_t c) {
    return c == ' ' || c == '\t' || c == kNoBreakSpace || isLineBreak(c);
}

// Calls `visit` with each code point; malformed bytes are skipped.
template <typename Visit>
void forEachCodePoint(std::string_view text, Visit visit) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    auto length = static_cast<int32_t>(text.size());
    int32_t index = 0;
    while (index < length) {
        UChar32 c = 0;
        U8_NEXT(bytes, index, length, c);
        if (c >= 0) {
            visit(static_cast<char32_t>(c));
        }
    }
}

void append(std::string& out, char32_t c) {
    uint8_t buffer[U8_MAX_LENGTH];
    int32_t length = 0;
    UBool error = false;
    U8_APPEND(buffer, length, U8_MAX_LENGTH, static_cast<UChar32>(c), error);
    if (!error) {
        out.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(length));
    }
}

std::u32string decoded(std::string_view text) {
    std::u32string result;
    forEachCodePoint(text, [&](char32_t c) { result += c; });
    return result;
}

std::string encoded(std::u32string_view text) {
    std::string result;
    for (char32_t c : text) {
        append(result, c);
    }
    return result;
}

bool isAsciiDigit(char32_t c) {
    return c >= '0' && c <= '9';
}

bool isAsciiLetter(char32_t c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

struct IBANLength {
    const char* country;
    uint8_t length;
};

// The IBAN registry's countries with the length of their IBANs.
constexpr IBANLength kIBANLengths[] = {
    {"AD", 24}, {"AE", 23}, {"AL", 28}, {"AT", 20}, {"AZ", 28}, {"BA", 20}, {"BE", 16}, {"BG", 22}, {"BH", 22},
    {"BI", 27}, {"BR", 29}, {"BY", 28}, {"CH", 21}, {"CR", 22}, {"CY", 28}, {"CZ", 24}, {"DE", 22}, {"DJ", 27},
    {"DK", 18}, {"DO", 28}, {"EE", 20}, {"EG", 29}, {"ES", 24}, {"FI", 18}, {"FK", 18}, {"FO", 18}, {"FR", 27},
    {"GB", 22}, {"GE", 22}, {"GI", 23}, {"GL", 18}, {"GR", 27}, {"GT", 28}, {"HN", 28}, {"HR", 21}, {"HU", 28},
    {"IE", 22}, {"IL", 23}, {"IQ", 23}, {"IS", 26}, {"IT", 27}, {"JO", 30}, {"KW", 30}, {"KZ", 20}, {"LB", 28},
    {"LC", 32}, {"LI", 21}, {"LT", 20}, {"LU", 20}, {"LV", 21}, {"LY", 25}, {"MC", 27}, {"MD", 24}, {"ME", 22},
    {"MK", 19}, {"MN", 20}, {"MR", 27}, {"MT", 31}, {"MU", 30}, {"NI", 28}, {"NL", 18}, {"NO", 15}, {"OM", 23},
    {"PK", 24}, {"PL", 28}, {"PS", 29}, {"PT", 25}, {"QA", 29}, {"RO", 24}, {"RS", 22}, {"RU", 33}, {"SA", 24},
    {"SC", 31}, {"SD", 18}, {"SE", 24}, {"SI", 19}, {"SK", 24}, {"SM", 27}, {"SO", 23}, {"ST", 25}, {"SV", 28},
    {"TL", 23}, {"TN", 24}, {"TR", 26}, {"UA", 29}, {"VA", 22}, {"VG", 24}, {"XK", 20}, {"YE", 30},
};

std::string upperIBAN(std::string_view text) {
    std::string iban = removeWhiteFromIBAN(text);
    std::transform(iban.begin(), iban.end(), iban.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return iban;
}

void appendEscaped(std::string& out, unsigned char byte) {
    char buffer[4];
    std::snprintf(buffer, sizeof buffer, "%%%02X", byte);
    out += buffer;
}

template <typename Keep>
std::string percentEscaped(std::string_view text, Keep keep) {
    std::string result;
    result.reserve(text.size());
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80 && keep(static_cast<char>(byte))) {
            result += c;
        } else {
            appendEscaped(result, byte);
        }
    }
    return result;
}

bool isAsciiAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

}  // namespace

std::string removeWhiteFromIBAN(std::string_view text) {
    std::string result;
    forEachCodePoint(text, [&](char32_t c) {
        if (!isWhite(c)) {
            append(result, c);
        }
    });
    return result;
}

std::string trimmed(std::string_view text) {
    std::u32string characters = decoded(text);
    size_t start = 0;
    size_t end = characters.size();
    while (start < end && isWhite(characters[start])) {
        ++start;
    }
    while (end > start && isWhite(characters[end - 1])) {
        --end;
    }
    return encoded(std::u32string_view(characters).substr(start, end - start));
}

std::string singleLine(std::string_view text) {
    std::string result;
    forEachCodePoint(text, [&](char32_t c) { append(result, isWhite(c) && c != '\t' ? U' ' : c); });
    return trimmed(result);
}

bool isValidIBAN(std::string_view text) {
    std::string iban = upperIBAN(text);
    // Two letters of the country, then the two check digits.
    if (iban.size() < 4 || !isAsciiLetter(static_cast<unsigned char>(iban[0])) ||
        !isAsciiLetter(static_cast<unsigned char>(iban[1])) || !isAsciiDigit(static_cast<unsigned char>(iban[2])) ||
        !isAsciiDigit(static_cast<unsigned char>(iban[3]))) {
        return false;
    }
    const auto* entry = std::find_if(std::begin(kIBANLengths), std::end(kIBANLengths),
                                     [&](const IBANLength& row) { return iban.compare(0, 2, row.country) == 0; });
    if (entry == std::end(kIBANLengths) || iban.size() != entry->length) {
        return false;
    }
    // ISO 7064 mod 97-10: the first four characters move to the end, letters count A = 10
    // to Z = 35, and the remainder of the whole number by 97 must be 1.
    std::string rearranged = iban.substr(4) + iban.substr(0, 4);
    unsigned remainder = 0;
    for (char c : rearranged) {
        if (c >= '0' && c <= '9') {
            remainder = (remainder * 10 + static_cast<unsigned>(c - '0')) % 97;
        } else if (c >= 'A' && c <= 'Z') {
            remainder = (remainder * 100 + static_cast<unsigned>(c - 'A' + 10)) % 97;
        } else {
            return false;
        }
    }
    return remainder == 1;
}

bool isQRIBAN(std::string_view text) {
    if (!isValidIBAN(text)) {
        return false;
    }
    std::string iban = upperIBAN(text);
    int institution = 0;
    for (size_t index = 4; index < 9; ++index) {
        if (iban[index] < '0' || iban[index] > '9') {
            return false;
        }
        institution = institution * 10 + (iban[index] - '0');
    }
    return institution >= 30000 && institution < 32000;
}

bool isSwissBankingCharacter(char32_t c) {
    if (c == ' ' || isAsciiDigit(c) || isAsciiLetter(c)) {
        return true;
    }
    static constexpr std::u32string_view kAllowed =
        U".,;:'\u00B4+-/\\()?*[]{}!\"#%&<>\u00F7=@_$\u00A3"
        U"\u00E0\u00E1\u00E2\u00E4\u00E7\u00E8\u00E9\u00EA\u00EB\u00EC\u00ED\u00EE\u00EF\u00F1\u00F2\u00F3\u00F4"
        U"\u00F6\u00F9\u00FA\u00FB\u00FC\u00FD\u00DF\u00C0\u00C1\u00C2\u00C4\u00C7\u00C8\u00C9\u00CA\u00CB\u00CC"
        U"\u00CD\u00CE\u00CF\u00D2\u00D3\u00D4\u00D6\u00D9\u00DA\u00DB\u00DC\u00D1";
    return kAllowed.find(c) != std::u32string_view::npos;
}

std::string swissBankingString(std::string_view text) {
    std::string result;
    forEachCodePoint(text, [&](char32_t c) {
        if (c == 0x2019) {
            c = '\'';
        } else if (c == kNoBreakSpace || isLineBreak(c)) {
            c = ' ';
        }
        if (isSwissBankingCharacter(c)) {
            append(result, c);
        }
    });
    return result;
}

SwissStreetAddress separateSwissStreetAddress(std::string_view address) {
    std::u32string line = decoded(address);
    size_t lineEnd = 0;
    while (lineEnd < line.size() && !isLineBreak(line[lineEnd])) {
        ++lineEnd;
    }
    line.resize(lineEnd);
    // From the end: an optional letter, a run of digits, then at least one white space
    // before them; the street is whatever stands before that.
    size_t end = line.size();
    if (end > 0 && isAsciiLetter(line[end - 1])) {
        --end;
    }
    size_t digitsStart = end;
    while (digitsStart > 0 && isAsciiDigit(line[digitsStart - 1])) {
        --digitsStart;
    }
    if (digitsStart == end || digitsStart == 0 || !isWhite(line[digitsStart - 1])) {
        return {};
    }
    std::u32string_view whole(line);
    return {trimmed(encoded(whole.substr(0, digitsStart))), trimmed(encoded(whole.substr(digitsStart)))};
}

std::string percentEscapedURL(std::string_view text) {
    static constexpr std::string_view kLegal = "-_.!~*'();/?:@&=+$,#";
    return percentEscaped(text,
                          [](char c) { return isAsciiAlphanumeric(c) || kLegal.find(c) != std::string_view::npos; });
}

std::string URLEncodeForOCR(std::string_view text) {
    static constexpr std::string_view kUnreserved = "-_.~";
    return percentEscaped(
        text, [](char c) { return isAsciiAlphanumeric(c) || kUnreserved.find(c) != std::string_view::npos; });
}

}  // namespace brassline
