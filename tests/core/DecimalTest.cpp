#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/Decimal.h"

namespace brassline {

namespace {

Decimal dec(std::string_view text) {
    std::optional<Decimal> value = Decimal::parse(text);
    if (!value) {
        ADD_FAILURE() << "test operand does not parse: " << text;
        return Decimal::notANumber();
    }
    return *value;
}

std::string zeros(size_t count) {
    return std::string(count, '0');
}

const std::string kNines38 = "99999999999999999999999999999999999999";

}  // namespace

TEST(DecimalTest, AddsAndSubtractsExactlyUpTo38Digits) {
    struct Case {
        std::string a;
        char op;
        std::string b;
        std::string expected;
    };
    const Case cases[] = {
        {"1234.56", '+', "19.99", "1254.55"},
        {"0.1", '+', "0.2", "0.3"},
        {"19.99", '-', "20", "-0.01"},
        {"-5", '+', "5", "0"},
        {"1", '-', "1", "0"},
        {"-1.5", '-', "-1.5", "0"},
        {"-0.25", '-', "0.75", "-1"},
        // 10^38 − 1 + 1 needs 39 digits but its trailing zeros leave 1 × 10^38.
        {kNines38, '+', "1", "1" + zeros(38)},
        // 39 significant digits round plainly to 38: a last 5 goes up, a 4 stays.
        {kNines38, '+', "0.5", "1" + zeros(38)},
        {kNines38, '+', "0.4", kNines38},
        {"1", '+', "1e-38", "1"},
        {"1", '+', "5e-38", "1.0000000000000000000000000000000000001"},
        {"1", '-', "1e-38", "0." + kNines38},
        // 1 − 5e-39 = 0.(38 nines)5 rounds up to 1; 1 − 6e-39 = 0.(38 nines)4 rounds down.
        {"1", '-', "5e-39", "1"},
        {"1", '-', "6e-39", "0." + kNines38},
        // Operands 60 and 255 digits apart: the small one only decides the rounding.
        {"1", '-', "1e-60", "1"},
        // 39 digits apart with a 38-digit operand: the exact aligned sum needs 77 digits.
        {"4.3852665326308220384184028715668729231", '-', "5e-76", "4.3852665326308220384184028715668729231"},
        {"9.9999999999999999999999999999999999999", '+', "5e-38", "10"},
        {"1e127", '+', "1e-128", "1" + zeros(127)},
        {"-1e127", '+', "1e-128", "-1" + zeros(127)},
        // Just beyond 38 digits at the top of the range rounds into overflow.
        {kNines38 + "e127", '+', "5e126", "NaN"},
        {kNines38 + "e127", '+', "4e126", kNines38 + zeros(127)},
        // Differences below 10^-128 vanish; exactly half of the last unit rounds away.
        {"3e-128", '-', "2e-128", "0." + zeros(127) + "1"},
        {"NaN", '+', "1", "NaN"},
        {"1", '-', "NaN", "NaN"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.a + " " + c.op + " " + c.b);
        Decimal result = c.op == '+' ? dec(c.a) + dec(c.b) : dec(c.a) - dec(c.b);
        EXPECT_EQ(result.toString(), c.expected);
    }
}

// Sums of operands below 2^64 take an inline path; these cases sit on its edges: sums
// past 2^64, alignment that overflows, exponents 18 and 19 apart, results ending in 0 or
// exactly 0 (which must come out as 0 × 10^0, never negative) and the top exponent.
TEST(DecimalTest, AddsSmallOperandsInNormalFormAtThePathEdges) {
    struct Case {
        std::string a;
        char op;
        std::string b;
        std::string expected;
        int exponent;
    };
    const Case cases[] = {
        {"18446744073709551615", '+', "1", "18446744073709551616", 0},
        {"9999999999999999999", '+', "1", "1" + zeros(19), 19},
        {"9999999999999999999", '+', "0.1", "9999999999999999999.1", -1},
        {"999999999999999999.9", '+', "0.1", "1" + zeros(18), 18},
        {"1844674407370955162", '+', "0.1", "1844674407370955162.1", -1},
        {"1", '+', "1e-18", "1.000000000000000001", -18},
        {"1", '+', "1e-19", "1.0000000000000000001", -19},
        {"1e-18", '+', "1", "1.000000000000000001", -18},
        {"0.5", '+', "0.5", "1", 0},
        {"-1.5", '-', "-2.5", "1", 0},
        {"19.99", '-', "19.99", "0", 0},
        {"-19.99", '+', "19.99", "0", 0},
        {"0.01", '-', "3", "-2.99", -2},
        {"-3", '+', "0.19", "-2.81", -2},
        {"2", '-', "-3", "5", 0},
        {"0", '-', "19.99", "-19.99", -2},
        {"19.99", '+', "0", "19.99", -2},
        {"0", '+', "0", "0", 0},
        {"1e127", '+', "1e127", "2" + zeros(127), 127},
        // 10 × 10^127 keeps its trailing zero: the exponent cannot grow.
        {"5e127", '+', "5e127", "1" + zeros(128), 127},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.a + " " + c.op + " " + c.b);
        Decimal result = c.op == '+' ? dec(c.a) + dec(c.b) : dec(c.a) - dec(c.b);
        EXPECT_EQ(result.toString(), c.expected);
        EXPECT_EQ(result.exponent(), c.exponent);
        EXPECT_FALSE(result.isZero() && result.isNegative());
        EXPECT_EQ(result, dec(c.expected));
    }
}

