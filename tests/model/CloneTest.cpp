#include <gtest/gtest.h>

#include "EntityFixture.h"
#include "core/Date.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLDocumentLabel.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {
namespace {

class CloneTest : public EntityFixture {
protected:
    // An invoice below a client: a line, a group of two lines, a line marked doNotClone, a
    // label, a payment and frozen output.
    void SetUp() override {
        EntityFixture::SetUp();
        client = insert<BLClient>();
        invoice = insert<BLInvoice>();
        invoice->setParentDocument(client);
        invoice->setName(std::string("RE-1"));
        invoice->setDateSent(Date(100.0));
        invoice->setDateDue(Date(200.0));
        invoice->setCompleteModeValue(1);
        first = line("first");
        group = insert<BLGroup>();
        group->setName(std::string("group"));
        group->setParent(invoice);
        inGroupA = line("a", group);
        inGroupB = line("b", group);
        hidden = line("hidden");
        hidden->setDoNotClone(true);
        label = insert<BLDocumentLabel>();
        invoice->addDocumentLabelsObject(label);
        payment = insert<BLPayment>();
        payment->setParentDocument(invoice);
        storage = insert<BLSendableStorage>();
        invoice->setStorage(storage);
    }

    BLCost* line(const char* name, BLContainer* parent = nullptr) {
        BLCost* cost = insert<BLCost>();
        cost->setName(std::string(name));
        cost->setQuantity(Decimal(2));
        cost->setParent(parent != nullptr ? parent : invoice);
        return cost;
    }

    static std::vector<std::string> names(const std::vector<BLContainer*>& objects) {
        std::vector<std::string> result;
        for (BLContainer* object : objects) {
            result.push_back(object->name().value_or("?"));
        }
        return result;
    }

