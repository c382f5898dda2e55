#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lifecycle/NumberTokens.h"
#include "lifecycle/TokenFields.h"

namespace brassline {
namespace {

std::string fieldsOf(const NumberPattern& pattern) {
    std::string text;
    for (const PatternElement& element : pattern) {
        text += element.isToken ? "<" + element.field + ">" : element.text;
    }
    return text;
}

TEST(TokenFieldsTest, CounterAndAutoIncrementExcludeEachOther) {
    struct Row {
        const char* name;
        NumberPattern field;
        NumberPattern added;
        size_t index;
        bool accepted;
        const char* expected;
    };
    const PatternElement counter = PatternElement::token("increment", std::string("ZPIncrement3"));
    const PatternElement automatic = PatternElement::token("autoincrement", std::string("ZPAutoIncrement"));
    const PatternElement year = PatternElement::token("year", std::string("ZPYear"));
    const PatternElement dash = PatternElement::literal("-");
    const Row rows[] = {
        {"plain add", {year, dash}, {counter}, 2, true, "<year>-<increment>"},
        {"index past the end is clamped", {year}, {dash}, 9, true, "<year>-"},
        {"auto increment removes counters",
         {counter, dash, year, counter},
         {automatic},
         1,
         true,
         "<autoincrement>-<year>"},
        {"counter removes auto increments", {automatic, dash}, {counter}, 0, true, "<increment>-"},
        {"both at once add nothing", {year}, {counter, automatic}, 0, false, "<year>"},
        {"other tokens leave both", {automatic, counter}, {year}, 1, true, "<autoincrement><year><increment>"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        NumberPattern field = row.field;
        EXPECT_EQ(addTokens(field, row.added, row.index), row.accepted);
        EXPECT_EQ(fieldsOf(field), row.expected);
    }
    NumberPattern field;
    ASSERT_TRUE(addTokens(field, {year, dash, counter}, 0));
    EXPECT_FALSE(field[0].uid.empty());
    EXPECT_NE(field[0].uid, field[2].uid);
    EXPECT_TRUE(field[1].uid.empty());
    EXPECT_FALSE(hasNoIncrement(field));
    EXPECT_TRUE(hasNoIncrement({automatic, dash}));
}

TEST(TokenFieldsTest, OptionListsNameKnownTokensWithTheDefaultFirst) {
    struct Row {
        const char* settings;
        const char* tag;
        const char* prefsKey;
        std::vector<std::string> expected;
    };
    const Row rows[] = {
        {"clientnumbers",
         "increment",
         "",
         {"ZPClientIncrement", "ZPClientIncrement3", "ZPClientIncrement4", "ZPClientIncrement5"}},
        {"estimatenumbers",
         "increment",
         "",
         {"ZPEstimateIncrement", "ZPEstimateIncrement2", "ZPEstimateIncrement3", "ZPEstimateIncrement4",
          "ZPEstimateIncrement5"}},
        {"conditions",
         "increment",
         "followUpType.A",
         {"ZPIncrement.followUpType.A", "ZPIncrement2.followUpType.A", "ZPIncrement3.followUpType.A",
          "ZPIncrement4.followUpType.A", "ZPIncrement5.followUpType.A"}},
        {"invoicenumbers", "year", "", {"ZPYear", "ZPShortYear"}},
        {"invoicenumbers", "nosuchtag", "", {}},
        {"nosuchlist", "year", "", {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.settings) + " " + row.tag);
        EXPECT_EQ(tokenOptions(row.settings, row.tag, row.prefsKey), row.expected);
    }
    // Every option offered anywhere is one the evaluator knows.
    for (const char* settings :
         {"invoicenumbers", "estimatenumbers", "clientnumbers", "projectnumbers", "conditions"}) {
        for (const char* tag : {"year", "month", "week", "day", "increment", "autoincrement", "clientid", "client",
                                "reference", "project", "layout", "due", "amount", "amountdue", "currency"}) {
            for (const std::string& option : tokenOptions(settings, tag)) {
                SCOPED_TRACE(std::string(settings) + " " + tag + " " + option);
                EXPECT_TRUE(option == "-" || isKnownTokenOption(option));
            }
        }
    }
}

}  // namespace
}  // namespace brassline
