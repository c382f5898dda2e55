#include "core/BLParser.h"

#include <array>
#include <cctype>
#include <memory>
#include <utility>

#include <unicode/dcfmtsym.h>
#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/translit.h>
#include <unicode/uchar.h>
#include <unicode/uloc.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include "core/Log.h"

namespace brassline {

namespace {

std::string lowercased(std::string_view text) {
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
    // Root rules: a Turkish user's "I" must still find "iran" and "italy".
    unicode.toLower(icu::Locale::getRoot());
    std::string out;
    unicode.toUTF8String(out);
    return out;
}

std::string asciiUppercased(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string displayCountry(const char* code, const icu::Locale& language) {
    icu::Locale region("", code);
    icu::UnicodeString name;
    region.getDisplayCountry(language, name);
    std::string out;
    name.toUTF8String(out);
    return out;
}

// Names that people write and ICU's three languages do not give: older official names,
// short forms and a few names in the countries' own languages.
constexpr std::array<std::pair<const char*, const char*>, 34> kExtraCountryNames = {{
    {"curacao", "CW"},
    {"republic of kosovo", "XK"},
    {"kosovo", "XK"},
    {"russian federation", "RU"},
    {"usa", "US"},
    {"u.s.a.", "US"},
    {"united states of america", "US"},
    {"uk", "GB"},
    {"u.k.", "GB"},
    {"great britain", "GB"},
    {"england", "GB"},
    {"scotland", "GB"},
    {"wales", "GB"},
    {"northern ireland", "GB"},
    {"holland", "NL"},
    {"the netherlands", "NL"},
    {"deutschland", "DE"},
    {"brd", "DE"},
    {"österreich", "AT"},
    {"schweiz", "CH"},
    {"svizzera", "CH"},
    {"italia", "IT"},
    {"españa", "ES"},
    {"czech republic", "CZ"},
    {"south korea", "KR"},
    {"republic of korea", "KR"},
    {"vatican", "VA"},
    {"ivory coast", "CI"},
    {"macedonia", "MK"},
    {"swaziland", "SZ"},
    {"burma", "MM"},
    {"turkey", "TR"},
    {"türkiye", "TR"},
    {"cape verde", "CV"},
}};

std::string localeOrDefault(std::string_view localeID) {
    return localeID.empty() ? std::string(uloc_getDefault()) : std::string(localeID);
}

}  // namespace

const BLParser& BLParser::sharedParser() {
    static const BLParser parser;
    return parser;
}

BLParser::BLParser(std::string localeID) : m_localeID(localeOrDefault(localeID)) {
    icu::Locale current(m_localeID.c_str());
    m_localeCountry = current.getCountry();
    const icu::Locale english("en_US");
    const icu::Locale french("fr_FR");
    std::vector<std::string> codes;
    for (const char* const* code = icu::Locale::getISOCountries(); *code != nullptr; ++code) {
        codes.emplace_back(*code);
    }
    codes.emplace_back("IC");
    m_countries.reserve(codes.size() * 4 + kExtraCountryNames.size());
    // Later keys overwrite earlier ones, so a code always finds itself even where some
    // language's name for another country happens to be spelt like it.
    for (const std::string& code : codes) {
        m_countries[lowercased(displayCountry(code.c_str(), current))] = code;
        m_countries[lowercased(displayCountry(code.c_str(), english))] = code;
        m_countries[lowercased(displayCountry(code.c_str(), french))] = code;
        m_countries[lowercased(code)] = code;
    }
    for (const auto& [name, code] : kExtraCountryNames) {
        m_countries[name] = code;
    }
}

std::string BLParser::parseCountryCode(const Value& value) const {
    const std::string text = value.isNull() ? std::string() : value.toString();
    return parseCountryCode(std::string_view(text));
}

std::string BLParser::parseCountryCode(std::string_view text) const {
    auto found = m_countries.find(lowercased(text));
    return asciiUppercased(found != m_countries.end() ? found->second : m_localeCountry);
}

// IBAN lengths per country.

namespace {

struct IbanCountry {
    char code[3];
    int length;
};

constexpr std::array<IbanCountry, 63> kIbanCountries = {{
    {"AD", 24}, {"AE", 23}, {"AT", 20}, {"AZ", 28}, {"BA", 20}, {"BE", 16}, {"BG", 22}, {"BH", 22}, {"BR", 29},
    {"CH", 21}, {"CR", 21}, {"CY", 28}, {"CZ", 24}, {"DE", 22}, {"DK", 18}, {"DO", 28}, {"EE", 20}, {"ES", 24},
    {"FI", 18}, {"FO", 18}, {"FR", 27}, {"GB", 22}, {"GI", 23}, {"GL", 18}, {"GR", 27}, {"GT", 28}, {"HR", 21},
    {"HU", 28}, {"IE", 22}, {"IL", 23}, {"IS", 26}, {"IT", 27}, {"JO", 30}, {"KW", 30}, {"KZ", 20}, {"LB", 28},
    {"LI", 21}, {"LT", 20}, {"LU", 20}, {"LV", 21}, {"MC", 27}, {"MD", 24}, {"ME", 22}, {"MK", 19}, {"MR", 27},
    {"MT", 31}, {"MU", 30}, {"NL", 18}, {"NO", 15}, {"PK", 24}, {"PL", 28}, {"PS", 29}, {"PT", 25}, {"QA", 29},
    {"RO", 24}, {"RS", 22}, {"SA", 24}, {"SE", 24}, {"SI", 19}, {"SK", 24}, {"SM", 27}, {"TN", 24}, {"TR", 26},
}};

// One decoded code point of the text with where it starts in the UTF-8 bytes.
struct CodePoint {
    UChar32 value;
    size_t offset;
};

// The character classes of the IBAN pattern "<code>\d{2}\w{n}" taken case-insensitively,
// with ICU's regular-expression definitions, so that digits and letters of every script
// count as they would for a regular expression.
bool isRegexWord(UChar32 c) {
    if (c == 0x200C || c == 0x200D) {
        return true;
    }
    const uint32_t mask = U_GET_GC_MASK(c);
    return (mask & (U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK)) != 0 || u_hasBinaryProperty(c, UCHAR_ALPHABETIC);
}

bool isAlphanumeric(UChar32 c) {
    return (U_GET_GC_MASK(c) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

// The ASCII letter index (0-25) a character case-folds to, -1 for anything else. The
// Kelvin sign and the long s fold to "k" and "s" and so match those codes, as a
// case-insensitive regular expression would have them.
int foldedLetter(UChar32 c) {
    const UChar32 folded = u_foldCase(c, U_FOLD_CASE_DEFAULT);
    return folded >= 'a' && folded <= 'z' ? static_cast<int>(folded - 'a') : -1;
}

}  // namespace

const std::string& ibanCharacterSet() {
    static const std::string characters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    return characters;
}

int ibanLengthForCountry(std::string_view countryCode) {
    for (const IbanCountry& country : kIbanCountries) {
        if (countryCode.size() == 2 && std::toupper(static_cast<unsigned char>(countryCode[0])) == country.code[0] &&
            std::toupper(static_cast<unsigned char>(countryCode[1])) == country.code[1]) {
            return country.length;
        }
    }
    return 0;
}

std::vector<std::string> extractIBANs(std::string_view text) {
    // One decoding pass and a per-position candidate list stand in for running 63
    // regular expressions over the text; the scan per country keeps the expressions'
    // semantics: leftmost match first, the next search starting behind it.
    std::vector<CodePoint> points;
    points.reserve(text.size());
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    const auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
        const size_t offset = static_cast<size_t>(i);
        UChar32 c = 0;
        U8_NEXT(bytes, i, length, c);
        points.push_back({c < 0 ? 0xFFFD : c, offset});
    }
    const size_t count = points.size();
    if (count < 4) {
        return {};
    }
    // nonWordBefore[i]: characters before i that are not word characters, for an O(1)
    // test of a run; utf16Before likewise for the length test of kept characters.
    std::vector<uint32_t> nonWordBefore(count + 1, 0);
    std::vector<uint32_t> alnumUnitsBefore(count + 1, 0);
    for (size_t i = 0; i < count; ++i) {
        const UChar32 c = points[i].value;
        nonWordBefore[i + 1] = nonWordBefore[i] + (isRegexWord(c) ? 0 : 1);
        alnumUnitsBefore[i + 1] = alnumUnitsBefore[i] + (isAlphanumeric(c) ? U16_LENGTH(c) : 0);
    }
    std::array<std::vector<uint32_t>, 26 * 26> candidates;
    for (size_t i = 0; i + 3 < count; ++i) {
        const int first = foldedLetter(points[i].value);
        if (first < 0) {
            continue;
        }
        const int second = foldedLetter(points[i + 1].value);
        if (second < 0 || !u_isdigit(points[i + 2].value) || !u_isdigit(points[i + 3].value)) {
            continue;
        }
        candidates[static_cast<size_t>(first * 26 + second)].push_back(static_cast<uint32_t>(i));
    }

    std::vector<std::string> found;
    for (const IbanCountry& country : kIbanCountries) {
        const std::vector<uint32_t>& starts =
            candidates[static_cast<size_t>((country.code[0] - 'A') * 26 + (country.code[1] - 'A'))];
        const size_t total = static_cast<size_t>(country.length);
        size_t searchFrom = 0;
        for (uint32_t start : starts) {
            const size_t end = start + total;
            if (start < searchFrom || end > count) {
                continue;
            }
            if (nonWordBefore[end] - nonWordBefore[start + 4] != 0) {
                continue;
            }
            searchFrom = end;
            // A word character that is no letter, mark or number (an underscore, a joiner)
            // shortens the account number and so rules the run out.
            if (alnumUnitsBefore[end] - alnumUnitsBefore[start] != total) {
                continue;
            }
            const size_t from = points[start].offset;
            const size_t to = end < count ? points[end].offset : text.size();
            found.emplace_back(text.substr(from, to - from));
        }
    }
    return found;
}

bool hasValidIBANChecksum(std::string_view iban) {
    std::string compact;
    for (char c : iban) {
        if (c == ' ') {
            continue;
        }
        if (!std::isalnum(static_cast<unsigned char>(c))) {
            return false;
        }
        compact.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    }
    const int expected = compact.size() >= 2 ? ibanLengthForCountry(compact.substr(0, 2)) : 0;
    if (expected == 0 || compact.size() != static_cast<size_t>(expected)) {
        return false;
    }
    // ISO 7064 mod 97-10 over the account part followed by country code and check
    // digits, letters as 10 to 35, reduced digit by digit so no big integer is needed.
    std::string rearranged = compact.substr(4) + compact.substr(0, 4);
    unsigned remainder = 0;
    for (char c : rearranged) {
        if (std::isdigit(static_cast<unsigned char>(c))) {
            remainder = (remainder * 10 + static_cast<unsigned>(c - '0')) % 97;
        } else {
            const unsigned value = static_cast<unsigned>(c - 'A') + 10;
            remainder = (remainder * 100 + value) % 97;
        }
    }
    return remainder == 1;
}

bool isValidBIC(std::string_view bic) {
    std::string compact;
    for (char c : bic) {
        if (c != ' ') {
            compact.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
        }
    }
    if (compact.size() != 8 && compact.size() != 11) {
        return false;
    }
    for (size_t i = 0; i < compact.size(); ++i) {
        const auto c = static_cast<unsigned char>(compact[i]);
        if (i < 6 ? !std::isalpha(c) : !std::isalnum(c)) {
            return false;
        }
    }
    return true;
}

std::vector<std::string> extractNumbers(std::string_view text, std::string_view localeID) {
    UErrorCode status = U_ZERO_ERROR;
    const std::string locale = localeOrDefault(localeID);
    icu::DecimalFormatSymbols symbols(icu::Locale(locale.c_str()), status);
    if (U_FAILURE(status)) {
        logMessage("Regex error: %@", u_errorName(status));
        return {};
    }
    // Quoted rather than backslash-escaped: a separator may be more than one character.
    const icu::UnicodeString pattern =
        icu::UnicodeString(u"-?\\d{1,3}(?:\\Q") +
        symbols.getSymbol(icu::DecimalFormatSymbols::kGroupingSeparatorSymbol) + u"\\E\\d{3})*(?:\\Q" +
        symbols.getSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol) + u"\\E\\d+)?";
    std::unique_ptr<icu::RegexPattern> compiled(icu::RegexPattern::compile(pattern, 0, status));
    if (U_FAILURE(status) || compiled == nullptr) {
        logMessage("Regex error: %@", u_errorName(status));
        return {};
    }
    const icu::UnicodeString input = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
    std::unique_ptr<icu::RegexMatcher> matcher(compiled->matcher(input, status));
    if (U_FAILURE(status) || matcher == nullptr) {
        logMessage("Regex error: %@", u_errorName(status));
        return {};
    }
    std::vector<std::string> numbers;
    while (matcher->find(status) && U_SUCCESS(status)) {
        std::string number;
        matcher->group(status).toUTF8String(number);
        numbers.push_back(std::move(number));
    }
    if (U_FAILURE(status)) {
        logMessage("Regex error: %@", u_errorName(status));
    }
    return numbers;
}

namespace {

// Building a transliterator parses its rules, which costs far more than one use, so each
// thread keeps its own (an instance is not safe to share).
std::string transliterated(std::string_view text, const char* id) {
    thread_local std::unordered_map<std::string, std::unique_ptr<icu::Transliterator>> cache;
    std::unique_ptr<icu::Transliterator>& transliterator = cache[id];
    if (transliterator == nullptr) {
        UErrorCode status = U_ZERO_ERROR;
        transliterator.reset(icu::Transliterator::createInstance(id, UTRANS_FORWARD, status));
        if (U_FAILURE(status) || transliterator == nullptr) {
            logMessage("Transliterator %@ unavailable: %@", id, u_errorName(status));
            transliterator.reset();
            return std::string(text);
        }
    }
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
    transliterator->transliterate(unicode);
    std::string out;
    unicode.toUTF8String(out);
    return out;
}

std::string replaced(std::string_view text, std::string_view from, std::string_view to) {
    std::string out;
    out.reserve(text.size() + text.size() / 8);
    size_t position = 0;
    while (true) {
        const size_t next = text.find(from, position);
        if (next == std::string_view::npos) {
            out.append(text.substr(position));
            return out;
        }
        out.append(text.substr(position, next - position));
        out.append(to);
        position = next + from.size();
    }
}

}  // namespace

std::string removeDiacritics(std::string_view text) {
    return transliterated(text, "NFD; [:Nonspacing Mark:] Remove; NFC");
}

std::string asciiLowercase(std::string_view text) {
    return transliterated(text, "Any-Latin; Latin-ASCII; Lower");
}

std::string uppercaseText(std::string_view text) {
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
    unicode.toUpper(icu::Locale::getRoot());
    std::string out;
    unicode.toUTF8String(out);
    return out;
}

std::string stringByReplacingSpacesWithNbsp(std::string_view text) {
    return replaced(text, " ", "\u00A0");
}

std::string stringByReplacingNbspWithSpaces(std::string_view text) {
    return replaced(text, "\u00A0", " ");
}

}  // namespace brassline
