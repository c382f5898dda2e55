#include "core/ValueTransformers.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <vector>

#include <unicode/calendar.h>
#include <unicode/datefmt.h>
#include <unicode/decimfmt.h>
#include <unicode/locid.h>
#include <unicode/numberformatter.h>
#include <unicode/numfmt.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include "core/DecimalFormula.h"
#include "core/Log.h"

namespace brassline {

namespace {

std::mutex& localeMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& explicitLocale() {
    static std::string locale;
    return locale;
}

// ICU derives its default from LC_ALL, LC_MESSAGES and LANG; "C" gives en_US_POSIX, whose
// number forms lack grouping, so the plain US locale stands in for it.
std::string localeFromEnvironment() {
    std::string name = icu::Locale::getDefault().getName();
    if (name.empty() || name == "en_US_POSIX" || name == "c" || name == "C") {
        return "en_US";
    }
    return name;
}

std::string resolvedLocale(const std::string& locale) {
    return locale.empty() ? currentFormattingLocale() : locale;
}

std::string toUTF8(const icu::UnicodeString& text) {
    std::string result;
    text.toUTF8String(result);
    return result;
}

// Spaces of every width that locales use for grouping, trimmed or dropped alike.
bool isSpaceAt(std::string_view text, size_t index, size_t* length) {
    static constexpr std::string_view kSpaces[] = {" ", "\t", "\u00a0", "\u202f", "\u2009"};
    for (std::string_view space : kSpaces) {
        if (text.substr(index, space.size()) == space) {
            *length = space.size();
            return true;
        }
    }
    return false;
}

std::string trimmed(std::string_view text) {
    size_t length = 0;
    while (!text.empty() && isSpaceAt(text, 0, &length)) {
        text.remove_prefix(length);
    }
    bool changed = true;
    while (changed && !text.empty()) {
        changed = false;
        for (size_t cut = 1; cut <= 3 && cut <= text.size(); ++cut) {
            if (isSpaceAt(text, text.size() - cut, &length) && length == cut) {
                text.remove_suffix(cut);
                changed = true;
                break;
            }
        }
    }
    return std::string(text);
}

// The forgiving reading of a typed number: users paste "1.234,50", "1,234.50" and
// "9.5" into fields of any locale, so every comma counts as a point and only the last
// point is the decimal mark; spaces and apostrophes are grouping.
std::optional<Decimal> parseLenientNumber(std::string_view text) {
    std::string cleaned;
    for (size_t i = 0; i < text.size();) {
        size_t length = 0;
        if (isSpaceAt(text, i, &length)) {
            i += length;
        } else if (text.substr(i, 3) == "\u2019") {
            i += 3;
        } else if (text[i] == '\'') {
            ++i;
        } else {
            cleaned += text[i] == ',' ? '.' : text[i];
            ++i;
        }
    }
    size_t last = cleaned.rfind('.');
    if (last != std::string::npos) {
        std::string digits;
        for (size_t i = 0; i < cleaned.size(); ++i) {
            if (cleaned[i] != '.' || i == last) {
                digits += cleaned[i];
            }
        }
        cleaned = digits;
    }
    if (cleaned.empty() || cleaned.find_first_of("eE") != std::string::npos) {
        return std::nullopt;
    }
    std::optional<Decimal> number = Decimal::parse(cleaned);
    if (number && number->isNaN()) {
        return std::nullopt;
    }
    return number;
}

std::mutex& formulaMutex() {
    static std::mutex mutex;
    return mutex;
}

NumberFormulaEvaluator& formulaEvaluator() {
    static NumberFormulaEvaluator evaluator;
    return evaluator;
}

bool looksLikeFormula(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '*' || c == '/' || c == '(' || c == ')' || c == '=') {
            return true;
        }
        // A sign at the start is the number's own, not an operation.
        if ((c == '+' || c == '-') && i > 0) {
            return true;
        }
    }
    return false;
}

std::unique_ptr<icu::TimeZone> currentIcuTimeZone() {
    std::string zone = TimeZone::current();
    if (zone.empty()) {
        return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createDefault());
    }
    return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone)));
}

constexpr double kMillisecondsPerSecond = 1000.0;

UDate toUDate(Date date) {
    return date.timeIntervalSince1970() * kMillisecondsPerSecond;
}

Date fromUDate(UDate date) {
    return Date::fromUnixTime(date / kMillisecondsPerSecond);
}