    BLClient* client = nullptr;
    BLInvoice* invoice = nullptr;
    BLCost* first = nullptr;
    BLGroup* group = nullptr;
    BLCost* inGroupA = nullptr;
    BLCost* inGroupB = nullptr;
    BLCost* hidden = nullptr;
    BLDocumentLabel* label = nullptr;
    BLPayment* payment = nullptr;
    BLSendableStorage* storage = nullptr;
};

TEST_F(CloneTest, ACloneCopiesOwnedChildrenSharesLabelsAndLinksItsSource) {
    auto* copy = dynamic_cast<BLInvoice*>(invoice->BLBase::clone());
    ASSERT_NE(copy, nullptr);
    EXPECT_FALSE(BLSyncHelper::isSyncing()) << "the root lowers the sync flag";
    EXPECT_NE(copy->uid(), invoice->uid());
    EXPECT_EQ(copy->source(), invoice);
    EXPECT_TRUE(copy->derivates().empty());
    EXPECT_TRUE(invoice->derivates().contains(copy));
    EXPECT_EQ(copy->name().value_or(""), "RE-1");
    EXPECT_EQ(copy->parentDocument(), client);

    EXPECT_EQ(names(copy->childsArray()), (std::vector<std::string>{"first", "group"}));
    EXPECT_EQ(names(invoice->childsArray()), (std::vector<std::string>{"first", "group", "hidden"}));
    auto* groupCopy = copy->childsArray()[1];
    EXPECT_NE(groupCopy, group);
    EXPECT_EQ(names(groupCopy->childsArray()), (std::vector<std::string>{"a", "b"}));
    EXPECT_NE(groupCopy->childsArray()[0], inGroupA);
    EXPECT_EQ(groupCopy->childsArray()[0]->source(), inGroupA);
    EXPECT_EQ(names(group->childsArray()), (std::vector<std::string>{"a", "b"})) << "the original keeps its lines";

    EXPECT_TRUE(copy->documentLabels().contains(label));
    EXPECT_TRUE(label->documents().contains(invoice));
    ASSERT_EQ(copy->documents().size(), 1u);
    EXPECT_NE(copy->documents()[0], payment) << "documents are owned: the payment is cloned";
    EXPECT_EQ(invoice->documents().size(), 1u);
}

TEST_F(CloneTest, DoNotCloneAnswersNil) {
    EXPECT_EQ(hidden->clone(), nullptr);
    group->setDoNotClone(true);
    auto* copy = dynamic_cast<BLInvoice*>(invoice->clone());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(names(copy->childsArray()), std::vector<std::string>{"first"});
}

TEST_F(CloneTest, TheSkipListReachesOnlyTheTop) {
    BLBase* copy = invoice->cloneWithEntityReplacements({}, {"name", "documentLabels"});
    auto* clonedInvoice = dynamic_cast<BLInvoice*>(copy);
    ASSERT_NE(clonedInvoice, nullptr);
    EXPECT_FALSE(clonedInvoice->name().has_value());
    EXPECT_TRUE(clonedInvoice->documentLabels().empty());
    EXPECT_EQ(names(clonedInvoice->childsArray()), (std::vector<std::string>{"first", "group"}));
}

TEST_F(CloneTest, ASendableCloneIsADraftWithoutFrozenOutput) {
    auto* copy = dynamic_cast<BLInvoice*>(invoice->clone());
    ASSERT_NE(copy, nullptr);
    EXPECT_FALSE(copy->dateSent().has_value());
    EXPECT_EQ(copy->storage(), nullptr);
    EXPECT_EQ(invoice->storage(), storage);
}

TEST_F(CloneTest, DuplicateOfAnInvoiceIsAFreshDraftBesideTheOriginal) {
    Clock::setNow(Date(5000.0));
    int taxUpdates = 0;
    modelHooks().updateTaxRule = [&](BLDocument&) { ++taxUpdates; };
    auto* copy = dynamic_cast<BLInvoice*>(invoice->duplicate());
    Clock::setNow(std::nullopt);
    ASSERT_NE(copy, nullptr);
    EXPECT_FALSE(copy->name().has_value());
    EXPECT_FALSE(copy->dateSent().has_value());
    EXPECT_FALSE(copy->dateDue().has_value());
    EXPECT_EQ(copy->completeModeValue(), 0);
    EXPECT_EQ(copy->dateCreation(), Date(5000.0));
    EXPECT_EQ(copy->storage(), nullptr);
    EXPECT_TRUE(copy->documents().empty()) << "payments stay with the original";
    EXPECT_EQ(copy->parentDocument(), client);
    EXPECT_EQ(client->documents().size(), 2u);
    EXPECT_GE(taxUpdates, 1);
    EXPECT_EQ(names(copy->childsArray()), (std::vector<std::string>{"first", "group"}));
}

TEST_F(CloneTest, ReplacementsChangeTheEntityAndCostPricesComeFromTheCatalog) {
    BLCatalogItem* article = insert<BLCatalogItem>();
    article->setName(std::string("article"));
    article->setCostPrice(Decimal(7));
    article->setUnitPrice(Decimal(12));
    BLLanguage* language = insert<BLLanguage>();
    article->setLanguage(language);

    auto* lineFromArticle = dynamic_cast<BLCost*>(article->cloneWithEntityReplacements({{"CatalogItem", "Cost"}}));
    ASSERT_NE(lineFromArticle, nullptr);
    EXPECT_EQ(lineFromArticle->entityName(), "Cost");
    EXPECT_EQ(lineFromArticle->unitPrice(), Decimal(12));
    EXPECT_EQ(lineFromArticle->catalogItem(), article);
    EXPECT_EQ(lineFromArticle->costPrice(), Decimal(7));
    EXPECT_EQ(lineFromArticle->language(), nullptr) << "a line clone leaves the language behind";
    EXPECT_EQ(lineFromArticle->quantity(), Decimal(1)) << "the clone is set up";

    auto* articleFromLine = dynamic_cast<BLCatalogItem*>(first->cloneWithEntityReplacements({{"Cost", "CatalogItem"}}));
    ASSERT_NE(articleFromLine, nullptr);
    EXPECT_EQ(articleFromLine->entityName(), "CatalogItem");
    EXPECT_EQ(articleFromLine->quantity(), Decimal(2));
}

TEST_F(CloneTest, LayoutCloneCopiesItsStorageButNoDocuments) {
    BLLayout* layout = insert<BLLayout>();
    BLLayoutStorage* layoutStorage = insert<BLLayoutStorage>();
    layoutStorage->setData(Bytes{1, 2, 3});
    layout->setStorage(layoutStorage);
    invoice->setLayout(layout);
    auto* copy = dynamic_cast<BLLayout*>(layout->clone());
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(copy->documents().empty());
    ASSERT_NE(copy->storage(), nullptr);
    EXPECT_NE(copy->storage(), layoutStorage);
    ASSERT_NE(copy->storage()->data(), nullptr);
    EXPECT_EQ(*copy->storage()->data(), (Bytes{1, 2, 3}));
    EXPECT_EQ(layout->storage(), layoutStorage);
}

TEST_F(CloneTest, TaxGroupDuplicateTakesOverItsItemGroups) {
    BLTaxGroup* standard = insert<BLTaxGroup>();
    standard->setName(std::string("Standard"));
    BLTaxRule* rule = insert<BLTaxRule>();
    rule->setTaxGroup(standard);
    rule->setTax1value(Decimal(19));
    BLItemGroup* services = insert<BLItemGroup>();
    services->setTaxGroup(standard);

    auto* copy = dynamic_cast<BLTaxGroup*>(standard->duplicate());
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy->name().value_or(""), "Standard");
    EXPECT_EQ(copy->name().value_or("").rfind("Standard (", 0), 0u);
    ASSERT_EQ(copy->taxRules().size(), 1u);
    EXPECT_EQ(copy->taxRules()[0]->tax1value(), Decimal(19));
    EXPECT_EQ(standard->taxRules().size(), 1u);
    EXPECT_EQ(services->taxGroup(), copy);
}

}  // namespace
}  // namespace brassline