TEST(DecimalTest, MultipliesAndRoundsTheProductPlainlyTo38Digits) {
    struct Case {
        std::string a;
        std::string b;
        std::string expected;
    };
    const Case cases[] = {
        {"1234.56", "19.99", "24678.8544"},
        {"3", "0.19", "0.57"},
        {"0.1", "0.1", "0.01"},
        {"1.5", "1.5", "2.25"},
        {"-2", "3", "-6"},
        {"-2", "-3", "6"},
        {"0", "-5", "0"},
        {"12345678901234567890123456789012345678", "10", "123456789012345678901234567890123456780"},
        // 11...1 (38 ones) × 15 = 166...665 (39 digits): the 5 rounds up.
        {"11111111111111111111111111111111111111", "15", "16666666666666666666666666666666666667" + zeros(1)},
        // (10^38 − 1)² = 10^76 − 2·10^38 + 1: digit 39 is 0, so the tail is dropped.
        {kNines38, kNines38, "99999999999999999999999999999999999998" + zeros(38)},
        {"1e127", "1e37", "1" + zeros(164)},
        {"1e127", "1e38", "NaN"},
        {"1e-64", "1e-64", "0." + zeros(127) + "1"},
        {"5e-65", "1e-64", "0." + zeros(127) + "1"},
        {"4e-65", "1e-64", "0"},
        {"1e-100", "-1e-100", "0"},
        {"NaN", "0", "NaN"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.a + " * " + c.b);
        EXPECT_EQ((dec(c.a) * dec(c.b)).toString(), c.expected);
    }
}

