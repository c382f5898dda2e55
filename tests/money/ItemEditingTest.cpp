#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLNote.h"
#include "model/entities/BLSubTotal.h"
#include "model/entities/BLSummaryCost.h"
#include "model/entities/BLTitle.h"
#include "money/BLInvoiceItemsTreeController.h"

namespace brassline {
namespace {

using ItemEditingTest = ItemFixture;

std::vector<std::string> entityNames(const BLContainer& container) {
    std::vector<std::string> names;
    for (BLContainer* child : container.childsArray()) {
        names.push_back(child->entityName() + ":" + child->name().value_or(""));
    }
    return names;
}

TEST_F(ItemEditingTest, InsertFollowsTheSelection) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    BLCost* first = addCost(invoice, "1");
    first->setName(std::string("a"));
    BLCost* second = addCost(invoice, "1");
    second->setName(std::string("b"));
    // No selection: at the end.
    BLItem* note = controller.addItem("Note");
    ASSERT_NE(note, nullptr);
    note->setName(std::string("n"));
    // After the last selected item.
    controller.setSelection({first});
    BLItem* title = controller.addItem("Title");
    title->setName(std::string("t"));
    EXPECT_EQ(entityNames(*invoice), (std::vector<std::string>{"Cost:a", "Title:t", "Cost:b", "Note:n"}));
    // A summary takes the selected costs it allows; a cost then goes into the summary.
    controller.setSelection({first, second});
    BLItem* summary = controller.addItem("SummaryCost");
    ASSERT_NE(summary, nullptr);
    EXPECT_EQ(summary->childsArray().size(), 2u);
    controller.setSelection({summary});
    BLItem* inside = controller.addItem("Cost");
    EXPECT_EQ(inside->parent(), summary);
    // Not an item, or an issued document: nothing.
    EXPECT_EQ(controller.addItem("Client"), nullptr);
    invoice->setDateSent(Date::now());
    EXPECT_EQ(controller.addItem("Cost"), nullptr);
}

TEST_F(ItemEditingTest, GroupSelectionNamesTheGroupAndTakesTheLines) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    addCost(invoice, "5")->setName(std::string("first"));
    BLCost* a = addCost(invoice, "0.005");
    BLCost* b = addCost(invoice, "0.005");
    BLCost* c = addCost(invoice, "0.005");
    a->setName(std::string("Screws"));
    b->setName(std::string("Nails"));
    c->setName(std::string("Screws"));
    controller.setSelection({a, b, c});
    BLItem* group = controller.groupSelection();
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->name(), std::string("Screws, Nails"));
    EXPECT_EQ(entityNames(*invoice), (std::vector<std::string>{"Cost:first", "Group:Screws, Nails"}));
    // 5 + the group's 0.015 rounded once to 0.02 (the lines alone would give 0.03).
    EXPECT_EQ(invoice->cost(), dec("5.02"));
}

TEST_F(ItemEditingTest, TitlesAndSubtotalsPerItemGroup) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    auto* labour = insert<BLItemGroup>();
    labour->setName(std::string("2 Labour"));
    auto* material = insert<BLItemGroup>();
    material->setName(std::string("1 Material"));
    BLCost* work = addCost(invoice, "80");
    work->setName(std::string("work"));
    work->setItemGroup(labour);
    add<BLTitle>(invoice)->setName(std::string("old"));
    BLCost* wood = addCost(invoice, "20");
    wood->setName(std::string("wood"));
    wood->setItemGroup(material);
    controller.insertTitlesAndSubtotals();
    EXPECT_EQ(entityNames(*invoice), (std::vector<std::string>{"Title:Material", "Cost:wood", "SubTotal:Material",
                                                               "Title:Labour", "Cost:work", "SubTotal:Labour"}));
    auto children = invoice->childsArray();
    EXPECT_EQ(static_cast<BLItem*>(children[2])->sum(), dec("20"));
    EXPECT_EQ(static_cast<BLItem*>(children[5])->sum(), dec("80"));
}

TEST_F(ItemEditingTest, SortMovesOnlyRunsOfLikeItems) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    addCost(invoice, "1")->setName(std::string("c"));
    addCost(invoice, "1")->setName(std::string("a"));
    add<BLTitle>(invoice)->setName(std::string("T"));
    addCost(invoice, "1")->setName(std::string("z"));
    auto* group = add<BLGroup>(invoice);
    group->setName(std::string("m"));
    addCost(group, "1")->setName(std::string("y"));
    addCost(group, "1")->setName(std::string("x"));
    add<BLNote>(invoice)->setName(std::string("b"));
    controller.sortItems("name", true);
    // The title and the note stay; costs and the group (a cost here) sort within runs.
    EXPECT_EQ(entityNames(*invoice),
              (std::vector<std::string>{"Cost:a", "Cost:c", "Title:T", "Group:m", "Cost:z", "Note:b"}));
    EXPECT_EQ(entityNames(*group), (std::vector<std::string>{"Cost:x", "Cost:y"}));
}

TEST_F(ItemEditingTest, CatalogInsertAndEANScan) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    auto* article = insert<BLCatalogItem>();
    article->setName(std::string("Hammer"));
    article->setUnitPrice(dec("12.90"));
    article->setEan(std::string("4006381333931"));
    // First scan inserts a cost cloned from the catalog, the second counts it up.
    EXPECT_TRUE(controller.addEAN("4006381333931", false));
    ASSERT_EQ(invoice->childsArray().size(), 1u);
    auto* line = static_cast<BLCost*>(invoice->childsArray().front());
    EXPECT_EQ(line->entityName(), "Cost");
    EXPECT_EQ(line->name(), std::string("Hammer"));
    EXPECT_TRUE(controller.addEAN("4006381333931", false));
    EXPECT_EQ(invoice->childsArray().size(), 1u);
    EXPECT_EQ(line->lineQuantity(), dec("2"));
    EXPECT_EQ(invoice->cost(), dec("25.80"));
    EXPECT_FALSE(controller.addEAN("0000000000000", false));
}

TEST_F(ItemEditingTest, PasteTextRowsUpToFifty) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    // Three strings: unit, name, notes; two numbers: quantity, price. One string and one
    // number: name and price.
    EXPECT_EQ(controller.pasteText("h\tDesign\tlogo drafts\t3\t80\nPrinting\t45.50\n"), 2u);
    auto lines = invoice->childsArray();
    ASSERT_EQ(lines.size(), 2u);
    auto* first = static_cast<BLCost*>(lines[0]);
    auto* second = static_cast<BLCost*>(lines[1]);
    EXPECT_EQ(first->unit(), std::string("h"));
    EXPECT_EQ(first->name(), std::string("Design"));
    EXPECT_EQ(first->notes(), std::string("logo drafts"));
    EXPECT_EQ(first->cost(), dec("240"));
    EXPECT_EQ(second->name(), std::string("Printing"));
    EXPECT_EQ(second->cost(), dec("45.50"));
    // No tab, or 51 rows: nothing at all.
    EXPECT_EQ(controller.pasteText("just some text"), 0u);
    std::string fiftyOne;
    for (int i = 0; i < 51; ++i) {
        fiftyOne += "row\t1\n";
    }
    EXPECT_EQ(controller.pasteText(fiftyOne), 0u);
    EXPECT_EQ(controller.pasteText(fiftyOne.substr(6)), 50u);
    EXPECT_EQ(invoice->childsArray().size(), 52u);
}

}  // namespace
}  // namespace brassline