std::unique_ptr<icu::DateFormat> makeDateFormat(DateStyle style, const std::string& locale,
                                                const std::string& pattern) {
    icu::Locale icuLocale(locale.c_str());
    std::unique_ptr<icu::DateFormat> format;
    switch (style) {
        case DateStyle::Short:
            format.reset(icu::DateFormat::createDateInstance(icu::DateFormat::kShort, icuLocale));
            break;
        case DateStyle::Medium:
            format.reset(icu::DateFormat::createDateInstance(icu::DateFormat::kMedium, icuLocale));
            break;
        case DateStyle::Long:
            format.reset(icu::DateFormat::createDateInstance(icu::DateFormat::kLong, icuLocale));
            break;
        case DateStyle::Full:
            format.reset(icu::DateFormat::createDateInstance(icu::DateFormat::kFull, icuLocale));
            break;
        case DateStyle::ShortWithTime:
            format.reset(
                icu::DateFormat::createDateTimeInstance(icu::DateFormat::kShort, icu::DateFormat::kShort, icuLocale));
            break;
        case DateStyle::MediumWithTime:
            format.reset(
                icu::DateFormat::createDateTimeInstance(icu::DateFormat::kMedium, icu::DateFormat::kShort, icuLocale));
            break;
        case DateStyle::Pattern: {
            UErrorCode status = U_ZERO_ERROR;
            format = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(pattern), icuLocale, status);
            if (U_FAILURE(status)) {
                format.reset();
            }
            break;
        }
    }
    if (format != nullptr) {
        format->adoptTimeZone(currentIcuTimeZone().release());
        format->setLenient(false);
    }
    return format;
}

std::optional<Date> parseWithFormat(icu::DateFormat& format, std::string_view text) {
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
    icu::ParsePosition position(0);
    UDate date = format.parse(unicode, position);
    if (position.getErrorIndex() >= 0 || position.getIndex() != unicode.length()) {
        return std::nullopt;
    }
    return fromUDate(date);
}

struct Registry {
    std::shared_mutex mutex;
    std::map<std::string, std::unique_ptr<ValueTransformer>, std::less<>> transformers;
};

Registry& registry() {
    static Registry* instance = [] {
        auto* made = new Registry;
        auto add = [made](const char* name, ValueTransformer* transformer) {
            made->transformers.emplace(name, std::unique_ptr<ValueTransformer>(transformer));
        };
        add("ZPNumberTransformer", new NumberTransformer(NumberStyle::Grouped, 2));
        add("ZPNumberTransformer3", new NumberTransformer(NumberStyle::Grouped, 3));
        add("ZPNumberTransformer4", new NumberTransformer(NumberStyle::Grouped, 4));
        add("ZPNumberTransformer5", new NumberTransformer(NumberStyle::Grouped, 5));
        add("ZPShortNumberTransformer", new NumberTransformer(NumberStyle::Short));
        add("ZPIntegerTransformer", new NumberTransformer(NumberStyle::Integer));
        add("ZPPlainNumberTransformer", new NumberTransformer(NumberStyle::Plain));
        add("ZPUnformattedNumberTransformer", new NumberTransformer(NumberStyle::Unformatted));
        add("ZPPercentageTransformer", new NumberTransformer(NumberStyle::Percentage));
        add("ZPDateTransformer", new DateTransformer(DateStyle::Medium, {}, {}, true));
        add("ZPShortDateTransformer", new DateTransformer(DateStyle::Short, {}, {}, true));
        add("ZPMediumDateTransformer", new DateTransformer(DateStyle::Medium, {}, {}, true));
        add("ZPLongDateTransformer", new DateTransformer(DateStyle::Long, {}, {}, true));
        add("ZPGenericDateTransformer", new DateTransformer(DateStyle::Short, {}, {}, true));
        add("ZPddmmyyyyTransformer", new DateTransformer(DateStyle::Pattern, {}, "dd.MM.yyyy"));
        return made;
    }();
    return *instance;
}

}  // namespace

std::string currentFormattingLocale() {
    std::lock_guard lock(localeMutex());
    if (!explicitLocale().empty()) {
        return explicitLocale();
    }
    return localeFromEnvironment();
}

void setCurrentFormattingLocale(std::string_view locale) {
    std::lock_guard lock(localeMutex());
    explicitLocale() = std::string(locale);
}

std::string localeForCountry(std::string_view countryCode) {
    if (countryCode.size() != 2) {
        return {};
    }
    icu::Locale likely("und", std::string(countryCode).c_str());
    UErrorCode status = U_ZERO_ERROR;
    likely.addLikelySubtags(status);
    const std::string language = likely.getLanguage();
    const std::string country = likely.getCountry();
    if (U_FAILURE(status) || language.empty() || language == "und" || country.empty()) {
        return {};
    }
    return language + "_" + country;
}

