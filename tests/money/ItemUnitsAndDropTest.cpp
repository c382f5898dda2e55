#include <string>

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

using ItemUnitsAndDropTest = ItemFixture;

TEST_F(ItemUnitsAndDropTest, DurationsAndCountsStayApart) {
    // The store's own time unit "Tag" joins the list, lower-cased.
    modelHooks().preferenceValue = [](ManagedObjectContext&, std::string_view key) {
        return key == "timeImporter.unit" ? Value(std::string("Tag")) : Value();
    };
    BLInvoice* invoice = invoiceIn("EUR");
    struct Row {
        const char* unit;
        const char* quantity;
        int64_t seconds;
        const char* count;
        const char* code;
    };
    const Row rows[] = {
        {"h", "1.5", 5400, "0", "HUR"},
        {"Std.", "0.25", 900, "0", "HUR"},
        {"H", "2", 7200, "0", "HUR"},
        // 0.7 as a float is 0.699999988...; x 3600 = 2519.99995..., truncated: 2519.
        {"h", "0.7", 2519, "0", "HUR"},
        {"Tag", "8", 28800, "0", "HUR"},
        {"pc", "3", 0, "3", "C62"},
        {"", "2.5", 0, "2.5", "C62"},
    };
    int64_t allSeconds = 0;
    Decimal allCount;
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.unit) + " " + row.quantity);
        BLCost* line = addCost(invoice, "1", row.quantity);
        line->setUnit(std::string(row.unit));
        int64_t seconds = 0;
        Decimal count;
        line->collectDuration(seconds);
        line->collectQuantity(count);
        EXPECT_EQ(seconds, row.seconds);
        EXPECT_EQ(count.toString(), row.count);
        EXPECT_EQ(line->quantityUnitCode(), row.code);
        line->collectDuration(allSeconds);
        line->collectQuantity(allCount);
    }
    // 5400 + 900 + 7200 + 2519 + 28800; 3 + 2.5.
    EXPECT_EQ(allSeconds, 44819);
    EXPECT_EQ(allCount.toString(), "5.5");
}

TEST_F(ItemUnitsAndDropTest, SectionsSumTheirTimeAndTheirCounts) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* work = add<BLTitle>(invoice);
    addCost(invoice, "80", "1.5")->setUnit(std::string("h"));
    addCost(invoice, "3", "2")->setUnit(std::string("pc"));
    addCost(invoice, "3", "1.5")->setUnit(std::string("pc"));
    auto* firstTotal = add<BLSubTotal>(invoice);
    auto* other = add<BLTitle>(invoice);
    addCost(invoice, "3", "0.5")->setUnit(std::string("pc"));
    auto* secondTotal = add<BLSubTotal>(invoice);
    // Section one: 1.5 h = 5400 s; counts 2 + 1.5 = 3.5, the hours left out.
    EXPECT_EQ(work->duration(), 5400);
    EXPECT_EQ(firstTotal->quantityString(), "3.5");
    // Section two: no time; 0.5 has a whole part of 0 and prints nothing.
    EXPECT_EQ(other->duration(), 0);
    EXPECT_EQ(secondTotal->quantityString(), "");
}

TEST_F(ItemUnitsAndDropTest, TypedNumbersAndTheLegacyRate) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* line = addCost(invoice, "10", "1");
    struct Row {
        const char* text;
        bool isDiscount;
        bool accepted;
        const char* stored;
    };
    const Row rows[] = {
        {"2.5", false, true, "2.5"},     {"3*4", false, true, "12"}, {"1'250.50", false, true, "1250.5"},
        {"abc", false, false, "1250.5"}, {"15 %", true, true, "15"}, {"%", true, false, "15"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        if (row.isDiscount) {
            EXPECT_EQ(line->setFastDiscount(row.text), row.accepted);
            EXPECT_EQ(line->discount()->toString(), row.stored);
        } else {
            EXPECT_EQ(line->setFastQuantity(row.text), row.accepted);
            EXPECT_EQ(line->quantity()->toString(), row.stored);
        }
    }
    // 1250.5 x 10 = 12505, less 15 % (1875.75) = 10629.25; the typed values reached the sum.
    EXPECT_EQ(invoice->cost().toString(), "10629.25");

    // 12.345678 as a float is 12.3456783294...; 4 digits: 12.3457.
    line->setRate(12.345678f);
    EXPECT_EQ(line->unitPrice()->toString(), "12.3457");
    line->setRate(0.1f);
    EXPECT_EQ(line->rate().toString(), "0.1");
}

TEST_F(ItemUnitsAndDropTest, CatalogCostPriceReadsAndWritesThroughTheCatalogItem) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* item = insert<BLCatalogItem>();
    item->setCostPrice(dec("6"));
    BLCost* line = addCost(invoice, "10", "2");
    line->setCostPrice(dec("7"));
    EXPECT_EQ(line->catalogCostPrice()->toString(), "7");
    line->setSource(item);
    EXPECT_EQ(line->catalogCostPrice()->toString(), "6");
    line->setCatalogCostPrice(dec("6.5"));
    EXPECT_EQ(item->costPrice()->toString(), "6.5");
    EXPECT_EQ(line->costPrice()->toString(), "7");
}

TEST_F(ItemUnitsAndDropTest, DropRulesOfSummariesAndGroups) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLInvoiceItemsTreeController controller(*invoice);
    auto* goods = insert<BLItemGroup>();
    auto* books = insert<BLItemGroup>();
    auto* summary = add<BLSummaryCost>(invoice);
    auto* group = add<BLGroup>(invoice);
    BLCost* member = addCost(group, "1");
    member->setItemGroup(goods);
    BLCost* goodsLine = addCost(invoice, "2");
    goodsLine->setItemGroup(goods);
    BLCost* otherGoodsLine = addCost(invoice, "2");
    otherGoodsLine->setItemGroup(goods);
    BLCost* booksLine = addCost(invoice, "3");
    booksLine->setItemGroup(books);
    auto* goodsArticle = insert<BLCatalogItem>();
    goodsArticle->setItemGroup(goods);
    auto* note = add<BLNote>(invoice);
    auto* title = add<BLTitle>(invoice);

    struct Row {
        const char* name;
        std::vector<BLBase*> dragged;
        const BLItem* target;
        bool allowed;
    };
    const Row rows[] = {
        {"lines and notes onto a summary", {goodsLine, booksLine, note}, summary, true},
        {"catalog item onto a summary", {goodsArticle}, summary, true},
        {"title onto a summary", {goodsLine, title}, summary, false},
        {"same item group onto a group", {goodsLine, otherGoodsLine}, group, true},
        {"catalog item of the group's item group", {goodsArticle}, group, true},
        {"another item group onto a group", {booksLine}, group, false},
        {"two item groups onto a group", {goodsLine, booksLine}, group, false},
        {"lines mixed with catalog items", {goodsLine, goodsArticle}, group, false},
        {"a note onto a group", {note}, group, false},
        {"onto a plain line", {goodsLine}, booksLine, false},
        {"between top-level rows", {title, note}, nullptr, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(controller.validateDrop(row.dragged, row.target), row.allowed);
    }

    // A line of another document's context is never moved in.
    ManagedObjectContext other(gen::brasslineModel());
    auto* stranger = BLCost::insertInManagedObjectContext(other);
    EXPECT_FALSE(controller.validateDrop({stranger}, nullptr));
    invoice->setDateSent(Date::now());
    EXPECT_FALSE(controller.validateDrop({goodsLine}, nullptr));
}

}  // namespace
}  // namespace brassline
