#include <string>

#include <gtest/gtest.h>

#include "ItemTestSupport.h"
#include "model/BLSyncHelper.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLSummaryCost.h"
#include "model/entities/CurrencyTable.h"
#include "money/BLInvoiceItemsTreeController.h"
#include "money/ItemPasteboard.h"

namespace brassline {
namespace {

class ItemPasteAndCurrencyTest : public ItemFixture {
protected:
    void SetUp() override {
        ItemFixture::SetUp();
        CurrencyTable::resetSharedTable();
    }
    // Starts the step under test with nothing left to undo from the set-up. Without
    // grouping by event every change outside an explicit group is a step of its own, so
    // only the code's own grouping can make an edit one step.
    UndoManager& freshUndo() {
        UndoManager& undo = *context().undoManager();
        undo.removeAllActions();
        undo.setGroupsByEvent(false);
        return undo;
    }
    BLCost* named(BLCost* cost, const char* name) {
        cost->setName(std::string(name));
        return cost;
    }
    static std::vector<std::string> names(const BLContainer& container) {
        std::vector<std::string> result;
        for (BLContainer* child : container.childsArray()) {
            result.push_back(child->entityName() + ":" + child->name().value_or(""));
        }
        return result;
    }
};

TEST_F(ItemPasteAndCurrencyTest, CurrencyChangeRepricesLinesAsOneStep) {
    BLCurrency* euro = currencyNamed("EUR");
    euro->setRate(dec("1"));
    BLCurrency* franc = currencyNamed("CHF");
    franc->setRate(dec("1.08"));
    auto* client = insert<BLClient>();
    auto* invoice = insert<BLInvoice>();
    invoice->setParentDocument(client);
    invoice->setCurrency(euro);
    BLCost* first = addCost(invoice, "10.00", "3");
    BLCost* second = addCost(invoice, "4.99");
    BLCost* third = addCost(invoice, "0.33", "7", "10");
    // EUR: 30 + 4.99 + (2.31 less 10 % = 2.079 -> 2.08) = 37.07.
    ASSERT_EQ(invoice->costWithTaxes().toString(), "37.07");
    int clientToldOfCost = 0;
    client->addObserverForKey("cost", [&clientToldOfCost](ManagedObject&, std::string_view) { ++clientToldOfCost; });
    UndoManager& undo = freshUndo();

    invoice->setCurrency(franc);
    // EUR to CHF: x 1 / 1.08, to cents in binary, then the franc's 0.05:
    // 10.00 -> 9.259 -> 9.26 -> 9.25; 4.99 -> 4.620 -> 4.62 -> 4.60; 0.33 -> 0.306 -> 0.31 -> 0.30.
    EXPECT_EQ(first->unitPrice()->toString(), "9.25");
    EXPECT_EQ(second->unitPrice()->toString(), "4.6");
    EXPECT_EQ(third->unitPrice()->toString(), "0.3");
    // Lines keep cents: 27.75 + 4.60 + (2.10 less 10 % = 1.89) = 34.24; payable to 0.05: 34.25.
    EXPECT_EQ(invoice->cost().toString(), "34.24");
    EXPECT_EQ(invoice->costWithTaxes().toString(), "34.25");
    EXPECT_GE(clientToldOfCost, 1);

    // One undo brings back the currency and every price.
    ASSERT_TRUE(undo.canUndo());
    undo.undo();
    EXPECT_FALSE(undo.canUndo());
    EXPECT_EQ(invoice->currency(), euro);
    EXPECT_EQ(first->unitPrice()->toString(), "10");
    EXPECT_EQ(second->unitPrice()->toString(), "4.99");
    EXPECT_EQ(third->unitPrice()->toString(), "0.33");
    EXPECT_EQ(invoice->costWithTaxes().toString(), "37.07");
}

TEST_F(ItemPasteAndCurrencyTest, CurrencyOnlyStoredWhenSyncingOrCleared) {
    BLCurrency* euro = currencyNamed("EUR");
    euro->setRate(dec("1"));
    BLCurrency* franc = currencyNamed("CHF");
    franc->setRate(dec("1.08"));
    auto* invoice = insert<BLInvoice>();
    BLCost* line = addCost(invoice, "10.00");
    // From no currency there is nothing to convert from.
    invoice->setCurrency(euro);
    EXPECT_EQ(line->unitPrice()->toString(), "10");
    {
        BLSyncHelper::setIsSyncing(true);
        invoice->setCurrency(franc);
        BLSyncHelper::setIsSyncing(false);
    }
    EXPECT_EQ(invoice->currency(), franc);
    EXPECT_EQ(line->unitPrice()->toString(), "10");
    invoice->setCurrency(nullptr);
    EXPECT_EQ(invoice->currency(), nullptr);
    EXPECT_EQ(line->unitPrice()->toString(), "10");
}

TEST_F(ItemPasteAndCurrencyTest, PastedGroupKeepsItsStructureWithNewUidsAndUndoesInOneStep) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    auto* group = add<BLGroup>(invoice);
    group->setName(std::string("Fixings"));
    BLCost* screws = named(addCost(group, "0.005", "1"), "Screws");
    named(addCost(group, "0.005", "1"), "Nails");
    BLCost* last = named(addCost(invoice, "5"), "Labour");
    // The group's 0.01 and 5: 5.01.
    ASSERT_EQ(invoice->cost().toString(), "5.01");

