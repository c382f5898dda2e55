#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "core/Value.h"

namespace brassline {
namespace valuetest {

Decimal dec(std::string_view text) {
    const auto parsed = Decimal::parse(text);
    EXPECT_TRUE(parsed.has_value()) << text;
    return parsed.value_or(Decimal::notANumber());
}

const char* orderingName(std::partial_ordering ordering) {
    if (ordering == std::partial_ordering::less) {
        return "less";
    }
    if (ordering == std::partial_ordering::greater) {
        return "greater";
    }
    if (ordering == std::partial_ordering::equivalent) {
        return "equivalent";
    }
    return "unordered";
}

class NamedObject : public Object {
public:
    Value valueForKey(std::string_view) const override { return {}; }
    std::string_view className() const override { return "NamedObject"; }
};

struct OrderingRow {
    const char* label;
    Value left;
    Value right;
    std::partial_ordering expected;
};

// Each row is checked in both directions: the reverse ordering must come out mirrored, and
// equality must agree with equivalence.
void checkRows(const std::vector<OrderingRow>& rows) {
    for (const OrderingRow& row : rows) {
        SCOPED_TRACE(row.label);
        const std::partial_ordering forward = row.left.compare(row.right);
        const std::partial_ordering backward = row.right.compare(row.left);
        EXPECT_STREQ(orderingName(forward), orderingName(row.expected));
        const std::partial_ordering mirrored =
            row.expected == std::partial_ordering::less      ? std::partial_ordering::greater
            : row.expected == std::partial_ordering::greater ? std::partial_ordering::less
                                                             : row.expected;
        EXPECT_STREQ(orderingName(backward), orderingName(mirrored));
        const bool equal = row.expected == std::partial_ordering::equivalent;
        EXPECT_EQ(row.left == row.right, equal);
        EXPECT_EQ(row.right == row.left, equal);
    }
}

TEST(ValueTest, NumbersCompareNumericallyAcrossTypes) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto less = std::partial_ordering::less;
    const auto greater = std::partial_ordering::greater;
    const auto same = std::partial_ordering::equivalent;
    checkRows({
        {"int 1 = double 1.0", Value(1), Value(1.0), same},
        {"int 1 = decimal 1", Value(1), Value(dec("1.000")), same},
        {"double 1.0 = decimal 1", Value(1.0), Value(dec("1")), same},
        {"true = int 1", Value(true), Value(1), same},
        {"false = decimal 0", Value(false), Value(Decimal()), same},
        {"true < int 2", Value(true), Value(2), less},
        {"double -0.0 = int 0", Value(-0.0), Value(0), same},
        // 0.1 as a double is not a tenth, but its shortest text is "0.1".
        {"double 0.1 = decimal 0.1", Value(0.1), Value(dec("0.1")), same},
        // The double's exact binary value, cut to 38 digits, is more than its shortest text.
        {"double 0.1 < its exact expansion", Value(0.1), Value(dec("0.10000000000000000555111512312578270212")), less},
        {"double 0.30000000000000004 > decimal 0.3", Value(0.1 + 0.2), Value(dec("0.3")), greater},
        // 2^53 + 1 has no double; converting the integer to double would make them equal.
        {"int 2^53+1 > double 2^53", Value(int64_t{9007199254740993}), Value(9007199254740992.0), greater},
        // The nearest double to INT64_MAX is 2^63, one more than the integer.
        {"int64 max < double 2^63", Value(std::numeric_limits<int64_t>::max()), Value(9223372036854775807.0), less},
        {"int64 min = double -2^63", Value(std::numeric_limits<int64_t>::min()), Value(-9223372036854775808.0), same},
        {"int -3 < double -2.5", Value(-3), Value(-2.5), less},
        {"int -2 > double -2.5", Value(-2), Value(-2.5), greater},
        {"int 2 < double 2.5", Value(2), Value(2.5), less},
        {"int 3 > double 2.5", Value(3), Value(2.5), greater},
        {"int < decimal by a ten-thousandth", Value(int64_t{12345678901234567}), Value(dec("12345678901234567.0001")),
         less},
        {"int64 max < decimal 2^63", Value(std::numeric_limits<int64_t>::max()), Value(dec("9223372036854775808")),
         less},
        {"decimal -19.99 < decimal -19.9", Value(dec("-19.99")), Value(dec("-19.9")), less},
        // 1e300 lies far beyond the decimal's exponent range.
        {"double 1e300 > decimal 9e38", Value(1e300), Value(dec("9e38")), greater},
        {"double -1e300 < decimal -9e38", Value(-1e300), Value(dec("-9e38")), less},
        {"double infinity > decimal", Value(std::numeric_limits<double>::infinity()), Value(dec("1e100")), greater},
        // Not-a-number orders first and equals only not-a-number, as the decimal type does.
        {"double nan = double nan", Value(nan), Value(nan), same},
        {"double nan < int 0", Value(nan), Value(0), less},
        {"double nan < double -infinity", Value(nan), Value(-std::numeric_limits<double>::infinity()), less},
        {"double nan = decimal nan", Value(nan), Value(Decimal::notANumber()), same},
        {"decimal nan < int min", Value(Decimal::notANumber()), Value(std::numeric_limits<int64_t>::min()), less},
    });
}

TEST(ValueTest, OtherTypesOrderByContentOrNotAtAll) {
    const auto less = std::partial_ordering::less;
    const auto greater = std::partial_ordering::greater;
    const auto same = std::partial_ordering::equivalent;
    const auto none = std::partial_ordering::unordered;
    NamedObject first;
    NamedObject second;
    checkRows({
        {"a < b", Value("a"), Value("b"), less},
        {"upper case before lower", Value("Z"), Value("a"), less},
        {"prefix first", Value("a"), Value("ab"), less},
        // U+00E9 is 0xC3 0xA9 in UTF-8, above every ASCII byte.
        {"e-acute after z", Value("\xC3\xA9"), Value("z"), greater},
        // U+20AC (3 bytes, 0xE2...) before U+1F600 (4 bytes, 0xF0...): code point order.
        {"euro before emoji", Value("\xE2\x82\xAC"), Value("\xF0\x9F\x98\x80"), less},
        {"strings by bytes", Value("x"), Value(std::string("x")), same},
        {"earlier date", Value(Date(100.0)), Value(Date(100.5)), less},
        {"same date", Value(Date(-5.0)), Value(Date(-5.0)), same},
        {"bytes by content", Value(Bytes{1, 2}), Value(Bytes{1, 3}), less},
        {"shorter bytes first", Value(Bytes{1}), Value(Bytes{1, 0}), less},
        {"bytes unsigned", Value(Bytes{0xFF}), Value(Bytes{0x01, 0x02}), greater},
        {"null = null", Value(), Value(nullptr), same},
        {"null vs zero", Value(), Value(0), none},
        {"null vs empty string", Value(), Value(""), none},
        {"text vs number", Value("1"), Value(1), none},
        {"date vs number", Value(Date(1.0)), Value(1.0), none},
        {"equal arrays", Value(Value::Array{1, "x"}), Value(Value::Array{1.0, "x"}), same},
        {"different arrays", Value(Value::Array{1, "x"}), Value(Value::Array{2, "x"}), none},
        {"array vs longer array", Value(Value::Array{1}), Value(Value::Array{1, 1}), none},
        {"equal dictionaries", Value(Value::Dictionary{{"a", dec("2.50")}}), Value(Value::Dictionary{{"a", 2.5}}),
         same},
        {"dictionaries with other keys", Value(Value::Dictionary{{"a", 1}}), Value(Value::Dictionary{{"b", 1}}), none},
        {"same object", Value(&first), Value(&first), same},
        {"other object", Value(&first), Value(&second), none},
    });
}

TEST(ValueTest, ConversionsFollowNumberAndTextRules) {
    struct Row {
        const char* label;
        Value value;
        bool asBool;
        int64_t asInt;
        double asDouble;
        const char* asDecimal;
        const char* asString;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<Row> rows = {
        {"null", Value(), false, 0, 0.0, "0", ""},
        {"true", Value(true), true, 1, 1.0, "1", "1"},
        {"false", Value(false), false, 0, 0.0, "0", "0"},
        {"negative int", Value(-5), true, -5, -5.0, "-5", "-5"},
        {"double 0.1", Value(0.1), true, 0, 0.1, "0.1", "0.1"},
        {"whole double", Value(1.0), true, 1, 1.0, "1", "1"},
        {"double -12.7 cuts toward zero", Value(-12.7), true, -12, -12.7, "-12.7", "-12.7"},
        {"double 1e30 saturates", Value(1e30), true, std::numeric_limits<int64_t>::max(), 1e30,
         "1000000000000000000000000000000", "1e+30"},
        {"double nan", Value(nan), false, 0, nan, "NaN", "nan"},
        {"decimal -2.5", Value(dec("-2.5")), true, -2, -2.5, "-2.5", "-2.5"},
        {"decimal 1.50 canonical", Value(dec("1.50")), true, 1, 1.5, "1.5", "1.5"},
        {"decimal zero with scale", Value(dec("0.00")), false, 0, 0.0, "0", "0"},
        {"text 12.7", Value("12.7"), true, 12, 12.7, "12.7", "12.7"},
        {"text -12.7", Value("-12.7"), true, -12, -12.7, "-12.7", "-12.7"},
        {"text with blanks", Value(" 42 "), true, 42, 42.0, "42", " 42 "},
        {"text exponent", Value("1e3"), true, 1000, 1000.0, "1000", "1e3"},
        {"text money digits", Value("12345678901234567890.12"), true, std::numeric_limits<int64_t>::max(),
         12345678901234567890.12, "12345678901234567890.12", "12345678901234567890.12"},
        {"text YES", Value("YES"), true, 0, 0.0, "0", "YES"},
        {"text no", Value("no"), false, 0, 0.0, "0", "no"},
        {"text +007", Value("  +007"), true, 7, 7.0, "7", "  +007"},
        {"text t", Value("t"), true, 0, 0.0, "0", "t"},
        {"text 0", Value("0"), false, 0, 0.0, "0", "0"},
        {"text garbage", Value("abc"), false, 0, 0.0, "0", "abc"},
        {"date", Value(Date(0.0)), false, 0, 0.0, "0", "2001-01-01T00:00:00Z"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(row.value.toBool(), row.asBool);
        EXPECT_EQ(row.value.toInt64(), row.asInt);
        if (std::isnan(row.asDouble)) {
            EXPECT_TRUE(std::isnan(row.value.toDouble()));
        } else {
            EXPECT_EQ(row.value.toDouble(), row.asDouble);
        }
        EXPECT_EQ(row.value.toDecimal().toString(), row.asDecimal);
        EXPECT_EQ(row.value.toString(), row.asString);
    }
}

TEST(ValueTest, DescriptionRendersNestedValues) {
    NamedObject object;
    const Value value(Value::Dictionary{
        {"a", Value::Array{1, "x\"y\n"}},
        {"b", Value()},
        {"c", Value(Bytes{0x00, 0xAB})},
        {"d", Value(dec("-0.50"))},
        {"e", Value(&object)},
        {"f", Value(false)},
    });
    EXPECT_EQ(value.description(),
              R"({"a": [1, "x\"y\n"], "b": null, "c": <00ab>, "d": -0.5, "e": <NamedObject>, "f": false})");
    // toString of a container is its description; of a string, the string itself.
    EXPECT_EQ(Value(Value::Array{"a"}).toString(), R"(["a"])");
    EXPECT_EQ(Value("a").description(), R"("a")");
}

TEST(ValueTest, MembersAndElementsAnswerNullWhenAbsent) {
    const Value value(Value::Dictionary{{"list", Value::Array{10, 20}}});
    EXPECT_EQ(value.count(), 1u);
    EXPECT_EQ(value["list"].count(), 2u);
    EXPECT_EQ(value["list"][1], Value(20));
    EXPECT_TRUE(value["list"][2].isNull());
    EXPECT_TRUE(value["missing"].isNull());
    EXPECT_TRUE(value[0].isNull());  // Not an array.
    EXPECT_TRUE(Value("text")["key"].isNull());
    EXPECT_EQ(Value("text").count(), 0u);
    EXPECT_TRUE(Value(static_cast<Object*>(nullptr)).isNull());
    // Copies share their storage, which archives rely on to write a shared part once.
    const Value copy = value["list"];
    EXPECT_EQ(copy.sharedIdentity(), value["list"].sharedIdentity());
    EXPECT_EQ(Value(5).sharedIdentity(), nullptr);
}

}  // namespace valuetest
}  // namespace brassline
