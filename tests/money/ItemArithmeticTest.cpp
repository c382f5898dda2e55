#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLOption.h"
#include "model/entities/BLSectionEnd.h"
#include "model/entities/BLSummaryCost.h"
#include "model/entities/BLTitle.h"

namespace brassline {
namespace {

using ItemArithmeticTest = ItemFixture;

TEST_F(ItemArithmeticTest, LineRoundsByTheDocumentCurrency) {
    struct Row {
        const char* currency;
        const char* price;
        const char* quantity;
        const char* discount;
        const char* costForGroup;
        const char* cost;
    };
    // Worked by hand: cost = q*p - q*p/100*d, then plain rounding (5 away from zero) to
    // the currency's minor digits: EUR 2, JPY 0, KWD 3; CHF lines keep cents. The currency
    // table overrides the minor digits (HUF and TWD round to whole units although they have
    // two), and a "noRounding" currency (BTC) leaves a line exactly as computed.
    const Row rows[] = {
        {"EUR", "0.005", "1", nullptr, "0.005", "0.01"},
        {"EUR", "-0.005", "1", nullptr, "-0.005", "-0.01"},
        {"EUR", "0.004", "1", nullptr, "0.004", "0"},
        {"EUR", "19.99", "3", "10", "53.973", "53.97"},  // 59.97 - 5.997
        {"JPY", "100.5", "1", nullptr, "100.5", "101"},
        {"JPY", "33.3", "3", nullptr, "99.9", "100"},
        {"KWD", "1.2345", "1", nullptr, "1.2345", "1.235"},
        {"CHF", "10.02", "1", nullptr, "10.02", "10.02"},  // no 0.05 step on a line
        {"EUR", "12.50", "2", "100", "0", "0"},
        {"HUF", "100.5", "1", nullptr, "100.5", "101"},
        {"TWD", "33.33", "3", nullptr, "99.99", "100"},
        {"TWD", "0.49", "1", nullptr, "0.49", "0"},
        {"BTC", "0.123456789", "3", nullptr, "0.370370367", "0.370370367"},
        {"BTC", "0.00000001", "1", "50", "0.000000005", "0.000000005"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.currency) + " " + row.price + " x " + row.quantity);
        BLInvoice* invoice = invoiceIn(row.currency);
        BLCost* line = addCost(invoice, row.price, row.quantity, row.discount);
        EXPECT_EQ(line->costForGroup(), dec(row.costForGroup));
        EXPECT_EQ(line->cost(), dec(row.cost));
    }
}

TEST_F(ItemArithmeticTest, LineWithoutDocumentOrCurrencyStaysUnrounded) {
    // 1.23456 x 2 = 2.46912, nothing rounds it without a currency.
    BLCost* loose = insert<BLCost>();
    loose->setUnitPrice(dec("1.23456"));
    loose->setQuantity(dec("2"));
    EXPECT_EQ(loose->cost(), dec("2.46912"));

    auto* invoice = insert<BLInvoice>();
    BLCost* line = addCost(invoice, "1.23456", "2");
    EXPECT_EQ(line->cost(), dec("2.46912"));
}

TEST_F(ItemArithmeticTest, MissingQuantityReadsOneAndIsStored) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* line = insert<BLCost>();
    line->setUnitPrice(dec("7.25"));
    line->setParent(invoice);
    ASSERT_FALSE(line->quantity().has_value());
    EXPECT_EQ(line->cost(), dec("7.25"));
    EXPECT_EQ(line->quantity(), Decimal(1));
}

TEST_F(ItemArithmeticTest, TimeUnitLinesTakeTheDocumentRateAsTyped) {
    BLInvoice* invoice = invoiceIn("EUR");
    invoice->setRate(dec("80"));
    struct Row {
        const char* unit;
        const char* price;
        bool timeUnit;
        const char* cost;
    };
    // Only a missing or zero price takes the rate, and only for "h" as typed; "H" is a time
    // unit for durations all the same.
    const Row rows[] = {{"h", nullptr, true, "80"},
                        {"H", nullptr, true, "0"},
                        {"std.", "0", true, "80"},
                        {"h", "95", true, "95"},
                        {"pcs", nullptr, false, "0"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.unit);
        auto* line = insert<BLCost>();
        line->setUnit(std::string(row.unit));
        if (row.price != nullptr) {
            line->setUnitPrice(dec(row.price));
        }
        line->setParent(invoice);
        EXPECT_EQ(line->hasTimeUnit(), row.timeUnit);
        EXPECT_EQ(line->cost(), dec(row.cost));
    }
}

