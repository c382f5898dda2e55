#include <string>

#include <gtest/gtest.h>

#include "TaxTestSupport.h"
#include "model/NotificationCenter.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLSummaryCost.h"

namespace brassline {
namespace {

// Completion of lines from the catalog and from other lines, on a matrix of one default
// client group with a standard (19 %) and a reduced (7 %) tax group.
class ItemCompletionTest : public TaxFixture {
protected:
    void SetUp() override {
        TaxFixture::SetUp();
        standard = named<BLTaxGroup>("standard");
        reduced = named<BLTaxGroup>("reduced");
        home = named<BLClientGroup>("home");
        home->setIsDefault(true);
        percent(standard, "19");
        percent(reduced, "7");
        standardItems = itemGroup(standard, "Goods");
        reducedItems = itemGroup(reduced, "Books");
        homeClient = insert<BLClient>();
        homeClient->setClientGroup(home);
    }
    template <typename T>
    T* named(const char* name) {
        T* made = insert<T>();
        made->setName(std::string(name));
        made->setup();
        return made;
    }
    BLItemGroup* itemGroup(BLTaxGroup* taxGroup, const char* name) {
        auto* made = insert<BLItemGroup>();
        made->setName(std::string(name));
        made->setTaxGroup(taxGroup);
        return made;
    }
    BLTaxRule* cellOf(BLTaxGroup* taxGroup) {
        for (BLTaxRule* rule : home->taxRules()) {
            if (rule->taxGroup() == taxGroup) {
                return rule;
            }
        }
        return nullptr;
    }
    void percent(BLTaxGroup* taxGroup, const char* value) {
        BLTaxRule* rule = cellOf(taxGroup);
        ASSERT_NE(rule, nullptr);
        rule->setTax1mode(int16_t{1});
        rule->setTax1value(dec(value));
    }
    BLInvoice* clientInvoice(bool gross) {
        auto* made = insert<BLInvoice>();
        made->setParentDocument(homeClient);
        made->setUseGrossPrices(gross);
        return made;
    }
    BLCatalogItem* catalogItem(const char* net, const char* gross, BLItemGroup* group) {
        auto* item = insert<BLCatalogItem>();
        item->setup();
        item->setName(std::string("Lamp"));
        item->setNotes(std::string("LED, warm white"));
        item->setUnit(std::string("pc"));
        item->setWeight(dec("1.2"));
        item->setUnitPrice(dec(net));
        item->setUnitPriceGross(dec(gross));
        item->setItemGroup(group);
        return item;
    }

