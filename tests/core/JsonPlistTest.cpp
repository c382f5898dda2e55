#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>

#include <gtest/gtest.h>
#include <unistd.h>

#include "PythonCheck.h"
#include "core/Log.h"
#include "core/Value.h"

namespace brassline {
namespace jsonplisttest {

Decimal dec(std::string_view text) {
    return Decimal::parse(text).value_or(Decimal::notANumber());
}

// Equal and of the same type all the way down: == alone lets 1 equal 1.0.
void expectSameValue(const Value& actual, const Value& expected) {
    ASSERT_EQ(actual.type(), expected.type()) << actual.description() << " vs " << expected.description();
    EXPECT_EQ(actual, expected) << actual.description() << " vs " << expected.description();
    if (expected.array() != nullptr) {
        ASSERT_EQ(actual.count(), expected.count());
        for (size_t i = 0; i < expected.count(); ++i) {
            expectSameValue(actual[i], expected[i]);
        }
    } else if (expected.dictionary() != nullptr) {
        ASSERT_EQ(actual.count(), expected.count());
        for (const auto& [key, member] : *expected.dictionary()) {
            SCOPED_TRACE(key);
            expectSameValue(actual[key], member);
        }
    }
}

TEST(JsonTest, NumbersKeepEveryDigit) {
    struct Row {
        const char* json;
        Value::Type type;
        const char* text;  // Decimal or integer text of the parsed number.
    };
    const std::vector<Row> rows = {
        {"0.1", Value::Type::Decimal, "0.1"},
        {"12345678901234567890.12", Value::Type::Decimal, "12345678901234567890.12"},
        {"-0.005", Value::Type::Decimal, "-0.005"},
        {"19.90", Value::Type::Decimal, "19.9"},
        {"1e-3", Value::Type::Decimal, "0.001"},
        {"1.5E+2", Value::Type::Decimal, "150"},
        {"100", Value::Type::Integer, "100"},
        {"-42", Value::Type::Integer, "-42"},
        {"9223372036854775807", Value::Type::Integer, "9223372036854775807"},
        // Past int64: the unsigned range and beyond both become exact decimals.
        {"9223372036854775808", Value::Type::Decimal, "9223372036854775808"},
        {"18446744073709551616", Value::Type::Decimal, "18446744073709551616"},
        {"-9223372036854775809", Value::Type::Decimal, "-9223372036854775809"},
        {"123456789012345678901234567890.5", Value::Type::Decimal, "123456789012345678901234567890.5"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.json);
        std::string error;
        const std::optional<Value> value = Value::fromJSON(row.json, &error);
        ASSERT_TRUE(value.has_value()) << error;
        EXPECT_EQ(value->type(), row.type);
        EXPECT_EQ(value->toString(), row.text);
    }
    // Beyond the decimal's exponent range only the double remains.
    const std::optional<Value> huge = Value::fromJSON("1e200");
    ASSERT_TRUE(huge.has_value());
    EXPECT_EQ(huge->type(), Value::Type::Double);
    EXPECT_EQ(*huge->real(), 1e200);
}

TEST(JsonTest, MalformedTextAnswersNothingWithReason) {
    const std::string deep(600, '[');
    const std::vector<std::string> inputs = {
        "",    "{",          "[1,]",     "{\"a\" 1}", "nul",   "\"unterminated",
        "1 2", "{\"a\":1}}", "\"\xFF\"", "[1e999]",   "{1:2}", deep,
    };
    LogCapture capture;
    for (const std::string& input : inputs) {
        SCOPED_TRACE(input.substr(0, 20));
        std::string error;
        EXPECT_FALSE(Value::fromJSON(input, &error).has_value());
        EXPECT_NE(error.find("Malformed JSON"), std::string::npos) << error;
    }
    EXPECT_TRUE(capture.contains("Malformed JSON"));
    std::string error;
    EXPECT_FALSE(Value::fromJSON(deep, &error).has_value());
    EXPECT_NE(error.find("nested deeper"), std::string::npos) << error;
}

TEST(JsonTest, WritesEveryTypeAndReadsBack) {
    const Value value(Value::Dictionary{
        {"amount", dec("12345678901234567890.12")},
        {"count", 3},
        {"flag", true},
        {"nothing", Value()},
        {"ratio", 0.25},
        {"text", "quote \" backslash \\ newline \n tab \t \x01 caf\xC3\xA9"},
        {"when", Date(730987200.0)},  // 2024-03-01T12:00:00Z, see PropertyListTest below.
        {"bytes", Bytes{0x00, 0xFF, 0x10, 0x41}},
        {"list", Value::Array{1, "two", Value::Array{}}},
        {"empty", Value::Dictionary{}},
    });
    // Base64 of 00 FF 10 41: 000000 001111 111100 010000 | 010000 01(0000) = "AP8QQQ==".
    const std::string expected =
        R"({"amount":12345678901234567890.12,"bytes":"AP8QQQ==","count":3,"empty":{},"flag":true,)"
        R"("list":[1,"two",[]],"nothing":null,"ratio":0.25,)"
        R"("text":"quote \" backslash \\ newline \n tab \t \u0001 café","when":"2024-03-01T12:00:00Z"})";
    EXPECT_EQ(value.toJSON(), expected);