TEST(DecimalTest, DividesTo38SignificantDigits) {
    struct Case {
        std::string a;
        std::string b;
        std::string expected;
    };
    const std::string threes(38, '3');
    const Case cases[] = {
        {"1", "3", "0." + threes},
        {"2", "3", "0.66666666666666666666666666666666666667"},
        {"-2", "3", "-0.66666666666666666666666666666666666667"},
        {"2", "-3", "-0.66666666666666666666666666666666666667"},
        {"10", "4", "2.5"},
        {"100", "8", "12.5"},
        {"1234.56", "19.99", "61.758879439719859929964982491245622811"},
        // The 38th digit rounds up into a 0 (…62962|96), or is a 0 already (…190|47): the
        // zero is stripped. At the top of the range it stays, the exponent being at 127.
        {"8", "27", "0.2962962962962962962962962962962962963"},
        {"19", "21", "0.9047619047619047619047619047619047619"},
        {"8e164", "27", "2962962962962962962962962962962962963" + zeros(127)},
        {"8e127", "27e-38", "2962962962962962962962962962962962963" + zeros(128)},
        {"0", "5", "0"},
        {"1", "0", "NaN"},
        {"0", "0", "NaN"},
        {"NaN", "1", "NaN"},
        // Divisors wider than 64 bits take the long-division path.
        {"1", "12345678901234567890123", "0.000000000000000000000081000000729000006633903057361254495222"},
        {"24691357802469135780246", "12345678901234567890123", "2"},
        // 1 / (10^20 − 1) = 0.(19 zeros)1(19 zeros)1(19 zeros)1...: digit 39 is a 0.
        {"1", "99999999999999999999", "0." + zeros(19) + "1" + zeros(19) + "1"},
        // Results below 10^-128 round at that position.
        {"1e-128", "10", "0"},
        {"5e-128", "10", "0." + zeros(127) + "1"},
        {"1e127", "1e-38", "NaN"},
        // Exact ties at the 39th digit round away from zero: 1 / 2^55 = 5^55 / 10^55, and
        // 5^55 = 277555756156289135105907917022705078125 has 39 digits, the last a 5 with
        // nothing after it. Its neighbours: a 2 in the 39th place (1 / 2^56, digits
        // …3906|25) rounds down, and the wide path (2^15 / 2^70) meets the same tie.
        {"1", "36028797018963968", "0." + zeros(16) + "27755575615628913510590791702270507813"},
        {"-1", "36028797018963968", "-0." + zeros(16) + "27755575615628913510590791702270507813"},
        {"1", "-36028797018963968", "-0." + zeros(16) + "27755575615628913510590791702270507813"},
        {"3", "36028797018963968", "0." + zeros(16) + "83266726846886740531772375106811523438"},
        {"7", "36028797018963968", "0." + zeros(15) + "19428902930940239457413554191589355469"},
        {"1", "72057594037927936", "0." + zeros(16) + "13877787807814456755295395851135253906"},
        {"32768", "1180591620717411303424", "0." + zeros(16) + "27755575615628913510590791702270507813"},
        {"-98304", "1180591620717411303424", "-0." + zeros(16) + "83266726846886740531772375106811523438"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.a + " / " + c.b);
        Decimal quotient = dec(c.a) / dec(c.b);
        EXPECT_EQ(quotient.toString(), c.expected);
        // Normal form: no trailing zero below the top exponent.
        EXPECT_TRUE(quotient.exponent() == Decimal::kMaxExponent || quotient.significand() % 10 != 0 ||
                    quotient.isZero() || quotient.isNaN());
    }
}

TEST(DecimalTest, ParsesPlainAndExponentNotation) {
    struct Case {
        std::string text;
        std::string expected;
    };
    const Case cases[] = {
        {"1.5", "1.5"},
        {"-0.005", "-0.005"},
        {"1e-3", "0.001"},
        {".5", "0.5"},
        {"+2", "2"},
        {"1E+5", "100000"},
        {"5.", "5"},
        {"-0", "0"},
        {"000123.4500", "123.45"},
        {"1e0", "1"},
        {"NaN", "NaN"},
        {"0e99999999999999999999", "0"},
        // 39 and 40 digits round plainly to 38; digits far beyond only move the exponent.
        {"123456789012345678901234567890123456785", "12345678901234567890123456789012345679" + zeros(1)},
        {"1234567890123456789012345678901234567849", "12345678901234567890123456789012345678" + zeros(2)},
        {"12345678901234567890123456789012345678500000000001", "12345678901234567890123456789012345679" + zeros(12)},
        {"0.000" + kNines38 + "9", "0.001"},
        {"1e-128", "0." + zeros(127) + "1"},
        {"5e-129", "0." + zeros(127) + "1"},
        {"4.9e-129", "0"},
        {"1e164", "1" + zeros(164)},
        {"1e165", "NaN"},
        {"-1e99999999", "NaN"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::optional<Decimal> value = Decimal::parse(c.text);
        ASSERT_TRUE(value.has_value());
        EXPECT_EQ(value->toString(), c.expected);
    }
}

TEST(DecimalTest, RejectsMalformedText) {
    const char* const rejected[] = {"",    "abc", "1.2.3", "1e",   " 1",  "1 ",  "+",     "-",   ".",   "e5", "1e+",
                                    "1,5", "--1", "1e5.5", "0x10", "inf", "nan", "1_000", "+-1", "1e-", "5%", "\t2"};
    for (const char* text : rejected) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(Decimal::parse(text).has_value());
    }
}