TEST_F(ItemArithmeticTest, DiscountAmountsWeightAndMargin) {
    BLInvoice* invoice = invoiceIn("JPY");
    // 33.33 at 10 %: the line's discount is 3.333, shown as 3.33 even in yen.
    BLCost* line = addCost(invoice, "33.33", "1", "10");
    EXPECT_EQ(line->discountAmount(), dec("3.33"));
    EXPECT_EQ(line->totalDiscount(), dec("3.333"));
    BLCost* plain = addCost(invoice, "5", "4");
    EXPECT_EQ(plain->totalDiscount(), Decimal());
    EXPECT_EQ(plain->totalWeight(), Decimal());
    plain->setWeight(dec("0.25"));
    EXPECT_EQ(plain->totalWeight(), dec("1.00"));
    // Margin: net 20 less cost price 3 x 4.
    EXPECT_EQ(plain->margin(), dec("20"));
    plain->setCostPrice(dec("3"));
    EXPECT_EQ(plain->margin(), dec("8"));
    // A document discount of 50 % halves net and so the margin: 10 - 12.
    invoice->setDiscount(dec("50"));
    EXPECT_EQ(plain->margin(), dec("-2"));
}

TEST_F(ItemArithmeticTest, RowDiscountIsTheDiscountPartRoundedToCentsInAnyCurrency) {
    struct Row {
        const char* currency;
        const char* price;
        const char* quantity;
        const char* discount;
        const char* discountAmount;
        const char* cost;
    };
    const Row rows[] = {
        // 1 x 0.125 at 10 %: 0.0125 -> 0.01; the line is 0.1125 -> 0.11.
        {"EUR", "0.125", "1", "10", "0.01", "0.11"},
        // 1 x 10.5 at 10 %: 1.05 in yen too, though the line rounds to 9.
        {"JPY", "10.5", "1", "10", "1.05", "9"},
        // A credit: -2 x 0.125 at 10 % = -0.025 -> -0.03 (a 5 rounds away from zero).
        {"EUR", "0.125", "-2", "10", "-0.03", "-0.23"},
        // No discount, no discount amount.
        {"EUR", "3", "2", "0", "0", "6"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.currency) + " " + row.price + " x " + row.quantity);
        BLInvoice* invoice = invoiceIn(row.currency);
        BLCost* line = addCost(invoice, row.price, row.quantity, row.discount);
        EXPECT_EQ(line->discountAmount(), dec(row.discountAmount));
        EXPECT_EQ(line->valueForKey("discountAmount").toDecimal(), dec(row.discountAmount));
        EXPECT_EQ(line->cost(), dec(row.cost));
    }
    // A group of lines with one discount shows it on its undiscounted sum: 10 % of
    // 0.125 + 0.125 = 0.025 -> 0.03.
    BLInvoice* invoice = invoiceIn("EUR");
    auto* group = add<BLGroup>(invoice);
    addCost(group, "0.125", "1", "10");
    addCost(group, "0.125", "1", "10");
    EXPECT_EQ(group->discountAmount(), dec("0.03"));
}

TEST_F(ItemArithmeticTest, RateIsThePriceAndWritesItRoundedToFourDigits) {
    struct Row {
        const char* typed;
        const char* unitPrice;
        const char* cost;  // At quantity 2 in euros.
    };
    const Row rows[] = {
        {"9.99", "9.99", "19.98"},
        {"1.23456", "1.2346", "2.47"},  // 2.4692 -> 2.47
        {"0.00004", "0", "0"},
    };
    BLInvoice* invoice = invoiceIn("EUR");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.typed);
        BLCost* line = addCost(invoice, "0", "2");
        line->setValueForKey(Value(row.typed), "rate");
        EXPECT_EQ(line->unitPrice(), dec(row.unitPrice));
        EXPECT_EQ(line->valueForKey("rate").toDecimal(), dec(row.unitPrice));
        EXPECT_EQ(line->cost(), dec(row.cost));
    }
    // A summary's rate is its price, the sum of its children.
    auto* summary = add<BLSummaryCost>(invoice);
    addCost(summary, "4", "2");
    EXPECT_EQ(summary->valueForKey("rate").toDecimal(), dec("8"));
}