    const std::optional<Value> back = Value::fromJSON(value.toJSON(true));
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->type(), Value::Type::Dictionary);
    EXPECT_EQ((*back)["amount"].toString(), "12345678901234567890.12");
    expectSameValue((*back)["count"], Value(3));
    expectSameValue((*back)["ratio"], Value(dec("0.25")));
    expectSameValue((*back)["text"], value["text"]);
    expectSameValue((*back)["list"], value["list"]);
    EXPECT_TRUE((*back)["nothing"].isNull());
    EXPECT_EQ((*back)["when"], Value("2024-03-01T12:00:00Z"));
}

TEST(JsonTest, PrettyOutputIndentsByTwo) {
    const Value value(Value::Dictionary{{"a", Value::Array{1, Value::Dictionary{{"b", "c"}}}}, {"d", Value::Array{}}});
    EXPECT_EQ(value.toJSON(true), "{\n  \"a\": [\n    1,\n    {\n      \"b\": \"c\"\n    }\n  ],\n  \"d\": []\n}");
    // Numbers JSON cannot write become null; an invalid UTF-8 byte becomes U+FFFD.
    const Value odd(Value::Array{std::numeric_limits<double>::infinity(), Decimal::notANumber(), "\xFF"});
    EXPECT_EQ(odd.toJSON(), "[null,null,\"\xEF\xBF\xBD\"]");
}

// 2024-03-01T12:00:00Z: 2001 to 2023 are 23 years with 5 leap days = 8400 days, then 31
// days of January and 29 of February 2024 = 8460 days = 730944000 s, plus 12 h = 730987200.
constexpr double kMarchFirstNoon = 730987200.0;

Value samplePlist() {
    return Value(Value::Dictionary{
        {"name", "Müller & Söhne <GmbH>"},
        {"count", -17},
        {"big", std::numeric_limits<int64_t>::max()},
        {"ratio", 0.1},
        {"flag", false},
        {"when", Date(kMarchFirstNoon)},
        {"data", Bytes{0, 1, 2, 254, 255}},
        {"items", Value::Array{Value::Dictionary{{"qty", 2}, {"tags", Value::Array{"a", "b"}}}, Value::Array{}, true}},
        {"empty", Value::Dictionary{}},
    });
}

TEST(PropertyListTest, XMLAndBinaryRoundTrip) {
    const Value value = samplePlist();
    const std::string xml = value.toXMLPropertyList();
    EXPECT_NE(xml.find("<key>name</key>"), std::string::npos);
    EXPECT_NE(xml.find("Müller &amp; Söhne &lt;GmbH&gt;"), std::string::npos);
    const std::optional<Value> fromXML = Value::fromPropertyList(Bytes(xml.begin(), xml.end()));
    ASSERT_TRUE(fromXML.has_value());
    expectSameValue(*fromXML, value);

    const Bytes binary = value.toBinaryPropertyList();
    ASSERT_GE(binary.size(), 8u);
    EXPECT_EQ(std::string(binary.begin(), binary.begin() + 8), "bplist00");
    const std::optional<Value> fromBinary = Value::fromPropertyList(binary);
    ASSERT_TRUE(fromBinary.has_value());
    expectSameValue(*fromBinary, value);
}

