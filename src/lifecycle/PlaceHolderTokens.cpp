#include "lifecycle/PlaceHolderTokens.h"

#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <unordered_set>

#include <unicode/brkiter.h>
#include <unicode/dtfmtsym.h>
#include <unicode/locid.h>
#include <unicode/regex.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include "core/BLParser.h"
#include "core/Log.h"

namespace brassline {

namespace {

// Detection is for texts a person types into a line or a lead; anything larger is not
// worth the regular expressions' time.
constexpr size_t kMaximumAnalysedBytes = 1 << 20;
// ICU's match time limit in its own steps (roughly milliseconds): a pathological text
// costs a missed token, never a hang.
constexpr int32_t kRegexTimeLimit = 200;

// The text in UTF-16 for ICU, with the UTF-8 byte offset of every UTF-16 index. The text
// is decoded here rather than by ICU so that each ill-formed sequence becomes exactly one
// U+FFFD whose offsets are known: ICU's own conversion would not tell us where it went.
class IndexedText {
public:
    explicit IndexedText(std::string_view utf8) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(utf8.data());
        const auto length = static_cast<int32_t>(utf8.size());
        int32_t index = 0;
        m_offsets.reserve(utf8.size() + 1);
        while (index < length) {
            const int32_t start = index;
            UChar32 c = 0;
            U8_NEXT(bytes, index, length, c);
            if (c < 0) {
                c = 0xFFFD;
            }
            m_text.append(c);
            while (m_offsets.size() < static_cast<size_t>(m_text.length())) {
                m_offsets.push_back(static_cast<size_t>(start));
            }
        }
        m_offsets.push_back(utf8.size());
    }

    const icu::UnicodeString& text() const { return m_text; }
    TextRange range(int32_t start, int32_t end) const {
        const size_t from = m_offsets[static_cast<size_t>(start)];
        return {from, m_offsets[static_cast<size_t>(end)] - from};
    }

private:
    icu::UnicodeString m_text;
    std::vector<size_t> m_offsets;
};

std::unique_ptr<icu::RegexPattern> compilePattern(const icu::UnicodeString& source, uint32_t flags = 0) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    std::unique_ptr<icu::RegexPattern> pattern(icu::RegexPattern::compile(source, flags, parseError, status));
    if (U_FAILURE(status)) {
        std::string text;
        source.toUTF8String(text);
        logMessage("Token pattern %@ does not compile: %@", text, u_errorName(status));
        return nullptr;
    }
    return pattern;
}

std::unique_ptr<icu::RegexPattern> compilePattern(const char* source, uint32_t flags = 0) {
    return compilePattern(icu::UnicodeString::fromUTF8(source), flags);
}

// Calls `each(matcher)` for every match; stops quietly at ICU's time limit.
template <typename Each>
void forEachMatch(const icu::RegexPattern* pattern, const IndexedText& text, Each each) {
    if (pattern == nullptr) {
        return;
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text.text(), status));
    if (U_FAILURE(status)) {
        return;
    }
    matcher->setTimeLimit(kRegexTimeLimit, status);
    while (matcher->find(status) && U_SUCCESS(status)) {
        each(*matcher);
    }
}

bool tooLarge(std::string_view text) {
    if (text.size() > kMaximumAnalysedBytes) {
        logMessage("Token detection skips a text of %ld bytes", static_cast<long>(text.size()));
        return true;
    }
    return false;
}

// A token for the match's capture group `group` (0: the whole match); an empty or
// unmatched group gives nothing.
void addGroup(std::vector<PlaceHolderToken>& tokens, std::string_view utf8, const IndexedText& text,
              icu::RegexMatcher& matcher, int32_t group, const char* type) {
    UErrorCode status = U_ZERO_ERROR;
    const int32_t start = matcher.start(group, status);
    const int32_t end = matcher.end(group, status);
    if (U_FAILURE(status) || start < 0 || end <= start) {
        return;
    }
    const TextRange range = text.range(start, end);
    tokens.push_back({std::string(utf8.substr(range.location, range.length)), type, range});
}

