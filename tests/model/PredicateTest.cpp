#include <gtest/gtest.h>

#include "core/Log.h"
#include "model/Predicate.h"

namespace brassline {
namespace predicate_test {

class Record : public Object {
public:
    explicit Record(Value::Dictionary values) : m_values(std::move(values)) {}
    Value valueForKey(std::string_view key) const override {
        auto found = m_values.find(key);
        return found == m_values.end() ? Value() : found->second;
    }
    std::string_view className() const override { return "Record"; }

private:
    Value::Dictionary m_values;
};

Decimal dec(std::string_view text) {
    return *Decimal::parse(text);
}

// 2024-03-01 00:00:00 UTC: 8461 days after 2001-01-01.
const Date kMarch1(8461.0 * 86400.0);

class PredicateTest : public ::testing::Test {
protected:
    PredicateTest()
        : m_child1({{"cost", 2}, {"name", "Ärger"}}),
          m_child2({{"cost", dec("10")}, {"name", "bolt"}}),
          m_child3({{"cost", dec("0.5")}, {"name", "nut"}}),
          m_client(Value::Dictionary{{"name", "Müller & Söhne"}}),
          m_record({{"name", "Müller & Söhne"},
                    {"city", "Zürich"},
                    {"street", "Hauptstraße"},
                    {"quote", "it's \"x\""},
                    {"amount", dec("150.50")},
                    {"count", 3},
                    {"ratio", 0.5},
                    {"flag", true},
                    {"date", kMarch1},
                    {"tags", Value::Array{"a", "b"}},
                    {"childs", Value::Array{&m_child1, &m_child2, &m_child3}},
                    {"empty", Value::Array{}},
                    {"client", Value(&m_client)},
                    {"contains", "x"}}) {}

    bool evaluate(const char* format, const std::vector<Value>& arguments = {}) {
        std::string error;
        auto predicate = Predicate::parse(format, arguments, &error);
        EXPECT_TRUE(predicate.has_value()) << error;
        return predicate && predicate->evaluate(Value(&m_record));
    }

