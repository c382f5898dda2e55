#include <algorithm>
#include <cmath>
#include <optional>

#include "CurrencyTestSupport.h"
#include "model/entities/BLInvoice.h"

namespace brassline {
namespace {

class CurrencyTest : public CurrencyFixture {};

TEST_F(CurrencyTest, RoundsByMinorUnitsTableAndSwissRule) {
    struct Row {
        const char* code;
        const char* format;     // nullptr: none
        const char* reference;  // nullptr: none
        const char* value;
        const char* rounded;      // roundingBehavior applied (line amounts)
        const char* roundedCost;  // roundCost
    };
    const Row rows[] = {
        // Two minor digits; a 5 goes away from zero on both sides.
        {"EUR", nullptr, nullptr, "1.005", "1.01", "1.01"},
        {"EUR", nullptr, nullptr, "-1.005", "-1.01", "-1.01"},
        {"EUR", nullptr, nullptr, "2.004", "2", "2"},
        // No minor digits.
        {"JPY", nullptr, nullptr, "12.5", "13", "13"},
        {"JPY", nullptr, nullptr, "-12.49", "-12", "-12"},
        // Three minor digits.
        {"KWD", nullptr, nullptr, "1.2345", "1.235", "1.235"},
        // Swiss francs: lines keep cents, payable sums go to 0.05; a reference changes nothing.
        {"CHF", nullptr, nullptr, "0.024", "0.02", "0"},
        {"CHF", nullptr, nullptr, "0.025", "0.03", "0.05"},
        {"CHF", nullptr, "1.2345", "1.074", "1.07", "1.05"},
        {"CHF", nullptr, nullptr, "1.075", "1.08", "1.1"},
        {"CHF", nullptr, nullptr, "-0.025", "-0.03", "-0.05"},
        // Table: HUF has 2 minor digits but rounds whole; TWD likewise through the
        // minimum fraction digits.
        {"HUF", nullptr, nullptr, "10.5", "11", "11"},
        {"TWD", nullptr, nullptr, "99.49", "99", "99"},
        // Not in ISO 4217 and not in the table: 2 digits, or whole units with "nodecimals".
        {"XQQ", nullptr, nullptr, "3.333", "3.33", "3.33"},
        {"XQQ", "nodecimals", nullptr, "3.5", "4", "4"},
        // In the table a record wins over the format.
        {"EUR", "nodecimals", nullptr, "3.555", "3.56", "3.56"},
        // noRounding: digits of the reference, or none at all without one.
        {"BTC", nullptr, nullptr, "0.123456789", "0.123456789", "0.123456789"},
        {"BTC", nullptr, "1.2345", "0.123456789", "0.123456789", "0.1235"},
        {"BTC", nullptr, "2", "0.6", "0.6", "1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.code) + " " + row.value + (row.format ? " nodecimals" : "") +
                     (row.reference ? std::string(" ref ") + row.reference : ""));
        BLCurrency* money = currency(row.code);
        if (row.format != nullptr) {
            money->setFormat(std::string(row.format));
        }
        std::optional<Decimal> reference;
        if (row.reference != nullptr) {
            reference = dec(row.reference);
        }
        EXPECT_EQ(money->round(dec(row.value)).toString(), row.rounded);
        EXPECT_EQ(money->roundCost(dec(row.value), reference).toString(), row.roundedCost);
    }
}

TEST_F(CurrencyTest, CachedBehaviourFollowsRenameButNoRoundingIsNeverCached) {
    BLCurrency* money = currency("EUR");
    EXPECT_EQ(money->roundingBehavior().scale, std::optional<int>(2));
    money->setName(std::string("JPY"));
    EXPECT_EQ(money->roundingBehavior().scale, std::optional<int>(0));
    money->setName(std::string("BTC"));
    EXPECT_EQ(money->roundingBehaviorAccordingTo(dec("1.5")).scale, std::optional<int>(1));
    EXPECT_EQ(money->roundingBehaviorAccordingTo(dec("1.25")).scale, std::optional<int>(2));
    EXPECT_FALSE(money->roundingBehavior().scale.has_value());
}

TEST_F(CurrencyTest, ConvertsThroughDoublePrecisionAndTargetRounding) {
    struct Row {
        const char* from;
        const char* fromRate;
        const char* to;
        const char* toRate;
        const char* value;
        const char* expected;
    };
    const Row rows[] = {
        // 100 × 1.1 ÷ 1 = 110.
        {"USD", "1.1", "EUR", "1", "100", "110"},
        // 10 × 1 ÷ 0.95 = 10.526… → 10.53 → Swiss 0.05 → 10.55.
        {"EUR", "1", "CHF", "0.95", "10", "10.55"},
        // 100 ÷ 0.0062 = 16129.03… → 16129.03 → whole yen 16129.
        {"EUR", "1", "JPY", "0.0062", "100", "16129"},
        // 33.333 × 1.2 ÷ 1.5 = 26.6664 → 26.67.
        {"GBP", "1.2", "USD", "1.5", "33.333", "26.67"},
        // A source rate of 0 leaves the value as it is, even with more digits.
        {"USD", "0", "EUR", "1", "12.345", "12.345"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.from) + "->" + row.to + " " + row.value);
        BLCurrency* source = currency(row.from, row.fromRate);
        BLCurrency* target = currency(row.to, row.toRate);
        EXPECT_EQ(source->convertValue(dec(row.value), target).toString(), row.expected);
    }
    BLCurrency* source = currency("USD", "1.1");
    EXPECT_EQ(source->convertValue(dec("1.234"), nullptr), dec("1.234"));
    EXPECT_EQ(source->convertValue(dec("1.234"), source), dec("1.234"));
    // A target rate of 0 divides by zero in floating point: no finite result.
    EXPECT_TRUE(source->convertValue(dec("5"), currency("EUR", "0")).isNaN());
}

TEST_F(CurrencyTest, FindsOrMakesCurrenciesAndTheDefault) {
    BLCurrency* existing = currency("CHF");
    EXPECT_EQ(BLCurrency::currencyWithISOCode("CHF", context()), existing);
    BLCurrency* made = BLCurrency::currencyWithISOCode("GBP", context());
    ASSERT_NE(made, nullptr);
    EXPECT_NE(made, existing);
    EXPECT_EQ(made->symbol(), std::optional<std::string>("£"));
    EXPECT_EQ(made->rate(), std::optional<Decimal>(Decimal(1)));

    BLCurrency* fallback = BLCurrency::defaultCurrencyForObject(context());
    ASSERT_NE(fallback, nullptr);
    EXPECT_EQ(fallback->uid(), std::optional<std::string>("bl.default.currency"));
    EXPECT_EQ(fallback->name(), std::optional<std::string>("Default"));
    existing->setDefault(true);
    EXPECT_EQ(BLCurrency::defaultCurrencyForObject(context()), existing);

    // An old file's short name becomes the name the lookup by ISO code finds.
    made->migrateShortName("USD");
    EXPECT_EQ(made->uid(), std::optional<std::string>("currency.USD"));
    EXPECT_EQ(BLCurrency::currencyWithISOCode("USD", context()), made);
}

TEST_F(CurrencyTest, DuplicatesMergeIntoTheOneWithMostDocuments) {
    BLCurrency* lonely = currency("EUR");
    BLCurrency* busy = currency("EUR");
    for (int index = 0; index < 2; ++index) {
        insert<BLInvoice>()->setCurrency(busy);
    }
    insert<BLInvoice>()->setCurrency(lonely);
    BLCurrency::fixDuplicateCurrencies(context());
    EXPECT_TRUE(lonely->isDeleted());
    EXPECT_FALSE(busy->isDeleted());
    EXPECT_EQ(busy->documents().size(), 3u);
}

TEST_F(CurrencyTest, NamesAndPickerList) {
    EXPECT_EQ(currency("EUR")->fixedName(), "€");
    EXPECT_EQ(currency("USD")->fixedName(), "$");
    EXPECT_EQ(currency("CHF")->fixedName(), "CHF");
    BLCurrency* plain = currency("XQQ");
    EXPECT_EQ(plain->symbolOrName(), "XQQ");
    plain->setSymbol(std::string("q"));
    EXPECT_EQ(plain->symbolOrName(), "q");

    std::vector<Value::Dictionary> list = BLCurrency::currencies();
    auto count = [&](const char* code) {
        return std::count_if(list.begin(), list.end(),
                             [&](const Value::Dictionary& entry) { return entry.at("name").toString() == code; });
    };
    // ISO codes come from the platform once; table-only codes (no ISO entry) follow.
    EXPECT_EQ(count("EUR"), 1);
    EXPECT_EQ(count("BTC"), 1);
    EXPECT_EQ(count("XQQ"), 0);
}

}  // namespace
}  // namespace brassline