TEST(PropertyListTest, TypesWithoutPlistFormFollowTheirRules) {
    struct Row {
        const char* label;
        Value written;
        Value read;  // What comes back from either form.
    };
    const std::vector<Row> rows = {
        {"whole decimal as integer", Value(dec("42.00")), Value(42)},
        {"negative whole decimal", Value(dec("-7")), Value(-7)},
        {"fractional decimal as real", Value(dec("2.5")), Value(2.5)},
        {"decimal past int64 as real", Value(dec("1e20")), Value(1e20)},
        {"null left out of a dictionary", Value(Value::Dictionary{{"a", Value()}, {"b", 1}}),
         Value(Value::Dictionary{{"b", 1}})},
        {"null left out of an array", Value(Value::Array{Value(), 1, Value()}), Value(Value::Array{1})},
        {"UID dictionary", Value(Value::Dictionary{{"CF$UID", 7}}), Value(Value::Dictionary{{"CF$UID", 7}})},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        const std::string xml = row.written.toXMLPropertyList();
        const std::optional<Value> fromXML = Value::fromPropertyList(Bytes(xml.begin(), xml.end()));
        ASSERT_TRUE(fromXML.has_value());
        expectSameValue(*fromXML, row.read);
        const std::optional<Value> fromBinary = Value::fromPropertyList(row.written.toBinaryPropertyList());
        ASSERT_TRUE(fromBinary.has_value());
        expectSameValue(*fromBinary, row.read);
    }
    EXPECT_TRUE(Value().toXMLPropertyList().empty());
    EXPECT_TRUE(Value().toBinaryPropertyList().empty());
}

TEST(PropertyListTest, BinaryDatesKeepFractionsOnBothSidesOfTheReferenceDate) {
    // Halves and quarters are exact in binary, so the microsecond step loses nothing.
    for (const double seconds : {kMarchFirstNoon + 0.5, -100.5, -0.25, 0.75, -978307200.0}) {
        SCOPED_TRACE(seconds);
        const std::optional<Value> back = Value::fromPropertyList(Value(Date(seconds)).toBinaryPropertyList());
        ASSERT_TRUE(back.has_value());
        ASSERT_NE(back->date(), nullptr);
        // Within one second of the reference date the sign of a fraction is not kept.
        const double expected = seconds == -0.25 ? 0.25 : seconds;
        EXPECT_EQ(back->date()->timeIntervalSinceReferenceDate(), expected);
    }
}

TEST(PropertyListTest, ReadsThePlatformsXML) {
    const std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>Active</key>
	<true/>
	<key>Balance</key>
	<real>-12.5</real>
	<key>Count</key>
	<integer>-5</integer>
	<key>Created</key>
	<date>2024-03-01T12:00:00Z</date>
	<key>Blob</key>
	<data>AAEC</data>
	<key>Names</key>
	<array>
		<string>Ada</string>
		<string></string>
	</array>
</dict>
</plist>
)";
    const std::optional<Value> value = Value::fromPropertyList(Bytes(xml.begin(), xml.end()));
    ASSERT_TRUE(value.has_value());
    expectSameValue(*value, Value(Value::Dictionary{
                                {"Active", true},
                                {"Balance", -12.5},
                                {"Count", -5},
                                {"Created", Date(kMarchFirstNoon)},
                                {"Blob", Bytes{0, 1, 2}},
                                {"Names", Value::Array{"Ada", ""}},
                            }));
}

TEST(PropertyListTest, RefusesWhatIsNoPropertyList) {
    LogCapture capture;
    const std::vector<std::string> inputs = {"", "hello", "bplist00", "<plist><dict><key>a</key></plist>",
                                             std::string("\0\0\0", 3)};
    for (const std::string& input : inputs) {
        SCOPED_TRACE(input);
        std::string error;
        EXPECT_FALSE(Value::fromPropertyList(Bytes(input.begin(), input.end()), &error).has_value());
        EXPECT_FALSE(error.empty());
    }
    EXPECT_FALSE(capture.lines().empty());
}

using pythoncheck::hasPython;
using pythoncheck::runPython;

TEST(PropertyListTest, BinaryOutputReadsInPythonsPlistlib) {
    if (!hasPython()) {
        GTEST_SKIP() << "python3 with plistlib is not available";
    }
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("brassline-plist-" + std::to_string(::getpid()));
    const Bytes binary = samplePlist().toBinaryPropertyList();
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(binary.data()), static_cast<std::streamsize>(binary.size()));
    const std::string output = runPython(R"(import plistlib, sys
d = plistlib.load(open(sys.argv[1], 'rb'))
for k in sorted(d):
    print(k, repr(d[k]))
)",
                                         path);
    std::filesystem::remove(path);
    EXPECT_EQ(output,
              "big 9223372036854775807\n"
              "count -17\n"
              "data b'\\x00\\x01\\x02\\xfe\\xff'\n"
              "empty {}\n"
              "flag False\n"
              "items [{'qty': 2, 'tags': ['a', 'b']}, [], True]\n"
              "name 'Müller & Söhne <GmbH>'\n"
              "ratio 0.1\n"
              "when datetime.datetime(2024, 3, 1, 12, 0)\n");
}

}  // namespace jsonplisttest
}  // namespace brassline
