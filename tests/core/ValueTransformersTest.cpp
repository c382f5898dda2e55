#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/ValueTransformers.h"

namespace brassline {
namespace {

// The spaces CLDR puts into numbers and percentages, spelt out so the tables stay legible.
#define NBSP "\u00a0"
#define NNBSP "\u202f"
#define RSQUO "\u2019"

class ValueTransformersTest : public ::testing::Test {
protected:
    void SetUp() override { TimeZone::setCurrent("Europe/Berlin"); }
    void TearDown() override {
        TimeZone::setCurrent("");
        setCurrentFormattingLocale("");
        setNumberFormulaEvaluator(nullptr);
    }
};

Decimal dec(const char* text) {
    return Decimal::parse(text).value_or(Decimal::notANumber());
}

TEST_F(ValueTransformersTest, FormatsNumbersInEachLocaleAndStyle) {
    struct Row {
        NumberStyle style;
        int digits;
        const char* locale;
        const char* value;
        const char* expected;
    };
    const Row rows[] = {
        // Two digits, half away from zero: .125 -> .13, -0.005 -> -0.01.
        {NumberStyle::Grouped, 2, "en_US", "1234567.125", "1,234,567.13"},
        {NumberStyle::Grouped, 2, "de_DE", "1234567.125", "1.234.567,13"},
        {NumberStyle::Grouped, 2, "de_CH", "1234567.125", "1" RSQUO "234" RSQUO "567.13"},
        {NumberStyle::Grouped, 2, "fr_FR", "1234567.125", "1" NNBSP "234" NNBSP "567,13"},
        {NumberStyle::Grouped, 2, "en_US", "-0.005", "-0.01"},
        {NumberStyle::Grouped, 2, "de_DE", "7", "7,00"},
        // Three to five digits pad and round at their width.
        {NumberStyle::Grouped, 3, "de_DE", "1.5", "1,500"},
        {NumberStyle::Grouped, 4, "en_US", "2.00005", "2.0001"},
        {NumberStyle::Grouped, 5, "fr_FR", "1000.123456", "1" NNBSP "000,12346"},
        // Short: up to two digits, none when whole.
        {NumberStyle::Short, 2, "en_US", "1234", "1,234"},
        {NumberStyle::Short, 2, "de_DE", "1234.5", "1.234,5"},
        {NumberStyle::Short, 2, "de_CH", "0.125", "0.13"},
        // Integer: grouped, rounded half away from zero.
        {NumberStyle::Integer, 2, "en_US", "1234.5", "1,235"},
        {NumberStyle::Integer, 2, "de_DE", "-1234.5", "-1.235"},
        {NumberStyle::Integer, 2, "fr_FR", "12345", "12" NNBSP "345"},
        // Plain: the locale's decimal mark, no grouping, every digit kept.
        {NumberStyle::Plain, 2, "en_US", "1234.5678", "1234.5678"},
        {NumberStyle::Plain, 2, "de_DE", "1234.5678", "1234,5678"},
        {NumberStyle::Plain, 2, "fr_FR", "-0.5", "-0,5"},
        // Unformatted ignores the locale.
        {NumberStyle::Unformatted, 2, "de_DE", "1234.50", "1234.5"},
        {NumberStyle::Unformatted, 2, "fr_FR", "-3", "-3"},
        // Percentages are in percent units: 19 is nineteen percent, not 1900.
        {NumberStyle::Percentage, 2, "en_US", "19", "19%"},
        {NumberStyle::Percentage, 2, "de_DE", "7.5", "7,5" NBSP "%"},
        {NumberStyle::Percentage, 2, "de_CH", "7.5", "7.5%"},
        {NumberStyle::Percentage, 2, "fr_FR", "2.555", "2,56" NBSP "%"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.locale) + " " + row.value + " digits " + std::to_string(row.digits));
        NumberTransformer transformer(row.style, row.digits, row.locale);
        EXPECT_EQ(transformer.format(dec(row.value)), row.expected);
        EXPECT_EQ(transformer.transformedValue(Value(dec(row.value))), Value(row.expected));
    }
    EXPECT_EQ(NumberTransformer(NumberStyle::Grouped, 2, "en_US").format(Decimal::notANumber()), "NaN");
    EXPECT_TRUE(NumberTransformer(NumberStyle::Grouped).transformedValue(Value()).isNull());
    EXPECT_TRUE(NumberTransformer(NumberStyle::Grouped).transformedValue(Value("abc")).isNull());
}

TEST_F(ValueTransformersTest, ReadsTypedNumbersStrictlyThenLeniently) {
    struct Row {
        NumberStyle style;
        const char* locale;
        const char* text;
        const char* expected;  // nullptr: refused.
    };
    const Row rows[] = {
        {NumberStyle::Grouped, "de_DE", "1.234,50", "1234.5"},
        {NumberStyle::Grouped, "de_DE", "  1234,5 ", "1234.5"},
        // A point in a decimal-comma locale that is not a valid grouping: 9.5, never 95.
        {NumberStyle::Grouped, "de_DE", "9.5", "9.5"},
        {NumberStyle::Grouped, "en_US", "1,234.50", "1234.5"},
        {NumberStyle::Grouped, "en_US", "-3.5", "-3.5"},
        // Mixed marks: the last one is the decimal mark.
        {NumberStyle::Grouped, "en_US", "1.234,5", "1234.5"},
        {NumberStyle::Grouped, "de_CH", "1'234.50", "1234.5"},
        {NumberStyle::Grouped, "de_CH", "1" RSQUO "234.50", "1234.5"},
        {NumberStyle::Grouped, "fr_FR", "1 234,5", "1234.5"},
        {NumberStyle::Grouped, "fr_FR", "1" NNBSP "234,5", "1234.5"},
        // Formulas, with operands read like single numbers of the locale.
        {NumberStyle::Grouped, "de_DE", "1.234,5 * 2", "2469"},
        {NumberStyle::Grouped, "en_US", "(10 + 5) / 3", "5"},
        {NumberStyle::Grouped, "en_US", "=2*3", "6"},
        {NumberStyle::Grouped, "fr_FR", "10 - 2,5", "7.5"},
        {NumberStyle::Grouped, "en_US", "-2 - -3", "1"},
        // Integer fields round what they read.
        {NumberStyle::Integer, "de_DE", "12,6", "13"},
        {NumberStyle::Integer, "en_US", "7 / 2", "4"},
        {NumberStyle::Percentage, "de_DE", "19 %", "19"},
        {NumberStyle::Percentage, "en_US", "7.5%", "7.5"},
        {NumberStyle::Percentage, "fr_FR", "5,5" NNBSP "%", "5.5"},
        {NumberStyle::Unformatted, "de_DE", "1234.5", "1234.5"},
        // Refused: words, empty text, dangling operators, division by zero, exponents.
        {NumberStyle::Grouped, "en_US", "abc", nullptr},
        {NumberStyle::Grouped, "en_US", "", nullptr},
        {NumberStyle::Grouped, "en_US", "   ", nullptr},
        {NumberStyle::Grouped, "en_US", "2 * x", nullptr},
        {NumberStyle::Grouped, "en_US", "2 *", nullptr},
        {NumberStyle::Grouped, "de_DE", "1 / 0", nullptr},
        {NumberStyle::Grouped, "en_US", "1e5", nullptr},
        {NumberStyle::Percentage, "en_US", "%", nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.locale) + " \"" + row.text + "\"");
        NumberTransformer transformer(row.style, 2, row.locale);
        std::string error;
        std::optional<Decimal> parsed = transformer.parse(row.text, &error);
        if (row.expected == nullptr) {
            EXPECT_FALSE(parsed.has_value()) << parsed->toString();
            EXPECT_FALSE(error.empty());
        } else {
            ASSERT_TRUE(parsed.has_value()) << error;
            EXPECT_EQ(*parsed, dec(row.expected)) << parsed->toString();
        }
    }
}