TEST_F(ItemArithmeticTest, GroupRoundsOnceUnlikeItsLines) {
    struct Row {
        const char* currency;
        const char* price;
        const char* linesCost;
        const char* groupCost;
    };
    // Two lines of the same price in a group. Lines round by the currency; the group adds
    // the unrounded lines and rounds once, to cents in any currency.
    const Row rows[] = {
        {"EUR", "0.005", "0.02", "0.01"},  // 0.01 + 0.01 against 0.010
        {"JPY", "0.6", "2", "1.20"},       // 1 + 1 against 1.2
        {"KWD", "0.0015", "0.004", "0"},   // 0.002 + 0.002 against 0.003 -> 0.00
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.currency);
        BLInvoice* invoice = invoiceIn(row.currency);
        auto* group = add<BLGroup>(invoice);
        BLCost* first = addCost(group, row.price);
        BLCost* second = addCost(group, row.price);
        EXPECT_EQ(first->cost() + second->cost(), dec(row.linesCost));
        EXPECT_EQ(group->cost(), dec(row.groupCost));
        EXPECT_EQ(invoice->cost(), dec(row.groupCost));
    }
}

// Grouping a selection that holds a group puts one group inside another. The inner one
// adds its rounded sum: 2 x 0.005 -> 0.01, plus the outer line of 1.00, gives 1.01.
TEST_F(ItemArithmeticTest, GroupInsideAGroupCountsInTheTotal) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* outer = add<BLGroup>(invoice);
    addCost(outer, "1");
    auto* inner = add<BLGroup>(outer);
    addCost(inner, "0.005");
    addCost(inner, "0.005");
    EXPECT_EQ(inner->cost(), dec("0.01"));
    EXPECT_EQ(outer->cost(), dec("1.01"));
    EXPECT_EQ(invoice->cost(), dec("1.01"));
}

TEST_F(ItemArithmeticTest, GroupDerivesPriceQuantityAndDiscountFromItsLines) {
    struct Line {
        const char* price;
        const char* quantity;
        const char* discount;
    };
    struct Row {
        const char* name;
        std::vector<Line> lines;
        const char* unitPrice;
        const char* quantity;
        const char* discount;
    };
    const Row rows[] = {
        // One price: it, and the summed quantity.
        {"one price", {{"2.5", "2", "0"}, {"2.5", "3", "0"}}, "2.5", "5", "0"},
        // Prices 1 and 2 at one quantity 3: price 1 + 2, quantity 3.
        {"one quantity", {{"1", "3", "0"}, {"2", "3", "0"}}, "3", "3", "0"},
        // Both differ: price = the lines' amounts 2 + 6, quantity 1.
        {"both differ", {{"1", "2", "0"}, {"2", "3", "0"}}, "8", "1", "0"},
        // Discounts 10 and 0 on 100 each: cost 190 of 200 undiscounted, 100 - 95 = 5.
        {"mixed discount", {{"100", "1", "10"}, {"100", "1", "0"}}, "100", "2", "5"},
        // The same discount on every line is the group's.
        {"one discount", {{"3", "1", "20"}, {"4", "1", "20"}}, "7", "1", "20"},
        // Mixed discounts below one whole unit undiscounted: 0.
        {"small amount", {{"0.2", "1", "10"}, {"0.3", "1", "0"}}, "0.5", "1", "0"},
        // The same as a credit: -0.7 undiscounted has the integer part 0 as well.
        {"small credit", {{"0.5", "-1", "10"}, {"0.2", "-1", "0"}}, "0.7", "-1", "0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* invoice = invoiceIn("EUR");
        auto* group = add<BLGroup>(invoice);
        for (const Line& line : row.lines) {
            addCost(group, line.price, line.quantity, line.discount);
        }
        EXPECT_EQ(group->lineUnitPrice(), dec(row.unitPrice));
        EXPECT_EQ(group->lineQuantity(), dec(row.quantity));
        EXPECT_EQ(group->lineDiscount(), dec(row.discount));
    }
}

TEST_F(ItemArithmeticTest, GroupNotesAndUnit) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* group = add<BLGroup>(invoice);
    BLCost* first = addCost(group, "10");
    BLCost* second = addCost(group, "10");
    BLCost* third = addCost(group, "10");
    first->setNotes(std::string("Travel"));
    second->setNotes(std::string("Hotel"));
    third->setNotes(std::string("Travel"));
    first->setUnit(std::string("h"));
    second->setUnit(std::string("h"));
    third->setUnit(std::string("h"));
    EXPECT_EQ(group->collectNotes("; "), "Travel; Hotel");
    EXPECT_EQ(group->unitText(), "h");
    third->setUnitPrice(dec("12"));
    EXPECT_EQ(group->unitText(), "");
}

