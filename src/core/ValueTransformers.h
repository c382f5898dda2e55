#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "core/Date.h"
#include "core/Decimal.h"
#include "core/Value.h"

namespace brassline {

// The locale of display texts ("de_CH"): the one set here, else ICU's default locale (from
// the environment), with "en_US" for the C locale. An empty name returns to the default. Process-wide; transformers
// without a locale of their own follow it.
std::string currentFormattingLocale();
void setCurrentFormattingLocale(std::string_view locale);
// The locale a country writes in, by its most likely language ("DE" gives "de_DE", "CH"
// "de_CH", "US" "en_US"); empty for an empty or unknown code.
std::string localeForCountry(std::string_view countryCode);

// A named conversion between stored values and display text. Both directions answer the
// null value for what they cannot convert; nothing throws. Shareable across threads.
class ValueTransformer {
public:
    virtual ~ValueTransformer() = default;
    virtual Value transformedValue(const Value& value) const = 0;
    virtual bool allowsReverseTransformation() const { return false; }
    virtual Value reverseTransformedValue(const Value& value) const {
        (void)value;
        return {};
    }
};

// Number texts in a locale. Grouped: grouping and exactly `fractionDigits` digits (2 to 5,
// rounded half away from zero); Short: grouping, 0 to 2 digits; Integer: grouping, no
// fraction; Plain: no grouping, as many digits as the value has; Unformatted: the
// canonical "-1234.5" whatever the locale; Percentage: a number in percent units
// (19 is "19 %" in de_DE), 0 to 2 digits.
enum class NumberStyle : uint8_t { Grouped, Short, Integer, Plain, Unformatted, Percentage };

class NumberTransformer : public ValueTransformer {
public:
    // `locale` empty follows currentFormattingLocale. Digits outside 2..5 are clamped.
    explicit NumberTransformer(NumberStyle style, int fractionDigits = 2, std::string locale = {});
    ~NumberTransformer() override;

    // The text of a number; not-a-number gives "NaN".
    std::string format(const Decimal& number) const;
    // A text typed in this locale: the locale's own form, else the lenient form (commas read
    // as points, the last point is the decimal mark, spaces and apostrophes dropped), else a
    // formula of + - * / and parentheses over such numbers. Integer answers whole numbers
    // (rounded). Empty with the reason in `error` for anything else.
    std::optional<Decimal> parse(std::string_view text, std::string* error = nullptr) const;

    // Numbers (and numeric text) to text; anything else null.
    Value transformedValue(const Value& value) const override;
    bool allowsReverseTransformation() const override { return true; }
    // Text to a Decimal (an integer for Integer). Empty text answers null; text that does
    // not read answers 0 with a log line, as imports of number columns expect.
    Value reverseTransformedValue(const Value& value) const override;

    NumberStyle style() const { return m_style; }
    int fractionDigits() const { return m_fractionDigits; }

private:
    struct Formatters;
    const Formatters& formatters(const std::string& locale) const;

    NumberStyle m_style;
    int m_fractionDigits;
    std::string m_locale;
    mutable std::unique_ptr<Formatters> m_cache;  // Guarded by a mutex in the .cpp.
};

// The evaluator of formulas typed into number fields, installed by the script host: it
// answers the value, or nothing to let the built-in decimal formula try. Empty by default.
using NumberFormulaEvaluator = std::function<std::optional<Decimal>(std::string_view formula)>;
void setNumberFormulaEvaluator(NumberFormulaEvaluator evaluator);

// Dates in a locale's styles, without the time unless asked, in TimeZone::current.
enum class DateStyle : uint8_t { Short, Medium, Long, Full, ShortWithTime, MediumWithTime, Pattern };

class DateTransformer : public ValueTransformer {
public:
    // `pattern` is a date pattern ("dd.MM.yyyy") for DateStyle::Pattern, else ignored.
    // `lenient` reverse parsing also tries the other styles and ISO 8601.
    DateTransformer(DateStyle style, std::string locale = {}, std::string pattern = {}, bool lenient = false);

    std::string format(Date date) const;
    // The date a text stands for; empty when it does not read.
    std::optional<Date> parse(std::string_view text) const;

    // Dates to text; anything else null.
    Value transformedValue(const Value& value) const override;
    bool allowsReverseTransformation() const override { return true; }
    // Text to a date; null for empty or unreadable text.
    Value reverseTransformedValue(const Value& value) const override;

private:
    DateStyle m_style;
    std::string m_locale;
    std::string m_pattern;
    bool m_lenient;
};

// A date through a date pattern ("yyyy", "LLL", "EEEE"); every "%" in the pattern is
// dropped first. Formatters are cached per thread by pattern, locale and time zone.
std::string formatDateWithPattern(Date date, std::string_view pattern, std::string_view locale = {});
// The week of the year in the locale's calendar (first day and minimal days of week one).
int weekOfYear(Date date, std::string_view locale = {});

// The registered transformer of that name (ZPNumberTransformer, ZPNumberTransformer3 to 5,
// ZPShortNumberTransformer, ZPIntegerTransformer, ZPPlainNumberTransformer,
// ZPUnformattedNumberTransformer, ZPPercentageTransformer, ZPDateTransformer,
// ZPShortDateTransformer, ZPMediumDateTransformer, ZPLongDateTransformer,
// ZPGenericDateTransformer, ZPddmmyyyyTransformer and whatever was registered); null when
// unknown. Registration is for start-up; lookups are thread-safe afterwards.
const ValueTransformer* valueTransformerForName(std::string_view name);
// Adds or replaces a named transformer.
void setValueTransformerForName(std::string name, std::unique_ptr<ValueTransformer> transformer);

}  // namespace brassline