// The first capture group that took part in the match, or -1.
int32_t firstMatchedGroup(icu::RegexMatcher& matcher) {
    UErrorCode status = U_ZERO_ERROR;
    for (int32_t group = 1; group <= matcher.groupCount(); ++group) {
        if (matcher.start(group, status) >= 0 && U_SUCCESS(status)) {
            return group;
        }
    }
    return -1;
}

int32_t groupNumber(icu::RegexMatcher& matcher, int32_t group) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString digits = matcher.group(group, status);
    if (U_FAILURE(status) || digits.isEmpty()) {
        return -1;
    }
    int32_t number = 0;
    for (int32_t i = 0; i < digits.length() && i < 6; ++i) {
        number = number * 10 + (digits.charAt(i) - u'0');
    }
    return number;
}

bool isLeapYear(int32_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

bool isValidDay(int32_t year, int32_t month, int32_t day) {
    static constexpr std::array<int32_t, 12> kDays = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12 || day < 1 || day > kDays[static_cast<size_t>(month - 1)]) {
        return false;
    }
    return !(month == 2 && day == 29 && year >= 0 && !isLeapYear(year));
}

// Organisations end in a legal form; the capitalised words before it are the name, less
// the article or preposition a sentence puts in front ("bei der Müller GmbH").
const icu::RegexPattern* organizationPattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        "(?<![\\p{L}\\p{N}])((?:[\\p{Lu}\\p{N}][\\p{L}\\p{N}&'’.\\-]*\\s+){1,4}"
        "(?:GmbH(?:\\s*&\\s*Co\\.\\s*KG)?|gGmbH|AG|KGaA|KG|OHG|GbR|UG(?:\\s*\\(haftungsbeschränkt\\))?|"
        "e\\.\\s?K\\.|e\\.\\s?V\\.|SE|Ltd\\.?|Limited|Inc\\.?|LLC|LLP|Corp\\.?|PLC|plc|S\\.A\\.|SA|SARL|SAS|"
        "S\\.r\\.l\\.|S\\.p\\.A\\.|B\\.V\\.|N\\.V\\.|AB|ApS|Oy))(?![\\p{L}\\p{N}])");
    return pattern.get();
}

// A personal name follows a salutation or an academic title: in German every noun is
// capitalised, so capitals alone say nothing. The salutation itself stays outside.
const icu::RegexPattern* personalNamePattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        "(?<![\\p{L}\\p{N}])(?:Herrn?|Frau|Fr\\.|Hr\\.|Mr\\.?|Mrs\\.?|Ms\\.?|Miss|Monsieur|Madame|Mme\\.?|M\\.|"
        "Signora?|Señora?|Sr\\.|Sra\\.)\\s+"
        "((?:(?:Dr|Prof|Dipl\\.-Ing|Ing|Mag)\\.\\s*)*\\p{Lu}[\\p{Ll}'’\\-]+"
        "(?:\\s+(?:von|van|de|der|den|du|di|da|zu)\\s+\\p{Lu}[\\p{Ll}'’\\-]+|\\s+\\p{Lu}[\\p{Ll}'’\\-]+)?)"
        "(?![\\p{L}\\p{N}])");
    return pattern.get();
}

const std::set<icu::UnicodeString>& leadingStopWords() {
    static const std::set<icu::UnicodeString> words = [] {
        std::set<icu::UnicodeString> set;
        for (const char* word : {"der",  "die", "das", "den", "dem", "des", "ein",  "eine", "einer", "bei", "von",
                                 "für",  "mit", "an",  "auf", "the", "a",   "an",   "at",   "by",    "for", "from",
                                 "with", "to",  "of",  "le",  "la",  "les", "chez", "il",   "el"}) {
            set.insert(icu::UnicodeString::fromUTF8(word));
        }
        return set;
    }();
    return words;
}

