#include <functional>

#include <gtest/gtest.h>

#include "EntityFixture.h"
#include "core/Date.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLTitle.h"
#include "model/entities/UserEdits.h"

namespace brassline {
namespace {

class UserEditsTest : public EntityFixture {
protected:
    // An issued invoice with a line and a title under a client, a draft beside it.
    void SetUp() override {
        EntityFixture::SetUp();
        client = insert<BLClient>();
        client->setName("Acme");
        issued = insert<BLInvoice>();
        issued->setName("RE-001");
        issued->setParentDocument(client);
        line = insert<BLCost>();
        line->setParent(issued);
        title = insert<BLTitle>();
        title->setParent(issued);
        issued->setDateSent(Date::dateWithYear(2024, 3, 1));
        draft = insert<BLInvoice>();
        draft->setParentDocument(client);
        draftLine = insert<BLCost>();
        draftLine->setParent(draft);
        context().processPendingChanges();
    }

    BLClient* client = nullptr;
    BLInvoice* issued = nullptr;
    BLCost* line = nullptr;
    BLTitle* title = nullptr;
    BLInvoice* draft = nullptr;
    BLCost* draftLine = nullptr;
};

TEST_F(UserEditsTest, AnIssuedDocumentAndItsItemsAreReadOnlyExceptForTheirClosingKeys) {
    struct Row {
        const char* what;
        std::function<ManagedObject*()> object;
        const char* key;
        bool allowed;
    };
    const std::vector<Row> rows = {
        {"subject of the issued invoice", [&] { return issued; }, "subject", false},
        {"number of the issued invoice", [&] { return issued; }, "name", false},
        {"client of the issued invoice", [&] { return issued; }, "parentDocument", false},
        {"settling the issued invoice", [&] { return issued; }, "completeMode", true},
        {"attaching a payment", [&] { return issued; }, "documents", true},
        {"labels of the issued invoice", [&] { return issued; }, "documentLabels", true},
        {"plug-in values", [&] { return issued; }, "metaValues", true},
        {"a line's quantity", [&] { return line; }, "quantity", false},
        {"a title's name", [&] { return title; }, "name", false},
        // The closing keys are the document's, not its items'.
        {"a line's closing mark", [&] { return line; }, "completeMode", false},
        {"the draft's subject", [&] { return draft; }, "subject", true},
        {"a line of the draft", [&] { return draftLine; }, "quantity", true},
        {"the client above both", [&] { return client; }, "name", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EditCheck check = checkUserEdit(*row.object(), row.key);
        EXPECT_EQ(check.allowed(), row.allowed) << check.refusal;
        if (!row.allowed) {
            EXPECT_NE(check.refusal.find("is issued and read-only. Unlock it"), std::string::npos) << check.refusal;
            EXPECT_NE(check.refusal.find("RE-001"), std::string::npos) << check.refusal;
        }
    }
    EXPECT_FALSE(checkUserInsertion(*context().entityNamed("Cost"), issued).allowed());
    EXPECT_TRUE(checkUserInsertion(*context().entityNamed("Cost"), draft).allowed());
    EXPECT_TRUE(checkUserInsertion(*context().entityNamed("Client"), nullptr).allowed());
}

TEST_F(UserEditsTest, UnlockingOpensTheDocumentAgain) {
    EXPECT_EQ(lockingDocument(*line), issued);
    issued->setDateSent(std::nullopt);
    EXPECT_EQ(lockingDocument(*line), nullptr);
    EXPECT_TRUE(checkUserEdit(*issued, "subject").allowed());
    EXPECT_TRUE(checkUserDeletion(*line).allowed());
}

TEST_F(UserEditsTest, DeletionsFollowTheDeleteRulesAndSayWhy) {
    auto* currency = insert<BLCurrency>();
    currency->setName("CHF");
    draft->setCurrency(currency);
    auto* unusedCurrency = insert<BLCurrency>();
    unusedCurrency->setName("USD");
    auto* defaultCurrency = insert<BLCurrency>();
    defaultCurrency->setName("EUR");
    defaultCurrency->setIsDefaultValue(true);
    auto* itemGroup = insert<BLItemGroup>();
    itemGroup->setName("Hardware");
    draftLine->setItemGroup(itemGroup);
    auto* layout = insert<BLLayout>();
    layout->setName("Plain");
    draft->setLayout(layout);
    auto* emptyClient = insert<BLClient>();
    auto* group = insert<BLClientGroup>();
    group->setName("domestic");
    auto* usedGroup = insert<BLClientGroup>();
    usedGroup->setName("abroad");
    client->setClientGroup(usedGroup);
    auto* payment = insert<BLPayment>();
    payment->setParentDocument(issued);
    context().processPendingChanges();

    struct Row {
        const char* what;
        ManagedObject* object;
        const char* refusal;  // Empty: allowed.
    };
    const std::vector<Row> rows = {
        {"an issued invoice", issued, "is issued and can't be deleted, nor can its items. Unlock it first."},
        {"a line of an issued invoice", line, "is issued and can't be deleted"},
        {"a title of an issued invoice", title, "is issued and can't be deleted"},
        {"a draft", draft, ""},
        {"a line of a draft", draftLine, ""},
        {"a client with documents", client, "can't be deleted: it is used by 2 documents."},
        {"a client without any", emptyClient, ""},
        {"a currency in use", currency, "Currency \"CHF\" can't be deleted: it is used by 1 documents."},
        {"the default currency", defaultCurrency, "Currency \"EUR\" is the default and can't be deleted."},
        {"an unused currency", unusedCurrency, ""},
        {"an item group in use", itemGroup, "ItemGroup \"Hardware\" can't be deleted: it is used by 1 costs."},
        {"a layout in use", layout, "Layout \"Plain\" can't be deleted: it is used by 1 documents."},
        {"a client group in use", usedGroup, "ClientGroup \"abroad\" can't be deleted: it is used by 1 clients."},
        {"an unused client group", group, ""},
        // A payment is a document of its own beside the issued invoice, not an item of it.
        {"a payment of an issued invoice", payment, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EditCheck check = checkUserDeletion(*row.object);
        if (*row.refusal == '\0') {
            EXPECT_TRUE(check.allowed()) << check.refusal;
        } else {
            EXPECT_NE(check.refusal.find(row.refusal), std::string::npos) << "[" << check.refusal << "]";
        }
    }
}

}  // namespace
}  // namespace brassline
