#include <algorithm>
#include <string>

#include "TaxTestSupport.h"
#include "core/Date.h"
#include "money/TaxRepairs.h"

namespace brassline {
namespace {

// A 2 × 2 matrix: home and abroad client groups by standard and reduced tax groups, made
// by the groups' own set-up, with a percentage in every cell.
class TaxMatrixTest : public TaxFixture {
protected:
    void SetUp() override {
        TaxFixture::SetUp();
        standard = group<BLTaxGroup>("standard");
        reduced = group<BLTaxGroup>("reduced");
        home = group<BLClientGroup>("home");
        abroad = group<BLClientGroup>("abroad");
        percent(home, standard, "19");
        percent(home, reduced, "7");
        percent(abroad, standard, "0");
        percent(abroad, reduced, "0");
        standardItems = itemGroup(standard);
        reducedItems = itemGroup(reduced);
        homeClient = client(home);
        abroadClient = client(abroad);
    }
    template <typename T>
    T* group(const char* name) {
        T* made = insert<T>();
        made->setName(std::string(name));
        made->setup();
        return made;
    }
    BLItemGroup* itemGroup(BLTaxGroup* taxGroup) {
        auto* made = insert<BLItemGroup>();
        made->setTaxGroup(taxGroup);
        return made;
    }
    BLClient* client(BLClientGroup* clientGroup) {
        auto* made = insert<BLClient>();
        made->setClientGroup(clientGroup);
        return made;
    }
    static BLTaxRule* find(BLClientGroup* clientGroup, BLTaxGroup* taxGroup) {
        for (BLTaxRule* rule : clientGroup->taxRules()) {
            if (rule->taxGroup() == taxGroup) {
                return rule;
            }
        }
        return nullptr;
    }
    void percent(BLClientGroup* clientGroup, BLTaxGroup* taxGroup, const char* value) {
        BLTaxRule* rule = find(clientGroup, taxGroup);
        ASSERT_NE(rule, nullptr);
        rule->setTax1mode(int16_t{1});
        rule->setTax1value(dec(value));
    }
    BLInvoice* invoiceFor(BLClient* owner) {
        BLInvoice* made = invoice("EUR");
        made->setParentDocument(owner);
        return made;
    }