void addOrganization(std::vector<PlaceHolderToken>& tokens, std::string_view utf8, const IndexedText& text,
                     icu::RegexMatcher& matcher) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t start = matcher.start(1, status);
    const int32_t end = matcher.end(1, status);
    if (U_FAILURE(status)) {
        return;
    }
    const icu::UnicodeString& string = text.text();
    // Drops leading stop words, always keeping one word before the legal form.
    while (true) {
        int32_t wordEnd = start;
        while (wordEnd < end && !u_isspace(string.char32At(wordEnd))) {
            ++wordEnd;
        }
        int32_t next = wordEnd;
        while (next < end && u_isspace(string.char32At(next))) {
            ++next;
        }
        icu::UnicodeString word(string, start, wordEnd - start);
        word.toLower(icu::Locale::getRoot());
        // `next` must still leave a name and the legal form.
        int32_t probe = next;
        while (probe < end && !u_isspace(string.char32At(probe))) {
            ++probe;
        }
        if (leadingStopWords().count(word) == 0 || probe >= end) {
            break;
        }
        start = next;
    }
    const TextRange range = text.range(start, end);
    tokens.push_back({std::string(utf8.substr(range.location, range.length)), kTokenTypeOrganization, range});
}

std::vector<PlaceHolderToken> sortedByStart(std::vector<PlaceHolderToken> tokens) {
    std::stable_sort(tokens.begin(), tokens.end(), [](const PlaceHolderToken& a, const PlaceHolderToken& b) {
        return a.range.location < b.range.location;
    });
    return tokens;
}

const icu::RegexPattern* linkPattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        "((?:https?://|www\\.)[^\\s<>\"“”„«»]+)|"
        "([\\p{L}\\p{N}._%+\\-]+@[\\p{L}\\p{N}\\-]+(?:\\.[\\p{L}\\p{N}\\-]+)*\\.\\p{L}{2,})",
        UREGEX_CASE_INSENSITIVE);
    return pattern.get();
}

// Numeric dates: day.month.year, day/month/year or month/day/year (either must be a real
// day), and ISO 8601.
const icu::RegexPattern* numericDatePattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        "(?<![\\p{L}\\p{N}.,/\\-])(?:(\\d{1,2})([./])(\\d{1,2})\\2(\\d{4}|\\d{2})|(\\d{4})-(\\d{2})-(\\d{2}))"
        "(?![\\p{L}\\p{N}]|[.,/\\-]\\d)");
    return pattern.get();
}

// International or trunk-prefixed numbers with at least seven digits.
const icu::RegexPattern* phonePattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern =
        compilePattern("(?<![\\p{L}\\p{N}+])(?:\\+|0)\\d[\\d ()/\\-]{5,18}\\d(?![\\p{L}\\p{N}])");
    return pattern.get();
}

// Numbers with grouping and decimal marks, an optional sign, percent or currency.
const icu::RegexPattern* numberPattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        "(?<![\\p{L}\\p{N}.,])(?:\\p{Sc}\\s?)?[-+−]?\\d+(?:[.,'’]\\d+)*(?:\\s?(?:%|\\p{Sc}|EUR|CHF|USD|GBP))?"
        "(?![\\p{L}\\p{N}])");
    return pattern.get();
}

const icu::RegexPattern* quotePattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        "„([^“”\\n]{1,80}?)[“”]|“([^”“\\n]{1,80}?)”|\"([^\"\\n]{1,80}?)\"|«\\s?([^»\\n]{1,80}?)\\s?»|"
        "»([^«\\n]{1,80}?)«|‚([^‘’\\n]{1,80}?)[‘’]|‘([^’‘\\n]{1,80}?)’");
    return pattern.get();
}