    // A line selected with its group travels once, inside the group.
    ItemPasteboard pasteboard;
    controller.setSelection({group, screws});
    controller.copySelection(pasteboard);
    controller.setSelection({last});
    UndoManager& undo = freshUndo();
    EXPECT_EQ(controller.paste(pasteboard), 1u);

    EXPECT_EQ(names(*invoice), (std::vector<std::string>{"Group:Fixings", "Cost:Labour", "Group:Fixings"}));
    BLContainer* copy = invoice->childsArray().back();
    EXPECT_NE(copy, group);
    EXPECT_NE(copy->uid(), group->uid());
    EXPECT_EQ(names(*copy), (std::vector<std::string>{"Cost:Screws", "Cost:Nails"}));
    EXPECT_NE(copy->childsArray().front(), screws);
    EXPECT_NE(copy->childsArray().front()->uid(), screws->uid());
    EXPECT_EQ(group->childsArray().size(), 2u);
    // 0.01 + 5 + 0.01.
    EXPECT_EQ(invoice->cost().toString(), "5.02");

    ASSERT_TRUE(undo.canUndo());
    undo.undo();
    EXPECT_FALSE(undo.canUndo());
    EXPECT_EQ(names(*invoice), (std::vector<std::string>{"Group:Fixings", "Cost:Labour"}));
    EXPECT_TRUE(copy->isDeleted());
    EXPECT_EQ(invoice->cost().toString(), "5.01");
}

TEST_F(ItemPasteAndCurrencyTest, PasteChoosesTheFormatAndRefusesIssuedDocuments) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    BLCost* line = named(addCost(invoice, "2"), "Cable");
    ItemPasteboard pasteboard;
    controller.setSelection({line});
    controller.copySelection(pasteboard);
    pasteboard.setValue(ItemPasteboard::kTextType, Value(std::string("Plug\t3\t1.50\n")));

    struct Row {
        const char* name;
        bool otherStore;
        bool withText;
        size_t made;
        const char* addedName;
    };
    const Row rows[] = {
        // Own items win over the text on the same pasteboard.
        {"own items", false, true, 1, "Cable"},
        // Items of another company file are not ours: the text row is taken.
        {"other store", true, true, 1, "Plug"},
        {"other store without text", true, false, 0, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ItemPasteboard board = pasteboard;
        if (row.otherStore) {
            Value::Dictionary record = *pasteboard.value(ItemPasteboard::kItemIdsType)->dictionary();
            record["storeIdentifier"] = Value(std::string("another-store"));
            board.setValue(ItemPasteboard::kItemIdsType, Value(std::move(record)));
        }
        if (!row.withText) {
            board.setValue(ItemPasteboard::kTextType, Value());
        }
        size_t before = invoice->childsArray().size();
        controller.setSelection({});
        EXPECT_EQ(controller.paste(board), row.made);
        ASSERT_EQ(invoice->childsArray().size(), before + row.made);
        if (row.addedName != nullptr) {
            EXPECT_EQ(invoice->childsArray().back()->name(), std::string(row.addedName));
        }
    }
    // Cable 2, its copy 2, and the text row's 3 x 1.50 = 4.50: 8.50.
    EXPECT_EQ(invoice->cost().toString(), "8.5");

    invoice->setDateSent(Date::now());
    size_t issuedCount = invoice->childsArray().size();
    EXPECT_EQ(controller.paste(pasteboard), 0u);
    EXPECT_EQ(invoice->childsArray().size(), issuedCount);
}

TEST_F(ItemPasteAndCurrencyTest, PastedSummaryKeepsItsLinesAndLeavesTheSelection) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    auto* summary = add<BLSummaryCost>(invoice);
    summary->setName(std::string("Kit"));
    named(addCost(summary, "4"), "Part");
    BLCost* loose = named(addCost(invoice, "1"), "Loose");

    ItemPasteboard pasteboard;
    controller.setSelection({summary});
    controller.copySelection(pasteboard);
    controller.setSelection({loose});
    EXPECT_EQ(controller.paste(pasteboard), 1u);
    EXPECT_EQ(loose->parent(), invoice);
    EXPECT_EQ(names(*invoice), (std::vector<std::string>{"SummaryCost:Kit", "Cost:Loose", "SummaryCost:Kit"}));
    EXPECT_EQ(names(*invoice->childsArray().back()), (std::vector<std::string>{"Cost:Part"}));
    // 4 + 1 + 4.
    EXPECT_EQ(invoice->cost().toString(), "9");

    // A new, empty summary still gathers the selected lines.
    controller.setSelection({loose});
    BLItem* gathering = controller.addItem("SummaryCost");
    ASSERT_NE(gathering, nullptr);
    EXPECT_EQ(loose->parent(), gathering);
}

}  // namespace
}  // namespace brassline
