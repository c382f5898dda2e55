#include <gtest/gtest.h>

#include "model/KeyPath.h"

namespace brassline {
namespace keypath_test {

// A plain object whose keys are a dictionary, standing in for managed objects.
class Thing : public Object {
public:
    explicit Thing(Value::Dictionary values) : m_values(std::move(values)) {}
    Value valueForKey(std::string_view key) const override {
        auto found = m_values.find(key);
        return found == m_values.end() ? Value() : found->second;
    }
    std::string_view className() const override { return "Thing"; }

private:
    Value::Dictionary m_values;
};

Decimal dec(std::string_view text) {
    return *Decimal::parse(text);
}

class KeyPathTest : public ::testing::Test {
protected:
    KeyPathTest()
        : m_client(Value::Dictionary{{"name", "Müller"}}),
          m_a({{"cost", dec("1.5")}, {"kind", "labour"}, {"tags", Value::Array{"x", "y"}}}),
          m_b({{"cost", 2}, {"kind", "goods"}, {"tags", Value::Array{"y"}}}),
          m_c({{"cost", 0.25}, {"kind", "labour"}, {"tags", Value::Array{}}}),
          m_d(Value::Dictionary{{"kind", "goods"}}),
          m_e({{"cost", "3"}, {"kind", "labour"}, {"tags", Value::Array{"z", "x"}}}),
          m_root({{"name", "Acme"},
                  {"client", Value(&m_client)},
                  {"childs", Value::Array{&m_a, &m_b, &m_c, &m_d, &m_e}},
                  {"numbers", Value::Array{&m_a, &m_b, &m_c, &m_d}},
                  {"empty", Value::Array{}},
                  {"in", "escaped"}}) {}

    Thing m_client, m_a, m_b, m_c, m_d, m_e, m_root;
};

TEST_F(KeyPathTest, ResolvesKeysAndCollectionOperators) {
    struct Row {
        const char* path;
        Value expected;
    };
    const Row rows[] = {
        {"name", "Acme"},
        {" client.name ", "Müller"},
        {"client.missing", Value()},
        {"missing.name", Value()},
        {"self.name", "Acme"},
        {"#in", "escaped"},
        // Five childs, the key path after @count is ignored.
        {"childs.@count", 5},
        {"childs.@count.cost", 5},
        // 1.5 + 2 + 0.25 + "3" (numeric text) = 6.75; the child without cost is skipped.
        {"childs.@sum.cost", dec("6.75")},
        // 6.75 / 4 non-null costs.
        {"childs.@avg.cost", dec("1.6875")},
        {"numbers.@min.cost", 0.25},  // The element itself, a double.
        {"numbers.@max.cost", 2},
        {"empty.@count", 0},
        {"empty.@sum.cost", Decimal(0)},
        {"empty.@avg.cost", Decimal(0)},
        {"empty.@min.cost", Value()},
        {"empty.@max.cost", Value()},
        {"missing.@count", Value()},
        {"childs.cost", Value::Array{dec("1.5"), 2, 0.25, Value(), "3"}},
        {"childs.@unionOfObjects.kind", Value::Array{"labour", "goods", "labour", "goods", "labour"}},
        {"childs.@distinctUnionOfObjects.kind", Value::Array{"labour", "goods"}},
        {"childs.@unionOfObjects.cost", Value::Array{dec("1.5"), 2, 0.25, "3"}},
        {"childs.tags",
         Value::Array{Value::Array{"x", "y"}, Value::Array{"y"}, Value::Array{}, Value(), Value::Array{"z", "x"}}},
        {"childs.@unionOfArrays.tags", Value::Array{"x", "y", "y", "z", "x"}},
        {"childs.@distinctUnionOfArrays.tags", Value::Array{"x", "y", "z"}},
    };
    const Value root(&m_root);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        KeyPath path = KeyPath::parse(row.path);
        EXPECT_TRUE(path.isValid()) << path.error();
        Value result = path.evaluate(root);
        EXPECT_EQ(result, row.expected) << result.description();
        EXPECT_EQ(result.type(), row.expected.type()) << result.description();
        EXPECT_EQ(valueForKeyPath(root, row.path), row.expected);
    }
}

TEST_F(KeyPathTest, SumsExactlyInDecimal) {
    // Ten doubles 0.1 add to 0.9999999999999999 in binary; through Decimal they give 1.
    Value::Array tenths(10, Value(0.1));
    Value sum = valueForKeyPath(Value(tenths), "@sum.self");
    ASSERT_NE(sum.decimal(), nullptr);
    EXPECT_EQ(*sum.decimal(), Decimal(1));
    // 1/3 of 1, 0 and 0: the average keeps 38 significant digits.
    Value average = valueForKeyPath(Value(Value::Array{1, 0, 0}), "@avg.self");
    ASSERT_NE(average.decimal(), nullptr);
    EXPECT_EQ(average.decimal()->toString(), "0." + std::string(38, '3'));
}

TEST_F(KeyPathTest, WorksOnDictionariesAndArrayRoots) {
    Value::Dictionary inner{{"b", 3}};
    Value dictionary(Value::Dictionary{{"a", Value(inner)}, {"list", Value::Array{Value(inner), Value(inner)}}});
    EXPECT_EQ(valueForKeyPath(dictionary, "a.b"), Value(3));
    EXPECT_EQ(valueForKeyPath(dictionary, "list.b"), Value(Value::Array{3, 3}));
    // 3 + 3 = 6 through a dictionary's array, and @count of a dictionary is its size.
    EXPECT_EQ(valueForKeyPath(dictionary, "list.@sum.b"), Value(6));
    EXPECT_EQ(valueForKeyPath(dictionary, "@count"), Value(2));
    Value array(Value::Array{&m_a, &m_b});
    // 1.5 + 2.
    EXPECT_EQ(valueForKeyPath(array, "@sum.cost"), Value(dec("3.5")));
    EXPECT_EQ(valueForKeyPath(array, "kind"), Value(Value::Array{"labour", "goods"}));
    EXPECT_EQ(KeyPath().evaluate(Value(7)), Value(7));
}

TEST_F(KeyPathTest, MalformedPathsAreInvalidAndEvaluateToNull) {
    const char* paths[] = {"a..b", ".a", "a.", "childs.@bogus.cost", "@", "#", "a.#.b"};
    for (const char* text : paths) {
        SCOPED_TRACE(text);
        KeyPath path = KeyPath::parse(text);
        EXPECT_FALSE(path.isValid());
        EXPECT_FALSE(path.error().empty());
        EXPECT_TRUE(path.evaluate(Value(&m_root)).isNull());
    }
    EXPECT_EQ(KeyPath::parse("childs.@sum.cost").toString(), "childs.@sum.cost");
    EXPECT_EQ(KeyPath::parse("#in.x").toString(), "in.x");
}

}  // namespace keypath_test
}  // namespace brassline