// Month names (wide and abbreviated, format and stand-alone) of the languages whose
// letters the program is written in, longest first so that "Juni" beats "Jun".
icu::UnicodeString monthAlternation() {
    std::set<icu::UnicodeString> names;
    for (const char* localeID : {"en", "de", "fr", "it", "es", "nl"}) {
        UErrorCode status = U_ZERO_ERROR;
        icu::DateFormatSymbols symbols(icu::Locale(localeID), status);
        if (U_FAILURE(status)) {
            continue;
        }
        for (auto context : {icu::DateFormatSymbols::FORMAT, icu::DateFormatSymbols::STANDALONE}) {
            for (auto width : {icu::DateFormatSymbols::WIDE, icu::DateFormatSymbols::ABBREVIATED}) {
                int32_t count = 0;
                const icu::UnicodeString* months = symbols.getMonths(count, context, width);
                for (int32_t i = 0; i < count; ++i) {
                    icu::UnicodeString name = months[i];
                    name.findAndReplace(".", "");
                    if (name.length() >= 3) {
                        names.insert(name.toLower(icu::Locale::getRoot()));
                    }
                }
            }
        }
    }
    std::vector<icu::UnicodeString> ordered(names.begin(), names.end());
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const icu::UnicodeString& a, const icu::UnicodeString& b) { return a.length() > b.length(); });
    icu::UnicodeString alternation;
    for (const icu::UnicodeString& name : ordered) {
        if (!alternation.isEmpty()) {
            alternation += u'|';
        }
        // Month names are letters only; \Q...\E keeps any odd character literal.
        alternation += u"\\Q";
        alternation += name;
        alternation += u"\\E";
    }
    return alternation;
}

// "12. März 2024", "12 March 2024", "March 12, 2024", "1er janvier 2025", "März 2024",
// "12. März": a month name with a day, a year or both.
const icu::RegexPattern* customDatePattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = [] {
        icu::UnicodeString source =
            icu::UnicodeString::fromUTF8("(?<![\\p{L}\\p{N}])(?:(\\d{1,2})(?:\\.|er|st|nd|rd|th)?\\s*(?:de\\s+)?)?(?:");
        source += monthAlternation();
        source += icu::UnicodeString::fromUTF8(
            ")\\.?(?:\\s+(\\d{1,2})(?:st|nd|rd|th)?(?![\\p{L}\\p{N}]),?)?(?:\\s+(?:de\\s+)?(\\d{4}))?"
            "(?![\\p{L}\\p{N}])");
        return compilePattern(source, UREGEX_CASE_INSENSITIVE);
    }();
    return pattern.get();
}

// A city after a postal code ("10115 Berlin", "D-80331 München", "60311 Frankfurt am
// Main"); the code itself is part of the address, not of the place.
const icu::RegexPattern* postalCityPattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        "(?<![\\p{L}\\p{N}])(?:[A-Z]{1,2}-)?\\d{4,5}\\s+(\\p{Lu}[\\p{L}\\-]+"
        "(?:\\s(?:am|an\\sder|im|in|ob\\sder|bei|sur|upon|on)\\s\\p{Lu}[\\p{L}\\-]+)?)(?![\\p{L}\\p{N}])");
    return pattern.get();
}

// Country names of the current locale, English, French, German and Italian.
const std::vector<const BLParser*>& countryParsers() {
    static const std::vector<std::unique_ptr<BLParser>> owned = [] {
        std::vector<std::unique_ptr<BLParser>> parsers;
        parsers.push_back(std::make_unique<BLParser>("de_DE"));
        parsers.push_back(std::make_unique<BLParser>("it_IT"));
        return parsers;
    }();
    static const std::vector<const BLParser*> parsers = [] {
        std::vector<const BLParser*> list = {&BLParser::sharedParser()};
        for (const auto& parser : owned) {
            list.push_back(parser.get());
        }
        return list;
    }();
    return parsers;
}

bool isCountryName(const std::string& lowercased) {
    // Two-letter keys are the codes themselves: "in", "de" and "at" are words too.
    if (lowercased.size() <= 2) {
        return false;
    }
    for (const BLParser* parser : countryParsers()) {
        if (parser->countriesDict().count(lowercased) != 0) {
            return true;
        }
    }
    return false;
}

struct WordSpan {
    int32_t start;
    int32_t end;
};

std::vector<WordSpan> wordSpans(const icu::UnicodeString& text) {
    std::vector<WordSpan> spans;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> words(icu::BreakIterator::createWordInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) {
        return spans;
    }
    words->setText(text);
    int32_t start = words->first();
    for (int32_t end = words->next(); end != icu::BreakIterator::DONE; start = end, end = words->next()) {
        if (words->getRuleStatus() != UBRK_WORD_NONE) {
            spans.push_back({start, end});
        }
    }
    return spans;
}