    BLTaxGroup* standard = nullptr;
    BLTaxGroup* reduced = nullptr;
    BLClientGroup* home = nullptr;
    BLItemGroup* standardItems = nullptr;
    BLItemGroup* reducedItems = nullptr;
    BLClient* homeClient = nullptr;
};

TEST_F(ItemCompletionTest, PriceFollowsThePriceModesOfBothSides) {
    struct Row {
        const char* name;
        bool fromCatalog;
        bool sourceGross;
        bool targetGross;
        BLItemGroup* group;
        const char* price;  // the catalog's net price, or the source line's price
        const char* expected;
    };
    // The catalog keeps both prices: net 100, gross 118.99 (a hand-kept figure, not
    // derived). Lines of another document convert only when the modes differ:
    // 100 + 19 % = 119; 119 less its included 119 x 19 / 119 = 19 gives 100;
    // 9.99 + 7 % = 10.6893, rounded to 10.69; 10.69 less its included
    // 10.69 x 7 / 107 = 0.69935 -> 0.70 gives 9.99.
    const Row rows[] = {
        {"catalog into net", true, false, false, standardItems, "100", "100"},
        {"catalog into gross", true, false, true, standardItems, "100", "118.99"},
        {"net line into gross", false, false, true, standardItems, "100", "119"},
        {"gross line into net", false, true, false, standardItems, "119", "100"},
        {"net line into net", false, false, false, standardItems, "100", "100"},
        {"gross line into gross", false, true, true, standardItems, "119", "119"},
        {"reduced net line into gross", false, false, true, reducedItems, "9.99", "10.69"},
        {"reduced gross line into net", false, true, false, reducedItems, "10.69", "9.99"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLCost* source = nullptr;
        if (row.fromCatalog) {
            source = catalogItem(row.price, "118.99", row.group);
        } else {
            source = line(clientInvoice(row.sourceGross), row.group, row.price);
        }
        BLCost* target = line(clientInvoice(row.targetGross), standardItems, "1");
        target->takeAutoCompletionFrom(source);
        ASSERT_TRUE(target->unitPrice().has_value());
        EXPECT_EQ(target->unitPrice()->toString(), row.expected);
    }
}

TEST_F(ItemCompletionTest, CatalogItemGivesItsValuesTaxAndSource) {
    BLInvoice* invoice = clientInvoice(false);
    BLCatalogItem* lamp = catalogItem("40", "47.60", reducedItems);
    BLCost* typed = line(invoice, standardItems, "12.50");
    typed->setQuantity(dec("2"));
    typed->setName(std::string("lam"));
    ASSERT_EQ(typed->taxRule(), cellOf(standard));
    int announced = 0;
    NotificationCenter::defaultCenter().addObserver(kDidAutoCompleteNotification, typed,
                                                    [&announced](const Notification&) { ++announced; });

    typed->takeAutoCompletionFrom(lamp);
    EXPECT_EQ(typed->name(), std::string("Lamp"));
    EXPECT_EQ(typed->notes(), std::string("LED, warm white"));
    EXPECT_EQ(typed->unit(), std::string("pc"));
    EXPECT_EQ(typed->weight()->toString(), "1.2");
    // Without a default quantity on the catalog item the typed 2 stays: 2 x 40 = 80.
    EXPECT_EQ(typed->quantity()->toString(), "2");
    EXPECT_EQ(typed->cost().toString(), "80");
    // The item group moves the line to the reduced cell: 7 % of 80 = 5.60.
    EXPECT_EQ(typed->itemGroup(), reducedItems);
    EXPECT_EQ(typed->taxRule(), cellOf(reduced));
    EXPECT_EQ(invoice->costWithTaxes().toString(), "85.6");
    EXPECT_EQ(typed->catalogItem(), lamp);
    EXPECT_EQ(announced, 1);

    // A default quantity is taken; a later catalog price comes back through the source.
    lamp->setDefaultQuantity(dec("3"));
    lamp->setUnitPrice(dec("42"));
    EXPECT_TRUE(typed->updateFromSource());
    EXPECT_EQ(typed->quantity()->toString(), "3");
    EXPECT_EQ(typed->cost().toString(), "126");
    EXPECT_EQ(announced, 2);

    BLCost* plain = line(invoice, standardItems, "5");
    EXPECT_FALSE(plain->updateFromSource());
    EXPECT_EQ(plain->unitPrice()->toString(), "5");
}

TEST_F(ItemCompletionTest, ItemGroupKeepsAContainerOnOneRule) {
    BLInvoice* invoice = clientInvoice(false);
    auto* group = insert<BLGroup>();
    group->setParent(invoice);
    BLCost* first = line(group, standardItems, "10");
    BLCost* second = line(group, standardItems, "20");
    BLCost* outside = line(invoice, standardItems, "30");

    // One line of the group changes group: its sibling follows, the line outside doesn't.
    first->setItemGroup(reducedItems);
    EXPECT_EQ(second->itemGroup(), reducedItems);
    EXPECT_EQ(second->taxRule(), cellOf(reduced));
    EXPECT_EQ(outside->taxRule(), cellOf(standard));
    // Net 10 + 20 + 30 = 60; tax 7 % of 30 = 2.10 and 19 % of 30 = 5.70: 67.80.
    EXPECT_EQ(invoice->costWithTaxes().toString(), "67.8");

    // A summary hands its group to the children with another rule.
    auto* summary = insert<BLSummaryCost>();
    summary->setParent(invoice);
    summary->setItemGroup(standardItems);
    BLCost* inside = line(summary, standardItems, "50");
    summary->setItemGroup(reducedItems);
    EXPECT_EQ(inside->itemGroup(), reducedItems);
    EXPECT_EQ(inside->taxRule(), cellOf(reduced));
    EXPECT_EQ(summary->taxRule(), cellOf(reduced));
}

TEST_F(ItemCompletionTest, SummaryTakesDisplayAndClonesOfTheChildren) {
    BLInvoice* invoice = clientInvoice(false);
    auto* model = insert<BLSummaryCost>();
    model->setParent(invoice);
    model->setDisplayType(int16_t{2});
    model->setSubtotal(false);
    BLCost* modelLine = line(model, standardItems, "7.5");
    modelLine->setName(std::string("Screws"));

    auto* summary = insert<BLSummaryCost>();
    summary->setParent(clientInvoice(false));
    summary->takeAutoCompletionFrom(model);
    EXPECT_EQ(summary->displayTypeValue(), 2);
    EXPECT_FALSE(summary->subtotalValue());
    std::vector<BLContainer*> children = summary->childsArray();
    ASSERT_EQ(children.size(), 1u);
    EXPECT_NE(children.front(), modelLine);
    EXPECT_EQ(children.front()->name(), std::string("Screws"));
    EXPECT_NE(children.front()->uid(), modelLine->uid());
    EXPECT_EQ(summary->lineUnitPrice().toString(), "7.5");
    // The model keeps its own line.
    EXPECT_EQ(model->childsArray().size(), 1u);
}

}  // namespace
}  // namespace brassline