void setNumberFormulaEvaluator(NumberFormulaEvaluator evaluator) {
    std::lock_guard lock(formulaMutex());
    formulaEvaluator() = std::move(evaluator);
}

// Formatting and strict parsing for one locale. ICU's formatter is immutable and safe to
// share; its parser is not, so parsing holds the lock.
struct NumberTransformer::Formatters {
    std::string locale;
    std::optional<icu::number::LocalizedNumberFormatter> formatter;
    std::unique_ptr<icu::DecimalFormat> parser;
    mutable std::mutex parseMutex;
};

namespace {
std::mutex& numberCacheMutex() {
    static std::mutex mutex;
    return mutex;
}
}  // namespace

NumberTransformer::NumberTransformer(NumberStyle style, int fractionDigits, std::string locale)
    : m_style(style), m_fractionDigits(std::clamp(fractionDigits, 2, 5)), m_locale(std::move(locale)) {}

NumberTransformer::~NumberTransformer() = default;

const NumberTransformer::Formatters& NumberTransformer::formatters(const std::string& locale) const {
    std::lock_guard lock(numberCacheMutex());
    if (m_cache != nullptr && m_cache->locale == locale) {
        return *m_cache;
    }
    // A locale switch replaces the cache. The old one may still be in use by a caller on
    // another thread, so it is kept alive rather than freed.
    static std::vector<std::unique_ptr<Formatters>> retired;
    if (m_cache != nullptr) {
        retired.push_back(std::move(m_cache));
    }
    auto made = std::make_unique<Formatters>();
    made->locale = locale;
    icu::Locale icuLocale(locale.c_str());
    namespace number = icu::number;
    number::LocalizedNumberFormatter formatter =
        number::NumberFormatter::withLocale(icuLocale).roundingMode(UNUM_ROUND_HALFUP);
    switch (m_style) {
        case NumberStyle::Grouped:
            formatter = formatter.precision(number::Precision::fixedFraction(m_fractionDigits));
            break;
        case NumberStyle::Short:
            formatter = formatter.precision(number::Precision::minMaxFraction(0, 2));
            break;
        case NumberStyle::Integer:
            formatter = formatter.precision(number::Precision::integer());
            break;
        case NumberStyle::Plain:
        case NumberStyle::Unformatted:
            formatter = formatter.precision(number::Precision::unlimited()).grouping(UNUM_GROUPING_OFF);
            break;
        case NumberStyle::Percentage:
            formatter =
                formatter.unit(icu::MeasureUnit::getPercent()).precision(number::Precision::minMaxFraction(0, 2));
            break;
    }
    made->formatter.emplace(formatter);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::NumberFormat> parser(icu::NumberFormat::createInstance(icuLocale, status));
    if (U_SUCCESS(status) && dynamic_cast<icu::DecimalFormat*>(parser.get()) != nullptr) {
        made->parser.reset(static_cast<icu::DecimalFormat*>(parser.release()));
        // Strict: "9.5" in a decimal-comma locale must not read as 95.
        made->parser->setLenient(false);
        made->parser->setParseNoExponent(true);
    }
    m_cache = std::move(made);
    return *m_cache;
}

std::string NumberTransformer::format(const Decimal& number) const {
    if (number.isNaN()) {
        return "NaN";
    }
    if (m_style == NumberStyle::Unformatted) {
        return number.toString();
    }
    const Formatters& cache = formatters(resolvedLocale(m_locale));
    UErrorCode status = U_ZERO_ERROR;
    std::string canonical = number.toString();
    icu::UnicodeString text = cache.formatter->formatDecimal(canonical, status).toString(status);
    if (U_FAILURE(status)) {
        logMessage("Number %@ could not be formatted: %s", canonical, u_errorName(status));
        return canonical;
    }
    return toUTF8(text);
}