    Record m_child1, m_child2, m_child3, m_client, m_record;
};

TEST_F(PredicateTest, ComparesNumbersAcrossTypesAndNil) {
    struct Row {
        const char* format;
        bool expected;
    };
    const Row rows[] = {
        {"amount == 150.5", true},
        {"amount = 150.50", true},
        {"amount > 150", true},
        {"amount < 150.5", false},
        {"amount <= 150.5", true},
        {"amount =< 150.5", true},
        {"amount >= 151", false},
        {"amount => 150.5", true},
        {"amount != 150.5", false},
        {"amount <> 1", true},
        {"count == 3.0", true},
        {"count < 3.5", true},
        {"count > -4", true},
        {"ratio == 0.5", true},
        {"ratio > 0.49", true},
        {"ratio < 5e-1", false},
        {"flag == YES", true},
        {"flag == true", true},
        {"flag == NO", false},
        {"amount > 1.5e2", true},
        // Strings and numbers never equal, never order.
        {"name == 5", false},
        {"name != 5", true},
        {"name > 5", false},
        {"name < 5", false},
        {"amount == '150.5'", false},
        {"amount < 'x'", false},
        {"date < 5", false},
        {"date > 'a'", false},
        // nil: equal only to nil, unordered with everything.
        {"missing == nil", true},
        {"missing = NULL", true},
        {"missing != nil", false},
        {"name != nil", true},
        {"name == nil", false},
        {"missing < 5", false},
        {"missing > 5", false},
        {"missing >= nil", false},
        {"missing != 5", true},
        {"nil == missing", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(evaluate(row.format), row.expected);
    }
}

TEST_F(PredicateTest, StringOperatorsWithCaseAndDiacriticOptions) {
    struct Row {
        const char* format;
        bool expected;
    };
    const Row rows[] = {
        {"name BEGINSWITH 'Mül'", true},
        {"name BEGINSWITH 'mul'", false},
        {"name BEGINSWITH[c] 'mül'", true},
        {"name BEGINSWITH[c] 'mul'", false},
        {"name BEGINSWITH[d] 'Mul'", true},
        {"name BEGINSWITH[cd] 'MUL'", true},
        {"name ENDSWITH 'Söhne'", true},
        {"name ENDSWITH[cd] 'SOHNE'", true},
        {"name ENDSWITH 'Müller & Söhne and more'", false},
        {"name CONTAINS '&'", true},
        {"name CONTAINS 'mül'", false},
        {"name CONTAINS[cd] 'mül'", true},
        {"name contains[CD] 'LLER & SO'", true},
        {"client.name CONTAINS[cd] 'mul'", true},
        {"city LIKE 'Z*h'", true},
        {"city LIKE 'Z?rich'", true},  // ? takes the whole ü.
        {"city LIKE 'Z??rich'", false},
        {"city LIKE 'Zurich'", false},
        {"city LIKE[d] 'Zurich'", true},
        {"city LIKE[c] 'z*'", true},
        {"city LIKE '*'", true},
        {"city LIKE 'Z*r*h'", true},
        {"city LIKE 'Z*x*'", false},
        {"quote LIKE 'it\\'s*'", true},
        {"quote LIKE 'it?s \\\"x\\\"'", true},
        {"city MATCHES 'Z.*'", true},
        {"city MATCHES 'Zür'", false},  // The whole string must match.
        {"city MATCHES[c] 'zürich'", true},
        {"city MATCHES 'zürich'", false},
        {"city MATCHES[cd] 'zurich'", true},
        {"city == 'ZÜRICH'", false},
        {"city ==[c] 'ZÜRICH'", true},
        {"city ==[d] 'Zurich'", true},
        {"city ==[cd] 'ZURICH'", true},
        {"city !=[cd] 'ZURICH'", false},
        // Code point order: ü sorts after z unless diacritics are folded.
        {"city <[c] 'ZZ'", false},
        {"city <[cd] 'ZZ'", true},
        {"city < 'Zz'", false},
        {"city > 'Zürich'", false},
        // Full case folding: ß folds to ss.
        {"street ==[c] 'HAUPTSTRASSE'", true},
        {"street ==[c] 'HAUPTSTRAßE'", true},
        {"street == 'Hauptstrasse'", false},
        {"name CONTAINS 5", false},
        {"amount BEGINSWITH '1'", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(evaluate(row.format), row.expected);
    }
}

TEST_F(PredicateTest, InBetweenAggregatesAndCollectionModifiers) {
    struct Row {
        const char* format;
        bool expected;
    };
    const Row rows[] = {
        {"count IN {1, 2, 3}", true},
        {"count IN {1, 2}", false},
        {"count IN {}", false},
        {"city IN {'Bern', 'Zürich'}", true},
        {"city IN {'zürich'}", false},
        {"city IN[c] {'zürich'}", true},
        {"'rich' IN city", true},
        {"'RICH' IN[c] city", true},
        {"tags CONTAINS 'a'", true},
        {"tags CONTAINS 'c'", false},
        {"'b' IN tags", true},
        {"amount BETWEEN {100, 200}", true},
        {"amount BETWEEN {150.5, 150.5}", true},
        {"amount BETWEEN {151, 200}", false},
        {"count BETWEEN {count, 4}", true},  // A bound read from the object.
        {"missing BETWEEN {1, 2}", false},
        // Costs are 2, 10 and 0.5.
        {"ANY childs.cost > 9", true},
        {"ANY childs.cost > 10", false},
        {"SOME childs.cost == 2", true},
        {"ALL childs.cost > 0.4", true},
        {"ALL childs.cost > 0.5", false},
        {"NONE childs.cost > 100", true},
        {"NONE childs.cost >= 10", false},
        {"ANY childs.name BEGINSWITH[cd] 'arg'", true},
        {"ANY empty.cost > 5", false},
        {"ALL empty.cost > 5", true},
        {"NONE empty.cost > 5", true},
        {"ANY missing > 5", false},
        // A missing collection is an empty one: ALL and NONE hold over it whatever the
        // comparison, nil included, and their negations fail.
        {"ALL missing > 5", true},
        {"NONE missing > 5", true},
        {"ALL missing == nil", true},
        {"NONE missing == nil", true},
        {"ANY missing == nil", false},
        {"NOT ALL missing > 5", false},
        {"NOT NONE missing > 5", false},
        {"ALL empty.name == nil", true},
        // A single value is a collection of one.
        {"ALL city == 'Zürich'", true},
        {"NONE city == 'Zürich'", false},
        {"NONE city == 'Bern'", true},
        {"ANY city == 'Bern'", false},
        {"childs.@count == 3", true},
        {"childs.@count > 3", false},
        {"empty.@count == 0", true},
        {"childs.@sum.cost == 12.5", true},
        {"childs.@max.cost == 10", true},
        {"childs.@min.cost == 0.5", true},
        {"childs.@avg.cost > 4.16", true},  // 12.5 / 3 = 4.1666...
        {"childs.@avg.cost < 4.17", true},
        {"empty.@sum.cost == 0", true},
        {"date BETWEEN {%@, %@}", true},
        {"date > %@", true},
        {"date == %@", false},
    };
    const std::vector<Value> dateArguments = {Value(Date(kMarch1.timeIntervalSinceReferenceDate() - 1)),
                                              Value(Date(kMarch1.timeIntervalSinceReferenceDate() + 1))};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        EXPECT_EQ(evaluate(row.format, dateArguments), row.expected);
    }
    EXPECT_TRUE(evaluate("date == %@", {Value(kMarch1)}));
    EXPECT_TRUE(evaluate("date >= CAST(730944000, \"NSDate\")"));  // 8460 days: the day before.
    EXPECT_FALSE(evaluate("date < CAST(731030400, \"NSDate\")"));  // 8461 days: the same instant.
}

TEST_F(PredicateTest, CompoundsKeywordsArgumentsAndSelf) {
    struct Row {
        const char* format;
        std::vector<Value> arguments;
        bool expected;
    };
    const Row rows[] = {
        {"amount > 100 AND count == 3", {}, true},
        {"amount > 100 and count == 4", {}, false},
        {"amount > 200 OR count == 3", {}, true},
        {"NOT amount > 200", {}, true},
        {"not (amount > 100)", {}, false},
        {"!(amount > 200)", {}, true},
        {"!!(amount > 200)", {}, false},
        // AND binds tighter than OR: false || (true && false).
        {"amount > 200 || count == 3 && flag == NO", {}, false},
        {"(amount > 200 || count == 3) && flag == YES", {}, true},
        {"TRUEPREDICATE", {}, true},
        {"falsepredicate", {}, false},
        {"FALSEPREDICATE OR TRUEPREDICATE", {}, true},
        {"#contains == 'x'", {}, true},
        {"SELF.count == 3", {}, true},
        {"%K == %@", {"city", "Zürich"}, true},
        {"%K.name CONTAINS %@", {"client", "Söhne"}, false},  // %K takes the whole path only.
        {"%K == %@", {"client.name", "Müller & Söhne"}, true},
        {"amount > %@", {100}, true},
        {"amount > %@", {150.49}, true},
        {"amount < %@", {dec("150.51")}, true},
        {"name == %@", {Value()}, false},
        {"missing == %@", {Value()}, true},
        {"count IN %@", {Value::Array{1, 3}}, true},
        {"quote == 'it\\'s \"x\"'", {}, true},
        {"quote == \"it's \\\"x\\\"\"", {}, true},
        {"name == 'M\\u00fcller & S\\u00f6hne'", {}, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        std::string error;
        LogCapture capture;
        auto predicate = Predicate::parse(row.format, row.arguments, &error);
        if (std::string_view(row.format).starts_with("%K.name")) {
            EXPECT_FALSE(predicate.has_value());
            continue;
        }
        ASSERT_TRUE(predicate.has_value()) << error;
        EXPECT_EQ(predicate->evaluate(Value(&m_record)), row.expected);
    }
    // SELF over plain values and dictionaries.
    EXPECT_TRUE(Predicate::parse("SELF BEGINSWITH 'ab'")->evaluate(Value("abc")));
    EXPECT_TRUE(Predicate::parse("SELF IN {1, 2}")->evaluate(Value(2)));
    EXPECT_FALSE(Predicate::parse("SELF == nil")->evaluate(Value(0)));
    Value dictionary(Value::Dictionary{{"a", Value(Value::Dictionary{{"b", 3}})}});
    EXPECT_TRUE(Predicate::parse("a.b == 3")->evaluate(dictionary));
    EXPECT_TRUE(Predicate::truePredicate().evaluate(Value()));
    EXPECT_FALSE(Predicate::falsePredicate().evaluate(Value()));
}

TEST_F(PredicateTest, SubstitutesVariables) {
    auto predicate = Predicate::parse("amount > $LIMIT AND city IN {$CITY, 'Bern'}");
    ASSERT_TRUE(predicate.has_value());
    EXPECT_FALSE(predicate->evaluate(Value(&m_record)));  // Unsubstituted: nil.
    Predicate low = predicate->predicateWithSubstitutionVariables({{"LIMIT", 100}, {"CITY", "Zürich"}});
    Predicate high = predicate->predicateWithSubstitutionVariables({{"LIMIT", 200}, {"CITY", "Zürich"}});
    Predicate elsewhere = predicate->predicateWithSubstitutionVariables({{"LIMIT", 100}});
    EXPECT_TRUE(low.evaluate(Value(&m_record)));
    EXPECT_FALSE(high.evaluate(Value(&m_record)));
    EXPECT_FALSE(elsewhere.evaluate(Value(&m_record)));
    EXPECT_EQ(low.predicateFormat(), "amount > 100 AND city IN {\"Zürich\", \"Bern\"}");
    EXPECT_EQ(predicate->predicateFormat(), "amount > $LIMIT AND city IN {$CITY, \"Bern\"}");
    // Options are applied to substituted constants too.
    auto folded = Predicate::parse("name CONTAINS[cd] $TEXT");
    EXPECT_TRUE(folded->predicateWithSubstitutionVariables({{"TEXT", "MULLER"}}).evaluate(Value(&m_record)));
}

TEST_F(PredicateTest, CanonicalFormatReadsBackEquivalently) {
    struct Row {
        const char* format;
        std::vector<Value> arguments;
        const char* canonical;
    };
    const Row rows[] = {
        {"name contains[cd] 'x' and not (amount > 5)", {}, "name CONTAINS[cd] \"x\" AND NOT amount > 5"},
        {"a = 1 OR b <> 2 AND c =< 3", {}, "a == 1 OR b != 2 AND c <= 3"},
        {"(a = 1 OR b = 2) AND c => 3", {}, "(a == 1 OR b == 2) AND c >= 3"},
        {"any childs.cost > 1.50", {}, "ANY childs.cost > 1.5"},
        {"SOME childs.cost > 1", {}, "ANY childs.cost > 1"},
        {"none childs.@sum.cost BETWEEN {1, 2}", {}, "NONE childs.@sum.cost BETWEEN {1, 2}"},
        {"#contains == nil && flag == yes", {}, "#contains == nil AND flag == YES"},
        {"city LIKE[c] 'a*\"b'", {}, "city LIKE[c] \"a*\\\"b\""},
        {"city MATCHES %@", {"Z.*"}, "city MATCHES \"Z.*\""},
        {"amount > %@", {0.1}, "amount > 0.1"},
        {"date > %@", {Value(kMarch1)}, "date > CAST(731030400, \"NSDate\")"},
        {"count IN %@", {Value::Array{1, "two", Value()}}, "count IN {1, \"two\", nil}"},
        {"SELF.count == -3", {}, "count == -3"},
        {"SELF != 'line\nbreak\t\x01'", {}, "SELF != \"line\\nbreak\\t\\u0001\""},
        {"TRUEPREDICATE", {}, "TRUEPREDICATE"},
        {"NOT NOT FALSEPREDICATE", {}, "NOT NOT FALSEPREDICATE"},
        {"!(a = 1 || b = 2) AND ((c = 3 AND d = 4))", {}, "NOT (a == 1 OR b == 2) AND (c == 3 AND d == 4)"},
        {"(a = 1 AND b = 2) OR (c = 3 OR d = 4)", {}, "a == 1 AND b == 2 OR (c == 3 OR d == 4)"},
        {"%K == 1", {"order.in"}, "order.#in == 1"},
    };
    std::vector<Value> objects = {Value(&m_record), Value(&m_child1), Value(&m_client), Value(),
                                  Value(Value::Dictionary{{"a", 1}, {"c", 3}, {"count", -3}})};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format);
        std::string error;
        auto predicate = Predicate::parse(row.format, row.arguments, &error);
        ASSERT_TRUE(predicate.has_value()) << error;
        std::string text = predicate->predicateFormat();
        EXPECT_EQ(text, row.canonical);
        auto again = Predicate::parse(text, {}, &error);
        ASSERT_TRUE(again.has_value()) << error;
        EXPECT_EQ(again->predicateFormat(), text);
        for (const auto& object : objects) {
            EXPECT_EQ(again->evaluate(object), predicate->evaluate(object)) << object.description();
        }
    }
}

TEST_F(PredicateTest, DeepButAllowedNestingReadsBack) {
    // 150 negations and 40 parenthesised ORs: the canonical text nests no deeper.
    std::string format = std::string(150, '!') + "(" + std::string(40, '(') + "count == 3";
    for (int i = 0; i < 40; ++i) {
        format += " OR count == 4)";
    }
    format += ")";
    std::string error;
    auto predicate = Predicate::parse(format, {}, &error);
    ASSERT_TRUE(predicate.has_value()) << error;
    auto again = Predicate::parse(predicate->predicateFormat(), {}, &error);
    ASSERT_TRUE(again.has_value()) << error;
    // An even number of negations of a true condition.
    EXPECT_TRUE(predicate->evaluate(Value(&m_record)));
    EXPECT_TRUE(again->evaluate(Value(&m_record)));
}

TEST_F(PredicateTest, MalformedInputAnswersAMessage) {
    struct Row {
        std::string format;
        std::vector<Value> arguments;
        const char* fragment;  // Part of the expected message.
    };
    const std::vector<Row> rows = {
        {"", {}, "position 0: expected a value or key path"},
        {"   ", {}, "expected a value or key path"},
        {"amount >", {}, "position 8: expected a value or key path"},
        {"amount > 'abc", {}, "position 9: unterminated string"},
        {"(amount > 5", {}, "expected ')'"},
        {"amount > 5)", {}, "position 10: expected the end of the predicate"},
        {"amount ~ 5", {}, "position 7: expected a comparison operator"},
        {"amount", {}, "expected a comparison operator"},
        {"amount == 5 AND", {}, "expected a value or key path"},
        {"AND amount == 5", {}, "reserved word"},
        {"contains == 1", {}, "'contains' is a reserved word; write #contains"},
        {"name CONTAINS[x] 'a'", {}, "expected an option letter"},
        {"name CONTAINS[c 'a'", {}, "expected an option letter"},
        {"name CONTAINS[c", {}, "']' closing the options"},
        {"amount == %@", {}, "no argument left for %@ (0 given)"},
        {"%K == %@", {5, 1}, "must be a string naming a key path"},
        {"%K == 1", {"a..b"}, "bad key path"},
        {"%K == 1", {"first name"}, "\"first name\" is not a key name"},
        {"amount == %x", {1}, "expected %@, %K"},
        {"city MATCHES '('", {}, "invalid regular expression"},
        {"amount BETWEEN {1}", {}, "BETWEEN needs two bounds"},
        {"amount BETWEEN 5", {}, "BETWEEN needs two bounds"},
        {"a..b == 1", {}, "position 2: expected a key"},
        {"childs.@bogus.cost > 1", {}, "unknown collection operator"},
        {"$ == 1", {}, "expected a variable name"},
        {"amount == 12abc", {}, "expected a number"},
        {"amount == {1, 2", {}, "expected ',' or '}'"},
        {"CAST(1, 'NSString') == a", {}, "CAST supports only"},
        {"a == '\\u12'", {}, "four hexadecimal digits"},
        {"a == '\\ud800'", {}, "lone surrogate"},
        {"a == 1e999", {}, "out of range"},
        {std::string(300, '(') + "a == 1" + std::string(300, ')'), {}, "nesting deeper than 200 levels"},
        {std::string(100000, '!') + "a == 1", {}, "nesting deeper than 200 levels"},
        {"a IN " + std::string(300, '{'), {}, "nesting deeper than 200 levels"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.format.substr(0, 40));
        LogCapture capture;
        std::string error;
        auto predicate = Predicate::parse(row.format, row.arguments, &error);
        EXPECT_FALSE(predicate.has_value());
        EXPECT_NE(error.find(row.fragment), std::string::npos) << error;
        EXPECT_TRUE(capture.contains(row.fragment));
    }
}

}  // namespace predicate_test
}  // namespace brassline