void addCountries(std::vector<PlaceHolderToken>& tokens, std::string_view utf8, const IndexedText& text) {
    constexpr size_t kLongestCountryWords = 4;
    const std::vector<WordSpan> spans = wordSpans(text.text());
    for (size_t first = 0; first < spans.size(); ++first) {
        if (!u_isupper(text.text().char32At(spans[first].start))) {
            continue;
        }
        // The longest run of words that names a country.
        for (size_t last = std::min(spans.size(), first + kLongestCountryWords); last-- > first;) {
            const int32_t start = spans[first].start;
            const int32_t end = spans[last].end;
            icu::UnicodeString candidate(text.text(), start, end - start);
            if (candidate.indexOf(u'\n') >= 0) {
                continue;
            }
            std::string lowercased;
            candidate.toLower(icu::Locale::getRoot()).toUTF8String(lowercased);
            if (isCountryName(lowercased)) {
                const TextRange range = text.range(start, end);
                tokens.push_back({std::string(utf8.substr(range.location, range.length)), kTokenTypePlace, range});
                first = last;
                break;
            }
        }
    }
}

// A street with its number, then optionally the postal code and city, on the same line
// after a comma or on the next line. German compounds ("Hauptstraße 5") and separate
// street words after one capitalised word ("Berliner Straße 12", "Am Markt 3"), English
// ("221b Baker Street") and French ("12, rue de la Paix") forms. A compound must start
// with a capital, so that "during 2025" is no street.
const icu::RegexPattern* addressPattern() {
    static const std::string streetWords =
        "(?i:straße|strasse|str\\.|weg|gasse|platz|allee|ring|damm|ufer|chaussee|steig|pfad|markt|gässli|bühl)";
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern(
        ("(?<![\\p{L}\\p{N}])(?:"
         "(?:\\p{Lu}[\\p{L}\\-]*\\s" +
         streetWords + "|\\p{Lu}\\p{L}*" + streetWords +
         ")"
         "\\s?\\d{1,4}\\s?[a-zA-Z]?(?![\\p{L}\\p{N}])"
         "|\\d{1,5}[a-zA-Z]?\\s+(?:\\p{Lu}[\\p{L}\\-]*\\s+){1,3}(?:Street|St\\.|Road|Rd\\.|Avenue|Ave\\.|Lane|Ln\\.|"
         "Drive|Boulevard|Blvd\\.|Way|Court|Ct\\.|Place|Square|Terrace|Close|Crescent|Gardens|Hill|Row)"
         "|\\d{1,4}(?:\\s?bis)?,?\\s(?i:rue|avenue|boulevard|place|chemin|quai|allée|impasse|route)\\s"
         "(?:(?:de|du|des|la|le|l’|l'|d’|d')\\s?){0,2}\\p{Lu}[\\p{L}\\-]+"
         ")"
         "(?:(?:,\\s*|\\s*\\n\\s*)(?:"
         "(?:[A-Z]{1,2}-)?\\d{4,5}\\s+\\p{Lu}[\\p{L}\\-]+(?:\\s(?:am|an\\sder|im|ob\\sder|bei|sur)\\s\\p{Lu}[\\p{L}\\-]"
         "+)?"
         "|[A-Z]{1,2}\\d[A-Z\\d]?\\s?\\d[A-Z]{2}(?:\\s+\\p{Lu}[\\p{L}\\-]+)?"
         "|\\p{Lu}[\\p{L}\\-]+(?:\\s\\p{Lu}[\\p{L}\\-]+)?,\\s[A-Z]{2}\\s\\d{5}(?:-\\d{4})?"
         "|\\p{Lu}[\\p{L}\\-]+\\s+[A-Z]{1,2}\\d[A-Z\\d]?\\s?\\d[A-Z]{2}"
         "))?")
            .c_str());
    return pattern.get();
}

const icu::RegexPattern* bracketPattern() {
    static const std::unique_ptr<icu::RegexPattern> pattern = compilePattern("\\[(.*?)\\]");
    return pattern.get();
}

}  // namespace