std::optional<Decimal> NumberTransformer::parse(std::string_view input, std::string* error) const {
    std::string text = trimmed(input);
    if (m_style == NumberStyle::Percentage) {
        // The sign may stand on either side, with or without a space.
        for (std::string_view sign : {"%", "\u066a"}) {
            if (text.size() >= sign.size() && text.ends_with(sign)) {
                text = trimmed(std::string_view(text).substr(0, text.size() - sign.size()));
            } else if (text.starts_with(sign)) {
                text = trimmed(std::string_view(text).substr(sign.size()));
            }
        }
    }
    if (text.empty()) {
        if (error != nullptr) {
            *error = "no number given";
        }
        return std::nullopt;
    }
    auto finish = [this](Decimal value) { return m_style == NumberStyle::Integer ? value.rounded(0) : value; };
    if (m_style == NumberStyle::Unformatted) {
        if (std::optional<Decimal> number = Decimal::parse(text); number && !number->isNaN()) {
            return number;
        }
    } else {
        const Formatters& cache = formatters(resolvedLocale(m_locale));
        if (cache.parser != nullptr) {
            std::lock_guard lock(cache.parseMutex);
            icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
            icu::Formattable result;
            icu::ParsePosition position(0);
            cache.parser->parse(unicode, result, position);
            UErrorCode status = U_ZERO_ERROR;
            icu::StringPiece digits = result.getDecimalNumber(status);
            if (position.getErrorIndex() < 0 && position.getIndex() == unicode.length() && U_SUCCESS(status)) {
                if (std::optional<Decimal> number = Decimal::parse(std::string_view(digits.data(), digits.size()))) {
                    return finish(*number);
                }
            }
        }
    }
    if (std::optional<Decimal> number = parseLenientNumber(text)) {
        return finish(*number);
    }
    if (looksLikeFormula(text)) {
        std::string formula = text.starts_with('=') ? text.substr(1) : text;
        NumberFormulaEvaluator evaluator;
        {
            std::lock_guard lock(formulaMutex());
            evaluator = formulaEvaluator();
        }
        if (evaluator) {
            if (std::optional<Decimal> value = evaluator(formula)) {
                return finish(*value);
            }
        }
        // Each operand is read like a number typed alone, so "1.234,5 * 2" works in
        // de_DE and "1,234.5 * 2" in en_US; the operators go to the decimal formula.
        std::string canonical;
        std::string operand;
        std::string operandError;
        bool operandsRead = true;
        auto flush = [&] {
            std::string cleaned = trimmed(operand);
            operand.clear();
            if (cleaned.empty()) {
                return;
            }
            std::optional<Decimal> value = parseLenientNumber(cleaned);
            if (!value) {
                operandsRead = false;
                operandError = "\"" + cleaned + "\" is not a number";
                return;
            }
            canonical += value->toString();
        };
        for (char c : formula) {
            if (c == '+' || c == '-' || c == '*' || c == '/' || c == '(' || c == ')') {
                flush();
                canonical += ' ';
                canonical += c;
                canonical += ' ';
            } else {
                operand += c;
            }
        }
        flush();
        if (operandsRead) {
            std::string formulaError;
            if (std::optional<Decimal> value = evaluateDecimalFormula(canonical, &formulaError)) {
                if (!value->isNaN()) {
                    return finish(*value);
                }
                formulaError = "division by zero";
            }
            if (error != nullptr) {
                *error = "\"" + std::string(input) + "\": " + formulaError;
            }
            return std::nullopt;
        }
        if (error != nullptr) {
            *error = operandError;
        }
        return std::nullopt;
    }
    if (error != nullptr) {
        *error = "\"" + std::string(input) + "\" is not a number";
    }
    return std::nullopt;
}

Value NumberTransformer::transformedValue(const Value& value) const {
    if (value.isNull()) {
        return {};
    }
    if (value.isNumber()) {
        return Value(format(value.toDecimal()));
    }
    if (const std::string* text = value.string()) {
        if (std::optional<Decimal> number = Decimal::parse(*text)) {
            return Value(format(*number));
        }
    }
    return {};
}

Value NumberTransformer::reverseTransformedValue(const Value& value) const {
    if (value.isNumber()) {
        return value;
    }
    const std::string* text = value.string();
    if (text == nullptr || trimmed(*text).empty()) {
        return {};
    }
    std::string error;
    std::optional<Decimal> number = parse(*text, &error);
    if (!number) {
        logMessage("Number field: %s; read as 0", error);
        number = Decimal::zero();
    }
    if (m_style == NumberStyle::Integer) {
        return Value(number->toInt64());
    }
    return Value(*number);
}

DateTransformer::DateTransformer(DateStyle style, std::string locale, std::string pattern, bool lenient)
    : m_style(style), m_locale(std::move(locale)), m_pattern(std::move(pattern)), m_lenient(lenient) {}

std::string DateTransformer::format(Date date) const {
    std::unique_ptr<icu::DateFormat> format = makeDateFormat(m_style, resolvedLocale(m_locale), m_pattern);
    if (format == nullptr) {
        logMessage("Date format \"%s\" is not usable", m_pattern);
        return date.isoDateString();
    }
    icu::UnicodeString text;
    format->format(toUDate(date), text);
    return toUTF8(text);
}