TEST_F(ValueTransformersTest, ReverseTransformationAnswersZeroForBadTextAndNullForEmpty) {
    NumberTransformer number(NumberStyle::Grouped, 2, "de_DE");
    EXPECT_EQ(number.reverseTransformedValue(Value("abc")), Value(Decimal::zero()));
    EXPECT_TRUE(number.reverseTransformedValue(Value("")).isNull());
    EXPECT_TRUE(number.reverseTransformedValue(Value()).isNull());
    EXPECT_EQ(*number.reverseTransformedValue(Value("2,5")).decimal(), dec("2.5"));
    NumberTransformer integer(NumberStyle::Integer, 2, "en_US");
    ASSERT_NE(integer.reverseTransformedValue(Value("1,234")).integer(), nullptr);
    EXPECT_EQ(*integer.reverseTransformedValue(Value("1,234")).integer(), 1234);
}

TEST_F(ValueTransformersTest, FormattedNumbersReadBackInEveryLocale) {
    const char* values[] = {"0", "-1234567.89", "0.01", "999999999.99"};
    for (const char* locale : {"en_US", "de_DE", "de_CH", "fr_FR"}) {
        for (NumberStyle style : {NumberStyle::Grouped, NumberStyle::Plain, NumberStyle::Percentage}) {
            NumberTransformer transformer(style, 2, locale);
            for (const char* value : values) {
                SCOPED_TRACE(std::string(locale) + " " + value + " style " + std::to_string(int(style)));
                std::string text = transformer.format(dec(value));
                std::optional<Decimal> back = transformer.parse(text);
                ASSERT_TRUE(back.has_value()) << text;
                EXPECT_EQ(*back, dec(value)) << text;
            }
        }
    }
}