namespace brassline {
namespace predicate_test {

TEST(PredicateFoldingTest, TableAndICUFoldAlike) {
    // Text below U+0800 folds by table, text with anything above through ICU; the CJK
    // suffix sends the same letters down the second path.
    auto predicate = Predicate::parse("SELF BEGINSWITH[cd] 'aeiouss' AND SELF CONTAINS[c] 'ÀÉÎ'");
    ASSERT_TRUE(predicate.has_value());
    for (const char* text : {"ÀÉÎÕÜß", "àéîõüSS", "ÀÉÎÕÜß漢字", "ÀÉÎÕÜSS€"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(predicate->evaluate(Value(text)));
    }
    // Combining marks are removed by [d], kept by [c] alone; Greek and Cyrillic fold too.
    EXPECT_TRUE(Predicate::parse("SELF ==[cd] 'e'")->evaluate(Value("E\xCC\x81")));
    EXPECT_FALSE(Predicate::parse("SELF ==[c] 'e'")->evaluate(Value("E\xCC\x81")));
    EXPECT_TRUE(Predicate::parse("SELF ==[cd] 'αθηνα'")->evaluate(Value("ΑΘΗΝΑ")));
    EXPECT_TRUE(Predicate::parse("SELF ==[c] 'москва'")->evaluate(Value("МОСКВА")));
    EXPECT_TRUE(Predicate::parse("SELF ==[cd] 'йод'")->evaluate(Value("ЙОД")) ||
                Predicate::parse("SELF ==[cd] 'иод'")->evaluate(Value("ЙОД")));
}

}  // namespace predicate_test
}  // namespace brassline