std::optional<Date> DateTransformer::parse(std::string_view input) const {
    std::string text = trimmed(input);
    if (text.empty()) {
        return std::nullopt;
    }
    std::string locale = resolvedLocale(m_locale);
    if (std::unique_ptr<icu::DateFormat> format = makeDateFormat(m_style, locale, m_pattern)) {
        if (std::optional<Date> date = parseWithFormat(*format, text)) {
            return date;
        }
    }
    if (!m_lenient) {
        return std::nullopt;
    }
    if (std::optional<Date> date = Date::parseISO8601(text)) {
        return date;
    }
    for (DateStyle style : {DateStyle::Short, DateStyle::Medium, DateStyle::Long, DateStyle::Full,
                            DateStyle::ShortWithTime, DateStyle::MediumWithTime}) {
        if (style == m_style) {
            continue;
        }
        if (std::unique_ptr<icu::DateFormat> format = makeDateFormat(style, locale, {})) {
            if (std::optional<Date> date = parseWithFormat(*format, text)) {
                return date;
            }
        }
    }
    // Dotted and slashed day-first dates are common in files from anywhere in Europe.
    // A two-letter year pattern reads "2024" as it stands and "24" in this century.
    for (const char* pattern : {"d.M.yy", "d/M/yy"}) {
        if (std::unique_ptr<icu::DateFormat> format = makeDateFormat(DateStyle::Pattern, locale, pattern)) {
            if (std::optional<Date> date = parseWithFormat(*format, text)) {
                return date;
            }
        }
    }
    return std::nullopt;
}

Value DateTransformer::transformedValue(const Value& value) const {
    if (const Date* date = value.date()) {
        return Value(format(*date));
    }
    return {};
}

Value DateTransformer::reverseTransformedValue(const Value& value) const {
    if (value.date() != nullptr) {
        return value;
    }
    const std::string* text = value.string();
    if (text == nullptr) {
        return {};
    }
    if (std::optional<Date> date = parse(*text)) {
        return Value(*date);
    }
    if (!trimmed(*text).empty()) {
        logMessage("Date field: \"%s\" is not a date", *text);
    }
    return {};
}

std::string formatDateWithPattern(Date date, std::string_view pattern, std::string_view locale) {
    std::string cleaned;
    for (char c : pattern) {
        if (c != '%') {
            cleaned += c;
        }
    }
    std::string localeName = locale.empty() ? currentFormattingLocale() : std::string(locale);
    std::string zone = TimeZone::current();
    // Number patterns are evaluated for every object of a list; a formatter costs far more
    // than a format, so each thread keeps its own by pattern, locale and zone.
    thread_local std::map<std::string, std::unique_ptr<icu::DateFormat>, std::less<>> cache;
    std::string key = cleaned + '\x1f' + localeName + '\x1f' + zone;
    auto it = cache.find(key);
    if (it == cache.end()) {
        it = cache.emplace(key, makeDateFormat(DateStyle::Pattern, localeName, cleaned)).first;
    }
    if (it->second == nullptr) {
        logMessage("Date format \"%s\" is not usable", cleaned);
        return {};
    }
    icu::UnicodeString text;
    it->second->format(toUDate(date), text);
    return toUTF8(text);
}

int weekOfYear(Date date, std::string_view locale) {
    std::string localeName = locale.empty() ? currentFormattingLocale() : std::string(locale);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Calendar> calendar(
        icu::Calendar::createInstance(currentIcuTimeZone().release(), icu::Locale(localeName.c_str()), status));
    if (U_FAILURE(status)) {
        logMessage("No calendar for %s: %s", localeName, u_errorName(status));
        return 0;
    }
    calendar->setTime(toUDate(date), status);
    int week = calendar->get(UCAL_WEEK_OF_YEAR, status);
    return U_SUCCESS(status) ? week : 0;
}

const ValueTransformer* valueTransformerForName(std::string_view name) {
    Registry& instance = registry();
    std::shared_lock lock(instance.mutex);
    auto it = instance.transformers.find(name);
    return it == instance.transformers.end() ? nullptr : it->second.get();
}

void setValueTransformerForName(std::string name, std::unique_ptr<ValueTransformer> transformer) {
    Registry& instance = registry();
    std::unique_lock lock(instance.mutex);
    instance.transformers[std::move(name)] = std::move(transformer);
}

}  // namespace brassline
