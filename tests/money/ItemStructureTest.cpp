#include <functional>

#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLDynamicCost.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLNote.h"
#include "model/entities/BLOption.h"
#include "model/entities/BLSectionEnd.h"
#include "model/entities/BLSubTotal.h"
#include "model/entities/BLSummaryCost.h"
#include "model/entities/BLTitle.h"
#include "model/entities/ModelHooks.h"

namespace brassline {
namespace {

using ItemStructureTest = ItemFixture;

TEST_F(ItemStructureTest, NumbersPositionsWithTitlesAndSectionEnds) {
    BLInvoice* invoice = invoiceIn("EUR");
    // Costs before the first title count 1, 2; the title continues with 3 and its costs
    // are 3.1, 3.2; after the section end costs count on as plain majors (4), and the
    // subtotal shows the current major.
    std::vector<std::pair<BLItem*, std::string>> expected;
    expected.emplace_back(addCost(invoice, "1"), "1");
    expected.emplace_back(addCost(invoice, "1"), "2");
    expected.emplace_back(add<BLTitle>(invoice), "3");
    expected.emplace_back(addCost(invoice, "1"), "3.1");
    expected.emplace_back(add<BLGroup>(invoice), "3.2");
    expected.emplace_back(add<BLSectionEnd>(invoice), "");
    expected.emplace_back(addCost(invoice, "1"), "4");
    expected.emplace_back(add<BLSubTotal>(invoice), "4");
    expected.emplace_back(add<BLNote>(invoice), "");
    expected.emplace_back(add<BLOption>(invoice), "5");
    expected.emplace_back(addCost(invoice, "1"), "5.1");
    for (size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i));
        EXPECT_EQ(expected[i].first->fullIndexForDocument(invoice), expected[i].second);
    }
}

TEST_F(ItemStructureTest, NumbersCostsOnlyWithoutTitles) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* first = addCost(invoice, "1");
    auto* note = add<BLNote>(invoice);
    auto* group = add<BLGroup>(invoice);
    auto* catalogItem = add<BLCatalogItem>(invoice);
    auto* summary = add<BLSummaryCost>(invoice);
    auto* noteInSummary = add<BLNote>(summary);
    BLCost* inSummary = addCost(summary, "1");
    BLCost* secondInSummary = addCost(summary, "1");
    EXPECT_EQ(first->fullIndex(), "1");
    EXPECT_EQ(note->fullIndex(), "");
    EXPECT_EQ(group->fullIndex(), "2");
    EXPECT_EQ(catalogItem->fullIndex(), "");
    EXPECT_EQ(summary->fullIndex(), "3");
    EXPECT_EQ(inSummary->fullIndex(), "3.1");
    EXPECT_EQ(secondInSummary->fullIndex(), "3.2");
    EXPECT_EQ(noteInSummary->indexForDocument(summary), 0);
    // A title first: no flat run, the title is 1 and its costs 1.1.
    BLInvoice* titled = invoiceIn("EUR");
    auto* title = add<BLTitle>(titled);
    BLCost* below = addCost(titled, "1");
    EXPECT_EQ(title->fullIndex(), "1");
    EXPECT_EQ(below->fullIndex(), "1.1");
}

TEST_F(ItemStructureTest, OptionSectionsRunToTheNextPlainTitle) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* before = addCost(invoice, "10");
    auto* option = add<BLOption>(invoice);
    BLCost* offered = addCost(invoice, "20");
    auto* nested = add<BLOption>(invoice);
    BLCost* alsoOffered = addCost(invoice, "40");
    auto* title = add<BLTitle>(invoice);
    BLCost* after = addCost(invoice, "5");
    EXPECT_FALSE(before->isOptional());
    EXPECT_TRUE(option->isOptional());
    EXPECT_TRUE(offered->isOptional());
    EXPECT_TRUE(nested->isOptional());
    EXPECT_TRUE(alsoOffered->isOptional());
    EXPECT_FALSE(title->isOptional());
    EXPECT_FALSE(after->isOptional());
    EXPECT_EQ(offered->costForPage(), Decimal());
    EXPECT_EQ(after->costForPage(), dec("5"));
}