    BLTaxGroup* standard = nullptr;
    BLTaxGroup* reduced = nullptr;
    BLClientGroup* home = nullptr;
    BLClientGroup* abroad = nullptr;
    BLItemGroup* standardItems = nullptr;
    BLItemGroup* reducedItems = nullptr;
    BLClient* homeClient = nullptr;
    BLClient* abroadClient = nullptr;
};

TEST_F(TaxMatrixTest, SetUpMakesOneRulePerPair) {
    EXPECT_EQ(countInContext<BLTaxRule>(context()), 4);
    for (BLClientGroup* clientGroup : {home, abroad}) {
        for (BLTaxGroup* taxGroup : {standard, reduced}) {
            EXPECT_NE(find(clientGroup, taxGroup), nullptr);
        }
    }
}

TEST_F(TaxMatrixTest, LinesFindTheCellOfTheirClientGroupAndTaxGroup) {
    struct Row {
        BLClient* owner;
        BLItemGroup* items;
        BLClientGroup* clientGroup;
        BLTaxGroup* taxGroup;
    };
    const Row rows[] = {
        {homeClient, standardItems, home, standard},
        {homeClient, reducedItems, home, reduced},
        {abroadClient, standardItems, abroad, standard},
        {abroadClient, reducedItems, abroad, reduced},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.clientGroup->name().value_or("") + " " + row.taxGroup->name().value_or(""));
        BLCost* cost = line(invoiceFor(row.owner), row.items, "10");
        cost->updateTaxRule();
        EXPECT_EQ(cost->taxRule(), find(row.clientGroup, row.taxGroup));
    }
}

// Lines go into a group as the command line inserts them: set-up gives the default item
// group, then the parent, then the item group asked for. A group is one line on one tax
// rule, so whatever the last line asks for, the group and the document tax all of it
// alike and agree.
TEST_F(TaxMatrixTest, GroupLinesShareOneItemGroupAndTheDocumentAgreesWithTheGroup) {
    struct Row {
        const char* name;
        BLItemGroup* secondAsks;  // Null: the second line asks for nothing.
        BLTaxGroup* shared;
        const char* tax;
        const char* gross;
    };
    const Row rows[] = {
        // The second line joins the group's reduced rule, then asks for standard and the
        // first follows: 200 at 19 % = 38.00.
        {"second asks for standard", standardItems, standard, "38", "238"},
        // Without an item group of its own it stays with the group: 200 at 7 % = 14.00.
        {"second asks for nothing", nullptr, reduced, "14", "214"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        BLInvoice* document = invoiceFor(homeClient);
        auto* group = insert<BLGroup>();
        group->setParent(document);
        auto insertLine = [&](BLItemGroup* asks) {
            auto* cost = insert<BLCost>();
            cost->setUnitPrice(dec("100"));
            cost->setQuantity(Decimal(1));
            cost->setItemGroup(standardItems);
            cost->setParent(group);
            if (asks != nullptr) {
                cost->setItemGroup(asks);
            }
            return cost;
        };
        BLCost* first = insertLine(reducedItems);
        BLCost* second = insertLine(row.secondAsks);
        EXPECT_EQ(first->taxRule(), find(home, row.shared));
        EXPECT_EQ(second->taxRule(), find(home, row.shared));
        document->resetCaches();
        EXPECT_EQ(group->lineTaxes(), dec(row.tax));
        EXPECT_EQ(document->tax(), dec(row.tax));
        EXPECT_EQ(document->costWithTaxes(), dec(row.gross));
    }
}

TEST_F(TaxMatrixTest, RulesFollowTheClientGroupUntilTheDocumentIsIssued) {
    BLInvoice* draft = invoiceFor(homeClient);
    BLCost* cost = line(draft, standardItems, "10");
    cost->updateTaxRule();
    ASSERT_EQ(cost->taxRule(), find(home, standard));

    homeClient->setClientGroup(abroad);
    cost->updateTaxRule();
    EXPECT_EQ(cost->taxRule(), find(abroad, standard));

    draft->setDateSent(Date::now());
    homeClient->setClientGroup(home);
    cost->updateTaxRule();
    EXPECT_EQ(cost->taxRule(), find(abroad, standard));
    EXPECT_FALSE(find(abroad, standard)->canEditTax());
    EXPECT_FALSE(abroad->canEditTax());
    EXPECT_FALSE(standard->canEditTax());
    EXPECT_TRUE(home->canEditTax());
    EXPECT_TRUE(reduced->canEditTax());

    // The internal step ignores the issued state: it is what repairs call.
    cost->updateTaxRuleInternal();
    EXPECT_EQ(cost->taxRule(), find(home, standard));
}

TEST_F(TaxMatrixTest, ACellsNewPercentageReachesADraftsTotals) {
    BLInvoice* draft = invoiceFor(homeClient);
    BLCost* draftLine = line(draft, standardItems, "100");
    draftLine->updateTaxRule();
    // Read once, so the sums sit in the caches: 100 + 19 % = 119.00.
    EXPECT_EQ(draft->costWithTaxes(), dec("119.00"));
    percent(home, standard, "20");
    // The line keeps its cell and takes the cell's new 20 %.
    EXPECT_EQ(draftLine->taxRule(), find(home, standard));
    EXPECT_EQ(draft->tax(), dec("20.00"));
    EXPECT_EQ(draft->costWithTaxes(), dec("120.00"));
}

TEST_F(TaxMatrixTest, LinesWithoutAPlaceInTheMatrixLoseTheirRule) {
    BLInvoice* draft = invoiceFor(homeClient);
    BLCost* cost = line(draft, standardItems, "10");
    cost->updateTaxRule();
    ASSERT_NE(cost->taxRule(), nullptr);
    // No client group: no cell.
    homeClient->setClientGroup(nullptr);
    cost->updateTaxRule();
    EXPECT_EQ(cost->taxRule(), nullptr);

    // A line without a parent is left alone by the guarded step.
    auto* loose = insert<BLCost>();
    loose->setTaxRule(find(home, reduced));
    loose->updateTaxRule();
    EXPECT_EQ(loose->taxRule(), find(home, reduced));
}

TEST_F(TaxMatrixTest, AnotherTaxGroupAndMissingRules) {
    BLCost* cost = line(invoiceFor(homeClient), standardItems, "10");
    EXPECT_EQ(cost->taxRuleForTaxGroup(reduced), find(home, reduced));
    EXPECT_EQ(cost->taxRule(), find(home, reduced));

    // A rule with a uid stays when only missing rules are looked up.
    cost->updateTaxRuleIfMissing();
    EXPECT_EQ(cost->taxRule(), find(home, reduced));
    cost->setTaxRule(nullptr);
    cost->updateTaxRuleIfMissing();
    EXPECT_EQ(cost->taxRule(), find(home, standard));
}

TEST_F(TaxMatrixTest, DocumentStepSkipsIssuedDocuments) {
    BLInvoice* draft = invoiceFor(homeClient);
    BLInvoice* issued = invoiceFor(homeClient);
    BLCost* draftLine = line(draft, reducedItems, "10");
    BLCost* issuedLine = line(issued, reducedItems, "10");
    issued->setDateSent(Date::now());
    issuedLine->setTaxRule(nullptr);
    updateTaxRule(*homeClient);
    EXPECT_EQ(draftLine->taxRule(), find(home, reduced));
    EXPECT_EQ(issuedLine->taxRule(), nullptr);
    // Missing rules are filled in issued documents too.
    fixTaxRulesIfMissing(context());
    EXPECT_EQ(issuedLine->taxRule(), find(home, reduced));
}

TEST_F(TaxMatrixTest, RepairKeepsTheBusiestDuplicateAndFillsGaps) {
    BLInvoice* draft = invoiceFor(homeClient);
    BLTaxRule* original = find(home, standard);
    // A duplicate cell that more lines use than the original.
    BLTaxRule* duplicate = cell(home, standard, "16");
    BLCost* first = line(draft, standardItems, "10");
    BLCost* second = line(draft, standardItems, "20");
    BLCost* third = line(draft, standardItems, "30");
    first->setTaxRule(duplicate);
    second->setTaxRule(duplicate);
    third->setTaxRule(original);
    // A gap: the abroad/reduced cell goes.
    context().deleteObject(find(abroad, reduced));

    fixTaxRules(context());
    EXPECT_TRUE(original->isDeleted());
    EXPECT_FALSE(duplicate->isDeleted());
    EXPECT_EQ(third->taxRule(), duplicate);
    EXPECT_EQ(duplicate->costs().size(), 3u);
    EXPECT_NE(find(abroad, reduced), nullptr);
    EXPECT_EQ(countInContext<BLTaxRule>(context()), 4);
}

TEST_F(TaxMatrixTest, DefaultsAndUnusedGroups) {
    // home gets two clients, so it becomes default; standard has two item groups.
    client(home);
    itemGroup(standard);
    fixTaxDefaults(context());
    EXPECT_TRUE(home->isDefaultValue());
    EXPECT_TRUE(standard->isDefaultValue());
    EXPECT_FALSE(abroad->isDefaultValue());

    BLCost* cost = line(invoiceFor(homeClient), reducedItems, "10");
    cost->updateTaxRule();
    UnusedTaxGroups unused = fixTaxes(context());
    ASSERT_EQ(unused.clientGroups.size(), 1u);
    EXPECT_EQ(unused.clientGroups.front(), abroad);
    ASSERT_EQ(unused.taxGroups.size(), 1u);
    EXPECT_EQ(unused.taxGroups.front(), standard);
}

TEST_F(TaxMatrixTest, PricesConvertBetweenModesThroughTheDefaultClientGroup) {
    home->setIsDefault(true);
    struct Row {
        BLItemGroup* items;
        const char* value;
        const char* added;
        const char* subtracted;
    };
    const Row rows[] = {
        // 100 + 19 % = 119; 100 less the included 15.97 = 84.03; 119 less 19 = 100.
        {standardItems, "100", "119", "84.03"},
        {standardItems, "119", "141.61", "100"},
        // 7 %: 9.99 + 0.6993 = 10.6893 → up to 10.69; 9.99 − 0.65 (0.6535 → 0.65) = 9.34.
        {reducedItems, "9.99", "10.69", "9.34"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        EXPECT_EQ(row.items->addDefaultTaxTo(dec(row.value)).toString(), row.added);
        EXPECT_EQ(row.items->subtractDefaultTaxFrom(dec(row.value)).toString(), row.subtracted);
    }
    EXPECT_EQ(standardItems->addDefaultTaxTo(std::nullopt).toString(), "0");
    auto* untaxed = insert<BLItemGroup>();
    EXPECT_EQ(untaxed->addDefaultTaxTo(dec("5.555")).toString(), "5.555");
}

}  // namespace
}  // namespace brassline