TEST_F(ValueTransformersTest, CountriesWriteInTheirLikeliestLanguage) {
    const std::pair<const char*, const char*> rows[] = {
        {"DE", "de_DE"},
        {"US", "en_US"},
        {"CH", "de_CH"},
        {"AT", "de_AT"},
        {"FR", "fr_FR"},
        // Nothing to go by: no locale, so the caller keeps its own.
        {"", ""},
        {"D", ""},
        {"DEU", ""},
    };
    for (const auto& [country, locale] : rows) {
        SCOPED_TRACE(country);
        EXPECT_EQ(localeForCountry(country), locale);
    }
}

TEST_F(ValueTransformersTest, FollowsTheCurrentLocaleAndTheFormulaHook) {
    NumberTransformer transformer(NumberStyle::Grouped);
    setCurrentFormattingLocale("de_DE");
    EXPECT_EQ(transformer.format(dec("1234.5")), "1.234,50");
    setCurrentFormattingLocale("en_US");
    EXPECT_EQ(transformer.format(dec("1234.5")), "1,234.50");

    // The script host sees formulas first; when it declines, the decimal formula answers.
    std::vector<std::string> seen;
    setNumberFormulaEvaluator([&seen](std::string_view formula) -> std::optional<Decimal> {
        seen.emplace_back(formula);
        if (formula == "2 * rate") {
            return Decimal(10);
        }
        return std::nullopt;
    });
    EXPECT_EQ(transformer.parse("2 * rate"), Decimal(10));
    EXPECT_EQ(transformer.parse("=2 * 4"), Decimal(8));
    EXPECT_EQ(transformer.parse("12"), Decimal(12));
    EXPECT_EQ(seen, (std::vector<std::string>{"2 * rate", "2 * 4"}));
}