Value::Dictionary PlaceHolderToken::record() const {
    Value::Dictionary rangeRecord;
    rangeRecord["location"] = Value(static_cast<int64_t>(range.location));
    rangeRecord["length"] = Value(static_cast<int64_t>(range.length));
    Value::Dictionary result;
    result["value"] = Value(value);
    result["type"] = Value(type);
    result["range"] = Value(std::move(rangeRecord));
    return result;
}

std::vector<PlaceHolderToken> findNamesAndOrganizationsInString(std::string_view utf8) {
    std::vector<PlaceHolderToken> tokens;
    if (tooLarge(utf8)) {
        return tokens;
    }
    const IndexedText text(utf8);
    forEachMatch(organizationPattern(), text,
                 [&](icu::RegexMatcher& matcher) { addOrganization(tokens, utf8, text, matcher); });
    forEachMatch(personalNamePattern(), text,
                 [&](icu::RegexMatcher& matcher) { addGroup(tokens, utf8, text, matcher, 1, kTokenTypePersonalName); });
    return sortedByStart(std::move(tokens));
}

std::vector<PlaceHolderToken> findNumbersURLsAndDatesInString(std::string_view utf8) {
    std::vector<PlaceHolderToken> tokens;
    if (tooLarge(utf8)) {
        return tokens;
    }
    const IndexedText text(utf8);
    forEachMatch(linkPattern(), text, [&](icu::RegexMatcher& matcher) {
        const size_t before = tokens.size();
        addGroup(tokens, utf8, text, matcher, firstMatchedGroup(matcher), kTokenTypeLink);
        // A sentence's full stop or closing bracket is not part of the link.
        if (tokens.size() > before) {
            PlaceHolderToken& token = tokens.back();
            while (!token.value.empty() && std::string_view(".,;:!?)'").find(token.value.back()) != std::string::npos) {
                token.value.pop_back();
                --token.range.length;
            }
            if (token.value.empty()) {
                tokens.pop_back();
            }
        }
    });
    forEachMatch(numericDatePattern(), text, [&](icu::RegexMatcher& matcher) {
        bool valid = false;
        if (groupNumber(matcher, 5) >= 0) {
            valid = isValidDay(groupNumber(matcher, 5), groupNumber(matcher, 6), groupNumber(matcher, 7));
        } else {
            const int32_t first = groupNumber(matcher, 1);
            const int32_t second = groupNumber(matcher, 3);
            const int32_t year = groupNumber(matcher, 4);
            valid = isValidDay(year, second, first) || isValidDay(year, first, second);
        }
        if (valid) {
            addGroup(tokens, utf8, text, matcher, 0, kTokenTypeDate);
        }
    });
    forEachMatch(phonePattern(), text, [&](icu::RegexMatcher& matcher) {
        UErrorCode status = U_ZERO_ERROR;
        const icu::UnicodeString number = matcher.group(status);
        int32_t digits = 0;
        for (int32_t i = 0; i < number.length(); ++i) {
            digits += u_isdigit(number.charAt(i)) ? 1 : 0;
        }
        if (digits >= 7) {
            addGroup(tokens, utf8, text, matcher, 0, kTokenTypePhoneNumber);
        }
    });
    forEachMatch(numberPattern(), text,
                 [&](icu::RegexMatcher& matcher) { addGroup(tokens, utf8, text, matcher, 0, kTokenTypeNumber); });
    return sortedByStart(std::move(tokens));
}

std::vector<PlaceHolderToken> findQuotedTermsInString(std::string_view utf8) {
    std::vector<PlaceHolderToken> tokens;
    if (tooLarge(utf8)) {
        return tokens;
    }
    const IndexedText text(utf8);
    forEachMatch(quotePattern(), text, [&](icu::RegexMatcher& matcher) {
        const int32_t group = firstMatchedGroup(matcher);
        if (group < 0) {
            return;
        }
        UErrorCode status = U_ZERO_ERROR;
        int32_t start = matcher.start(group, status);
        int32_t end = matcher.end(group, status);
        while (start < end && u_isspace(text.text().charAt(start))) {
            ++start;
        }
        while (end > start && u_isspace(text.text().charAt(end - 1))) {
            --end;
        }
        if (U_FAILURE(status) || end <= start) {
            return;
        }
        const TextRange range = text.range(start, end);
        tokens.push_back({std::string(utf8.substr(range.location, range.length)), kTokenTypeQuote, range});
    });
    return tokens;
}

