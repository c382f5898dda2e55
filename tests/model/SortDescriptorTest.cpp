#include <algorithm>

#include <gtest/gtest.h>

#include "core/Localization.h"
#include "model/SortDescriptor.h"

namespace brassline {
namespace sort_test {

class Person : public Object {
public:
    Person(std::string name, Value amount, Object* client = nullptr)
        : m_name(std::move(name)), m_amount(std::move(amount)), m_client(client) {}
    Value valueForKey(std::string_view key) const override {
        if (key == "name") {
            return Value(m_name);
        }
        if (key == "amount") {
            return m_amount;
        }
        if (key == "client") {
            return Value(m_client);
        }
        return Value();
    }
    std::string_view className() const override { return "Person"; }
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
    Value m_amount;
    Object* m_client;
};

Decimal dec(std::string_view text) {
    return *Decimal::parse(text);
}

std::vector<std::string> texts(const std::vector<Value>& values) {
    std::vector<std::string> result;
    for (const auto& value : values) {
        result.push_back(value.isNull() ? "nil" : value.toString());
    }
    return result;
}

TEST(SortDescriptorTest, OrdersNumbersAcrossTypesWithNullFirst) {
    std::vector<Value> values = {3, Value(), dec("1.5"), 2.25, 1, Value(), dec("-0.5")};
    sortValues(values, {{"self", true}});
    EXPECT_EQ(texts(values), (std::vector<std::string>{"nil", "nil", "-0.5", "1", "1.5", "2.25", "3"}));
    sortValues(values, {{"self", false}});
    EXPECT_EQ(texts(values), (std::vector<std::string>{"3", "2.25", "1.5", "1", "-0.5", "nil", "nil"}));
}

TEST(SortDescriptorTest, StringComparisons) {
    struct Row {
        StringComparison comparison;
        std::vector<std::string> expected;
    };
    // Input order matters where keys tie: the sort is stable.
    const std::vector<Value> input = {"b", "A", "file10", "a", "C", "file2", "File1"};
    const Row rows[] = {
        {StringComparison::Compare, {"A", "C", "File1", "a", "b", "file10", "file2"}},
        {StringComparison::CaseInsensitive, {"A", "a", "b", "C", "File1", "file10", "file2"}},
        {StringComparison::LocalizedCaseInsensitive, {"A", "a", "b", "C", "File1", "file10", "file2"}},
        {StringComparison::LocalizedStandard, {"a", "A", "b", "C", "File1", "file2", "file10"}},
    };
    // Collation of English: lower case before upper case where only case differs.
    setCurrentLanguage("en");
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.comparison));
        std::vector<Value> values = input;
        sortValues(values, {{"self", true, row.comparison}});
        EXPECT_EQ(texts(values), row.expected);
    }
    setCurrentLanguage("");
}

TEST(SortDescriptorTest, SortsObjectsStablyByKeyPaths) {
    Person acme("Acme", Value());
    Person zeta("Zeta", Value());
    Person p1("Ann", 10, &zeta), p2("Bob", 5, &acme), p3("Cid", 10, &acme), p4("Dan", Value(), nullptr),
        p5("Eve", 5, &zeta);
    std::vector<Object*> objects = {&p1, &p2, &p3, &p4, &p5};
    auto names = [&] {
        std::string joined;
        for (Object* object : objects) {
            joined += static_cast<Person*>(object)->name() + " ";
        }
        return joined;
    };
    // Client name first (Dan has no client: nil first), then amount descending; ties stay.
    sortObjects(objects, {{"client.name"}, {"amount", false}});
    EXPECT_EQ(names(), "Dan Cid Bob Ann Eve ");
    // Amount only: Bob and Eve tie at 5 and keep their current order.
    sortObjects(objects, {{"amount"}});
    EXPECT_EQ(names(), "Dan Bob Eve Cid Ann ");

    std::vector<Object*> again = {&p5, &p4, &p3, &p2, &p1};
    std::stable_sort(again.begin(), again.end(), SortComparator({{"amount", false}, {"name"}}));
    std::vector<Object*> expected = {&p1, &p3, &p2, &p5, &p4};
    EXPECT_EQ(again, expected);
}

TEST(SortDescriptorTest, MixedTypesKeepAFixedOrder) {
    // Numbers, then strings, then dates: never compared by content across kinds.
    std::vector<Value> values = {"x", Value(Date(10)), 2, Value(), "a", 1};
    sortValues(values, {{"self"}});
    ASSERT_EQ(values.size(), 6u);
    EXPECT_TRUE(values[0].isNull());
    EXPECT_EQ(values[1], Value(1));
    EXPECT_EQ(values[2], Value(2));
    EXPECT_EQ(values[3], Value("a"));
    EXPECT_EQ(values[4], Value("x"));
    EXPECT_EQ(values[5], Value(Date(10)));
    SortDescriptor descriptor{"self", false};
    EXPECT_TRUE(descriptor.compareValues(Value(), Value(1)) > 0);
    EXPECT_TRUE(descriptor.compareValues(Value(1), Value(dec("1.0"))) == 0);
}

}  // namespace sort_test
}  // namespace brassline