TEST_F(ValueTransformersTest, FormatsAndReadsDatesInEachLocale) {
    const Date date = Date::dateWithYear(2024, 3, 5);
    struct Row {
        DateStyle style;
        const char* locale;
        const char* expected;
    };
    const Row rows[] = {
        {DateStyle::Short, "en_US", "3/5/24"},       {DateStyle::Short, "de_DE", "05.03.24"},
        {DateStyle::Short, "de_CH", "05.03.24"},     {DateStyle::Short, "fr_FR", "05/03/2024"},
        {DateStyle::Medium, "en_US", "Mar 5, 2024"}, {DateStyle::Medium, "de_DE", "05.03.2024"},
        {DateStyle::Medium, "fr_FR", "5 mars 2024"}, {DateStyle::Long, "en_US", "March 5, 2024"},
        {DateStyle::Long, "de_CH", "5. März 2024"},  {DateStyle::Long, "fr_FR", "5 mars 2024"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.locale) + " " + row.expected);
        DateTransformer transformer(row.style, row.locale);
        EXPECT_EQ(transformer.format(date), row.expected);
        EXPECT_EQ(transformer.parse(row.expected), date);
        EXPECT_EQ(transformer.reverseTransformedValue(transformer.transformedValue(Value(date))), Value(date));
    }
}

TEST_F(ValueTransformersTest, GenericDatesReadManyFormsAndRefuseNonsense) {
    const Date date = Date::dateWithYear(2024, 3, 5);
    DateTransformer generic(DateStyle::Short, "en_US", {}, true);
    DateTransformer strict(DateStyle::Short, "en_US");
    for (const char* text : {"3/5/24", "2024-03-05", "Mar 5, 2024", "March 5, 2024", "5.3.2024", "05.03.24"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(generic.parse(text), date);
    }
    EXPECT_EQ(strict.parse("2024-03-05"), std::nullopt);
    for (const char* text : {"", "hello", "31.02.2024", "13/45/24", "2024-13-01"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(generic.parse(text), std::nullopt);
        EXPECT_TRUE(generic.reverseTransformedValue(Value(text)).isNull());
    }
    DateTransformer dotted(DateStyle::Pattern, "en_US", "dd.MM.yyyy");
    EXPECT_EQ(dotted.format(date), "05.03.2024");
    EXPECT_EQ(dotted.parse("05.03.2024"), date);
    ASSERT_NE(valueTransformerForName("ZPGenericDateTransformer"), nullptr);
    EXPECT_EQ(valueTransformerForName("ZPNoSuchTransformer"), nullptr);
}

TEST_F(ValueTransformersTest, DatePatternsUseTheLocalesWordsAndWeeks) {
    const Date tuesday = Date::dateWithYear(2024, 3, 5);
    struct Row {
        const char* pattern;
        const char* locale;
        const char* expected;
    };
    const Row rows[] = {
        {"%yyyy", "en_US", "2024"},    {"%yy", "de_DE", "24"},     {"%MM", "fr_FR", "03"},
        {"%dd", "de_CH", "05"},        {"%LLL", "en_US", "Mar"},   {"%LLL", "de_DE", "Mär"},
        {"%LLL", "fr_FR", "mars"},     {"LLL", "de_CH", "Mär"},    {"EEEE", "en_US", "Tuesday"},
        {"EEEE", "de_DE", "Dienstag"}, {"EEEE", "fr_FR", "mardi"}, {"E", "en_US", "Tue"},
        {"E", "de_DE", "Di."},         {"E", "fr_FR", "mar."},     {"yyyy-Q", "en_US", "2024-1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.locale) + " " + row.pattern);
        EXPECT_EQ(formatDateWithPattern(tuesday, row.pattern, row.locale), row.expected);
    }
    // 3 January 2021 is a Sunday: week 53 of 2020 by the ISO rule of de_DE and fr_FR,
    // week 2 where weeks start on Sunday and week one holds 1 January (en_US).
    const Date sunday = Date::dateWithYear(2021, 1, 3);
    EXPECT_EQ(weekOfYear(sunday, "de_DE"), 53);
    EXPECT_EQ(weekOfYear(sunday, "fr_FR"), 53);
    EXPECT_EQ(weekOfYear(sunday, "en_US"), 2);
    EXPECT_EQ(weekOfYear(Date::dateWithYear(2024, 12, 30), "de_CH"), 1);
}

}  // namespace
}  // namespace brassline