std::vector<PlaceHolderToken> findCustomDatesInString(std::string_view utf8) {
    std::vector<PlaceHolderToken> tokens;
    if (tooLarge(utf8)) {
        return tokens;
    }
    const IndexedText text(utf8);
    forEachMatch(customDatePattern(), text, [&](icu::RegexMatcher& matcher) {
        const int32_t leadingDay = groupNumber(matcher, 1);
        const int32_t trailingDay = groupNumber(matcher, 2);
        const int32_t year = groupNumber(matcher, 3);
        if (leadingDay < 0 && trailingDay < 0 && year < 0) {
            return;
        }
        for (int32_t day : {leadingDay, trailingDay}) {
            if (day == 0 || day > 31) {
                return;
            }
        }
        addGroup(tokens, utf8, text, matcher, 0, kTokenTypeDate);
    });
    return tokens;
}

std::vector<PlaceHolderToken> findPlacesInString(std::string_view utf8) {
    std::vector<PlaceHolderToken> tokens;
    if (tooLarge(utf8)) {
        return tokens;
    }
    const IndexedText text(utf8);
    forEachMatch(postalCityPattern(), text,
                 [&](icu::RegexMatcher& matcher) { addGroup(tokens, utf8, text, matcher, 1, kTokenTypePlace); });
    addCountries(tokens, utf8, text);
    return sortedByStart(std::move(tokens));
}

std::vector<PlaceHolderToken> findAddressesInString(std::string_view utf8) {
    std::vector<PlaceHolderToken> tokens;
    if (tooLarge(utf8)) {
        return tokens;
    }
    const IndexedText text(utf8);
    forEachMatch(addressPattern(), text,
                 [&](icu::RegexMatcher& matcher) { addGroup(tokens, utf8, text, matcher, 0, kTokenTypeAddress); });
    return tokens;
}

std::vector<PlaceHolderToken> settleOverlaps(std::vector<PlaceHolderToken> tokens) {
    tokens = sortedByStart(std::move(tokens));
    std::vector<PlaceHolderToken> kept;
    kept.reserve(tokens.size());
    // Kept tokens never intersect and start in order, so a newcomer can only meet the last.
    for (PlaceHolderToken& token : tokens) {
        if (!kept.empty() && kept.back().range.intersects(token.range)) {
            if (token.range.length > kept.back().range.length) {
                kept.back() = std::move(token);
            }
            continue;
        }
        kept.push_back(std::move(token));
    }
    return kept;
}

std::vector<PlaceHolderToken> analyzeString(std::string_view text) {
    std::vector<PlaceHolderToken> tokens;
    for (auto finder : {findNamesAndOrganizationsInString, findNumbersURLsAndDatesInString, findQuotedTermsInString,
                        findCustomDatesInString, findPlacesInString, findAddressesInString}) {
        std::vector<PlaceHolderToken> found = finder(text);
        tokens.insert(tokens.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
    }
    return settleOverlaps(std::move(tokens));
}

std::vector<TextRange> placeHolderRanges(std::string_view utf8) {
    std::vector<TextRange> ranges;
    if (tooLarge(utf8)) {
        return ranges;
    }
    const IndexedText text(utf8);
    forEachMatch(bracketPattern(), text, [&](icu::RegexMatcher& matcher) {
        UErrorCode status = U_ZERO_ERROR;
        const int32_t start = matcher.start(status);
        const int32_t end = matcher.end(status);
        if (U_SUCCESS(status)) {
            ranges.push_back(text.range(start, end));
        }
    });
    return ranges;
}

std::vector<TextRange> wordRanges(std::string_view utf8) {
    std::vector<TextRange> ranges;
    if (tooLarge(utf8)) {
        return ranges;
    }
    const IndexedText text(utf8);
    for (const WordSpan& span : wordSpans(text.text())) {
        ranges.push_back(text.range(span.start, span.end));
    }
    return ranges;
}

}  // namespace brassline