TEST_F(ItemStructureTest, SubtotalsSkipOptionSectionsAndRestartAfterASubtotal) {
    BLInvoice* invoice = invoiceIn("EUR");
    // 10, option [20, subtotal A], title, 5, subtotal B, 7, subtotal C.
    addCost(invoice, "10");
    add<BLOption>(invoice);
    addCost(invoice, "20");
    auto* insideOption = add<BLSubTotal>(invoice);
    auto* title = add<BLTitle>(invoice);
    addCost(invoice, "5");
    auto* afterTitle = add<BLSubTotal>(invoice);
    addCost(invoice, "7");
    auto* last = add<BLSubTotal>(invoice);
    // A: 10 (the option's 20 is skipped). B: 10 + 5, subtotal A lay inside the option and
    // reset nothing. C: 7 after the reset at B.
    EXPECT_EQ(insideOption->sum(), dec("10"));
    EXPECT_EQ(afterTitle->sum(), dec("15"));
    EXPECT_EQ(last->sum(), dec("7"));
    EXPECT_EQ(afterTitle->titleItem(), title);
    // Affected items: those after the last subtotal or option before it, so B has the
    // title and the 5 after subtotal A, and C only the 7.
    EXPECT_EQ(last->affectedItems().size(), 1u);
    EXPECT_EQ(afterTitle->affectedItems().size(), 2u);
    // Subtotals and titles carry no money: the invoice is 10 + 20 + 5 + 7.
    EXPECT_EQ(invoice->cost(), dec("42"));
}

TEST_F(ItemStructureTest, TitleSumsItsSectionUpToTheClosingSubtotal) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* first = add<BLTitle>(invoice);
    addCost(invoice, "1");
    addCost(invoice, "2");
    add<BLSubTotal>(invoice);
    addCost(invoice, "4");
    auto* second = add<BLTitle>(invoice);
    addCost(invoice, "8");
    // Title 1: 1 + 2 and the subtotal that closes it (0); the 4 after it is not counted.
    EXPECT_EQ(first->affectedItems().size(), 3u);
    EXPECT_EQ(first->sum(), dec("3"));
    EXPECT_EQ(second->sum(), dec("8"));
}

TEST_F(ItemStructureTest, DynamicCostPicksItsRangeAndRunsThePluginOnce) {
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "100");
    add<BLTitle>(invoice);
    addCost(invoice, "20");
    add<BLNote>(invoice);
    addCost(invoice, "30");
    auto* dynamic = add<BLDynamicCost>(invoice);
    struct Row {
        int16_t rangeType;
        const char* sum;
    };
    // Last item: 30; items above: 100 + 20 + 30; from the last title: 20 + 30.
    const Row rows[] = {{0, "30"}, {1, "150"}, {2, "50"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.rangeType);
        dynamic->setPrimitiveRangeType(row.rangeType);
        EXPECT_EQ(dynamic->sum(), dec(row.sum));
    }
    // The plug-in answers 3 % of the price; it writes back a quantity, whose setter would
    // recalculate: the guard keeps that from running the plug-in again.
    int runs = 0;
    modelHooks().runDynamicCost = [&runs](BLDynamicCost& cost, const Value::Dictionary& input) {
        ++runs;
        Decimal price = input.at("unitPrice").toDecimal();
        cost.setQuantity(Decimal(1));
        return std::optional<Value::Dictionary>(
            Value::Dictionary{{"cost", Value((price * Decimal(3) / Decimal(100)).toString())}});
    };
    dynamic->setRangeType(int16_t{1});
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(dynamic->lineUnitPrice(), dec("150"));
    EXPECT_EQ(dynamic->cost(), dec("4.50"));
    EXPECT_EQ(invoice->cost(), dec("154.50"));
}

// The base of a dynamic cost is what stands above it now: a deleted or changed line counts
// at once, before any recalculation.
TEST_F(ItemStructureTest, DynamicCostBaseFollowsTheLinesAboveAtOnce) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* twenty = addCost(invoice, "20");
    BLCost* thirty = addCost(invoice, "30");
    auto* dynamic = add<BLDynamicCost>(invoice);
    dynamic->setPrimitiveRangeType(int16_t{1});
    EXPECT_EQ(dynamic->valueForKey("unitPrice").toDecimal(), dec("50"));
    thirty->setQuantity(dec("2"));  // 20 + 60
    EXPECT_EQ(dynamic->valueForKey("unitPrice").toDecimal(), dec("80"));
    context().deleteObject(twenty);
    EXPECT_EQ(dynamic->valueForKey("unitPrice").toDecimal(), dec("60")) << "deleted, not yet processed";
    context().processPendingChanges();
    EXPECT_EQ(dynamic->lineUnitPrice(), dec("60"));
}

}  // namespace
}  // namespace brassline