TEST_F(ItemArithmeticTest, SummaryCostSumsItsChildrenAndDiscountsTheRoundedValue) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* summary = add<BLSummaryCost>(invoice);
    addCost(summary, "10.00");
    addCost(summary, "5.555");  // rounds to 5.56
    summary->setQuantity(dec("2"));
    // Price 15.56; 2 x 15.56 = 31.12; 10 % of the rounded value is 3.112, kept unrounded.
    EXPECT_EQ(summary->lineUnitPrice(), dec("15.56"));
    summary->setUnitPrice(dec("99"));
    EXPECT_EQ(summary->lineUnitPrice(), dec("15.56"));
    EXPECT_EQ(summary->cost(), dec("31.12"));
    summary->setDiscount(dec("10"));
    EXPECT_EQ(summary->cost(), dec("28.008"));
    EXPECT_EQ(invoice->cost(), dec("28.008"));
}

TEST_F(ItemArithmeticTest, ConversionRepricesLinesThroughTheTree) {
    BLCurrency* euro = currencyNamed("EUR");
    euro->setRate(dec("1"));
    BLCurrency* yen = currencyNamed("JPY");
    yen->setRate(dec("0.0064"));
    auto* invoice = insert<BLInvoice>();
    invoice->setCurrency(euro);
    BLCost* line = addCost(invoice, "10.00", "3", "10");
    auto* group = add<BLGroup>(invoice);
    BLCost* grouped = addCost(group, "0.99");
    auto* summary = add<BLSummaryCost>(invoice);
    BLCost* summed = addCost(summary, "2.50");
    add<BLTitle>(invoice);

    // The document's new currency converts every line below it, titles passing nothing.
    invoice->setCurrency(yen);
    // EUR to JPY: x 1 / 0.0064 = x 156.25, then the yen's whole units.
    // 10.00 -> 1562.5 -> 1563; 0.99 -> 154.6875 -> 154.69 (two digits first) -> 155;
    // 2.50 -> 390.625 -> 390.63 -> 391.
    EXPECT_EQ(*line->unitPrice(), dec("1563"));
    EXPECT_EQ(*grouped->unitPrice(), dec("155"));
    EXPECT_EQ(*summed->unitPrice(), dec("391"));
    // Quantity and discount stay: 3 x 1563 = 4689, less 10 % = 4220.1 -> 4220.
    EXPECT_EQ(*line->quantity(), dec("3"));
    EXPECT_EQ(line->cost(), dec("4220"));

    // Without a second currency, or into the same one, nothing moves.
    line->convertFromCurrency(yen, nullptr);
    line->convertFromCurrency(nullptr, euro);
    line->convertFromCurrency(yen, yen);
    EXPECT_EQ(*line->unitPrice(), dec("1563"));
}

TEST_F(ItemArithmeticTest, ClassPredicatesGoByExactEntity) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* catalogItem = add<BLCatalogItem>(invoice);
    auto* group = add<BLGroup>(invoice);
    auto* summary = add<BLSummaryCost>(invoice);
    auto* child = addCost(summary, "1");
    auto* option = add<BLOption>(invoice);
    auto* title = add<BLTitle>(invoice);
    auto* sectionEnd = add<BLSectionEnd>(invoice);
    EXPECT_FALSE(BLItem::itemIsCost(catalogItem));
    EXPECT_TRUE(BLItem::itemIsCost(group));
    EXPECT_TRUE(BLItem::itemIsCost(summary));
    EXPECT_TRUE(BLItem::itemIsContainer(summary));
    EXPECT_FALSE(BLItem::itemIsContainer(child));
    EXPECT_TRUE(child->itemIsChildOfSummary());
    EXPECT_TRUE(BLItem::itemIsTitle(option));
    EXPECT_TRUE(BLItem::itemIsTitle(title));
    EXPECT_FALSE(BLItem::itemIsTitle(sectionEnd));
    EXPECT_TRUE(BLItem::itemIsSectionEnd(sectionEnd));
    EXPECT_FALSE(group->isLeaf());
    EXPECT_TRUE(child->isLeaf());
}

}  // namespace
}  // namespace brassline