TEST(DecimalTest, SaveParseAnswersZeroForBadTextAndNotANumber) {
    EXPECT_EQ(Decimal::saveDecimalNumberWithString("12.50").toString(), "12.5");
    EXPECT_EQ(Decimal::saveDecimalNumberWithString("").toString(), "0");
    EXPECT_EQ(Decimal::saveDecimalNumberWithString("12,50").toString(), "0");
    EXPECT_EQ(Decimal::saveDecimalNumberWithString("NaN").toString(), "0");
}

TEST(DecimalTest, CanonicalTextHasNoExponentAndNoTrailingZeros) {
    struct Case {
        UInt128 significand;
        int exponent;
        bool negative;
        std::string expected;
    };
    const Case cases[] = {
        {1900, -2, false, "19"},
        {50, -4, false, "0.005"},
        {50, -4, true, "-0.005"},
        {123, 3, false, "123000"},
        {12345, -2, true, "-123.45"},
        {0, 5, true, "0"},
        {1, -128, false, "0." + zeros(127) + "1"},
        {1, 127, true, "-1" + zeros(127)},
        // 1000 × 10^126 is held as 100 × 10^127; 10^38 × 10^128 cannot be held.
        {1000, 126, false, "1" + zeros(129)},
        {static_cast<UInt128>(10000000000000000000ull) * 10000000000000000000ull, 128, false, "NaN"},
        // A 39-digit significand is rounded on the way in.
        {static_cast<UInt128>(10000000000000000000ull) * 10000000000000000000ull + 5, -40, false,
         "0.01" + zeros(36) + "1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        EXPECT_EQ(Decimal::fromParts(c.significand, c.exponent, c.negative).toString(), c.expected);
    }
    EXPECT_EQ(Decimal::notANumber().toString(), "NaN");
    EXPECT_EQ(Decimal(int64_t{-1000}).toString(), "-1000");
    EXPECT_EQ(Decimal(std::numeric_limits<int64_t>::min()).toString(), "-9223372036854775808");
}

TEST(DecimalTest, CountsFractionDigitsOfTheCanonicalText) {
    struct Case {
        const char* text;
        int expected;
    };
    const Case cases[] = {{"19.00", 0}, {"0.0050", 3}, {"-1.25", 2}, {"100", 0}, {"1e-128", 128}, {"NaN", 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(dec(c.text).numberOfFractionDigits(), c.expected);
    }
}

TEST(DecimalTest, ComparesNumericallyWithNotANumberFirst) {
    // Ascending; entries in one group are equal.
    const std::vector<std::vector<std::string>> ascending = {
        {"NaN"},   {"-1e127"},      {"-2", "-2.000"},    {"-1"},     {"-1e-128"}, {"0", "-0", "0.000"}, {"1e-128"},
        {"0.001"}, {"0.3", "0.30"}, {"1", "1.0", "1e0"}, {kNines38}, {"1e38"},    {kNines38 + "e127"},
    };
    for (size_t i = 0; i < ascending.size(); ++i) {
        for (size_t j = 0; j < ascending.size(); ++j) {
            for (const std::string& left : ascending[i]) {
                for (const std::string& right : ascending[j]) {
                    SCOPED_TRACE(left + " <=> " + right);
                    std::strong_ordering expected = i <=> j;
                    EXPECT_TRUE((dec(left) <=> dec(right)) == expected);
                    EXPECT_EQ(dec(left) == dec(right), i == j);
                }
            }
        }
    }
}

TEST(DecimalTest, RoundsToFractionDigitsInEachMode) {
    struct Case {
        const char* value;
        int scale;
        RoundingMode mode;
        const char* expected;
    };
    using enum RoundingMode;
    const Case cases[] = {
        {"0.005", 2, Plain, "0.01"},
        {"-0.005", 2, Plain, "-0.01"},
        {"1.005", 2, Plain, "1.01"},
        {"1.0049999", 2, Plain, "1"},
        {"2.675", 2, Plain, "2.68"},
        {"0.0049", 2, Plain, "0"},
        {"0.0004", 2, Plain, "0"},
        {"2.5", 0, Plain, "3"},
        {"-2.5", 0, Plain, "-3"},
        {"15", -1, Plain, "20"},
        {"-14", -1, Plain, "-10"},
        {"1.2", 5, Plain, "1.2"},
        // 38 digits: 35 nines and ".999" carry into a 36-digit whole number.
        {"99999999999999999999999999999999999.999", 2, Plain, "100000000000000000000000000000000000"},
        {"1.239", 2, Down, "1.23"},
        {"-1.231", 2, Down, "-1.24"},
        {"-1.23", 2, Down, "-1.23"},
        {"-0.001", 2, Down, "-0.01"},
        {"1.231", 2, Up, "1.24"},
        {"-1.239", 2, Up, "-1.23"},
        {"0.001", 2, Up, "0.01"},
        {"-0.001", 2, Up, "0"},
        {"0.125", 2, Bankers, "0.12"},
        {"0.135", 2, Bankers, "0.14"},
        {"-0.125", 2, Bankers, "-0.12"},
        {"0.1251", 2, Bankers, "0.13"},
        {"2.5", 0, Bankers, "2"},
        {"3.5", 0, Bankers, "4"},
        {"NaN", 2, Plain, "NaN"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.value) + " at " + std::to_string(c.scale) + " mode " +
                     std::to_string(static_cast<int>(c.mode)));
        EXPECT_EQ(dec(c.value).rounded(c.scale, c.mode).toString(), c.expected);
    }
}

TEST(DecimalTest, NamedRoundingStepsRoundPlainlyExceptRoundUp) {
    EXPECT_EQ(dec("0.005").fixedValue().toString(), "0.01");
    EXPECT_EQ(dec("-0.005").fixedValue().toString(), "-0.01");
    EXPECT_EQ(dec("1.005").fixedValue().toString(), "1.01");
    EXPECT_EQ(dec("1.23455").fixed4DigitsValue().toString(), "1.2346");
    EXPECT_EQ(dec("1.234565").fixed5DigitsValue().toString(), "1.23457");
    EXPECT_EQ(dec("1.999").truncate().toString(), "2");
    EXPECT_EQ(dec("0.000005").truncateTo5().toString(), "0.00001");
    EXPECT_EQ(dec("1.001").roundUpToDigits(2).toString(), "1.01");
    EXPECT_EQ(dec("-1.009").roundUpToDigits(2).toString(), "-1");
}

TEST(DecimalTest, PercentageDividesByHundredBeforeMultiplying) {
    int details = 0;
    const auto* someDetails = reinterpret_cast<const BLTaxDetails*>(&details);
    EXPECT_EQ(dec("200").decimalNumberCalculatePercentage(dec("19")).toString(), "38");
    EXPECT_EQ(dec("19.99").decimalNumberCalculatePercentage(dec("7")).toString(), "1.3993");
    EXPECT_EQ(dec("19.99").decimalNumberCalculatePercentage(dec("7"), nullptr).toString(), "1.3993");
    EXPECT_EQ(dec("19.99").decimalNumberCalculatePercentage(dec("7"), someDetails).toString(), "1.4");
    EXPECT_EQ(dec("-0.5").decimalNumberCalculatePercentage(dec("1"), someDetails).toString(), "-0.01");
    // 1e-127 ÷ 100 is below the smallest unit and becomes 0 before the multiplication.
    EXPECT_EQ(dec("1e-127").decimalNumberCalculatePercentage(dec("100")).toString(), "0");
    EXPECT_TRUE(dec("10").decimalNumberCalculatePercentage(Decimal::notANumber()).isNaN());
    EXPECT_EQ(dec("10").decimalNumberCalculatePercentage(Decimal::notANumber(), someDetails).toString(), "0");
    EXPECT_EQ(dec("10").decimalNumberCalculatePercentage(Decimal::notANumber(), nullptr).toString(), "0");
}

TEST(DecimalTest, ConvertsToIntegersByTruncatingAndSaturating) {
    struct Case {
        const char* text;
        int64_t expected;
    };
    const int64_t max = std::numeric_limits<int64_t>::max();
    const int64_t min = std::numeric_limits<int64_t>::min();
    const Case cases[] = {
        {"123.9", 123},
        {"-123.9", -123},
        {"0.999", 0},
        {"1e18", 1000000000000000000},
        {"9223372036854775807", max},
        {"9223372036854775808", max},
        {"-9223372036854775808", min},
        {"-9223372036854775809", min},
        {"12e18", max},
        {"1e30", max},
        {"-1e30", min},
        {"1e-128", 0},
        {"NaN", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(dec(c.text).toInt64(), c.expected);
    }
    EXPECT_EQ(dec("3000000000").toInt32(), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(dec("-3000000000").toInt32(), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(dec("-7.9").toInt32(), -7);
}

TEST(DecimalTest, ConvertsToAndFromBinaryFloatingPoint) {
    EXPECT_EQ(dec("0.1").toDouble(), 0.1);
    EXPECT_EQ(dec("-1234.56").toDouble(), -1234.56);
    EXPECT_EQ(dec("1e127").toDouble(), 1e127);
    EXPECT_EQ(dec("1e-128").toDouble(), 1e-128);
    EXPECT_TRUE(std::isnan(Decimal::notANumber().toDouble()));
    EXPECT_EQ(dec("0.1").toFloat(), 0.1f);
    EXPECT_EQ(dec("1e127").toFloat(), std::numeric_limits<float>::infinity());
    // The business test against 0 goes through float: 1e-46 is below float's range.
    EXPECT_TRUE(dec("1e-46").isZeroAsFloat());
    EXPECT_FALSE(dec("1e-40").isZeroAsFloat());

    struct Case {
        double value;
        const char* expected;
    };
    const Case doubles[] = {
        {0.1, "0.1"},
        {1234.56, "1234.56"},
        {-0.0, "0"},
        {0.30000000000000004, "0.30000000000000004"},
        {1e22, "10000000000000000000000"},
        {1e300, "NaN"},
        {5e-324, "0"},
        {std::numeric_limits<double>::infinity(), "NaN"},
        {std::numeric_limits<double>::quiet_NaN(), "NaN"},
    };
    for (const Case& c : doubles) {
        SCOPED_TRACE(c.expected);
        EXPECT_EQ(Decimal::fromDouble(c.value).toString(), c.expected);
    }
    // "%f" keeps six fraction digits of the float's exact value.
    EXPECT_EQ(Decimal::decimalNumberWithFloat(0.1f).toString(), "0.1");
    EXPECT_EQ(Decimal::decimalNumberWithFloat(19.99f).toString(), "19.99");
    EXPECT_EQ(Decimal::decimalNumberWithFloat(-2.5f).toString(), "-2.5");
    EXPECT_EQ(Decimal::decimalNumberWithFloat(1e-7f).toString(), "0");
    EXPECT_EQ(Decimal::decimalNumberWithFloat(16777217.0f).toString(), "16777216");
    EXPECT_TRUE(Decimal::decimalNumberWithFloat(std::numeric_limits<float>::infinity()).isNaN());
}

TEST(DecimalTest, SignHelpersAndNotANumberMapping) {
    EXPECT_EQ((-dec("0")).toString(), "0");
    EXPECT_FALSE((-dec("0")).isNegative());
    EXPECT_EQ(dec("2.5").invert().toString(), "-2.5");
    EXPECT_EQ(dec("-2.5").absoluteNumber().toString(), "2.5");
    EXPECT_TRUE(Decimal::notANumber().absoluteNumber().isNaN());
    EXPECT_TRUE((-Decimal::notANumber()).isNaN());
    EXPECT_EQ(Decimal::notANumber().validNumber().toString(), "0");
    EXPECT_EQ(dec("-3").validNumber().toString(), "-3");
    EXPECT_EQ(dec("1.5").multipliedByPowerOf10(2).toString(), "150");
    EXPECT_EQ(dec("1.5").multipliedByPowerOf10(-3).toString(), "0.0015");
    EXPECT_TRUE(dec("1e-127").multipliedByPowerOf10(-2).isNaN());
    EXPECT_TRUE(dec("1e127").multipliedByPowerOf10(38).isNaN());
}

TEST(DecimalTest, SortingWithNotANumberIsTotal) {
    std::vector<Decimal> values = {dec("3"), Decimal::notANumber(), dec("-1"), dec("0.5"), Decimal::notANumber()};
    std::sort(values.begin(), values.end());
    std::vector<std::string> texts;
    for (const Decimal& value : values) {
        texts.push_back(value.toString());
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"NaN", "NaN", "-1", "0.5", "3"}));
}

}  // namespace brassline
