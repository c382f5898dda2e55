#include <gtest/gtest.h>

#include "EntityFixture.h"
#include "core/Date.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLExternalFile.h"
#include "model/entities/BLExternalFileGroup.h"
#include "model/entities/BLFollowUp.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPartialInvoice.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProject.h"

namespace brassline {
namespace {

using DocumentTreeTest = EntityFixture;

TEST_F(DocumentTreeTest, ClientAndProjectAreFoundUpTheTree) {
    BLClient* client = insert<BLClient>();
    BLProject* project = insert<BLProject>();
    project->setParentDocument(client);
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setParentDocument(project);
    EXPECT_EQ(invoice->client(), client);
    EXPECT_EQ(invoice->project(), project);
    EXPECT_EQ(client->client(), client);
    EXPECT_EQ(invoice->topmostParentDocument(), client);
    EXPECT_EQ(invoice->valueForKeyPath("client.uid"), Value(*client->uid()));
    EXPECT_TRUE(client->isParentOf(invoice));
    EXPECT_TRUE(invoice->isDescendantOf(client));
    EXPECT_FALSE(invoice->isParentOf(client));
    EXPECT_TRUE(invoice->hasParentDocumentOfClass("BLProject"));
}

TEST_F(DocumentTreeTest, AClientLookupInAParentLoopAnswersNil) {
    BLProject* first = insert<BLProject>();
    BLProject* second = insert<BLProject>();
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setParentDocument(second);
    {
        // Only a sync stores a loop: it stores without the guard.
        SyncingScope syncing;
        first->setParentDocument(second);
        second->setParentDocument(first);
    }
    EXPECT_EQ(invoice->client(), nullptr);
    EXPECT_EQ(first->client(), nullptr);
    EXPECT_NE(invoice->topmostParentDocument(), nullptr);
    EXPECT_EQ(first->countDocuments(), 1);
}

TEST_F(DocumentTreeTest, ADescendantIsRefusedAsParent) {
    BLClient* client = insert<BLClient>();
    BLProject* project = insert<BLProject>();
    project->setParentDocument(client);
    BLProject* inner = insert<BLProject>();
    inner->setParentDocument(project);
    client->setParentDocument(inner);
    EXPECT_EQ(client->parentDocument(), nullptr);
    project->setParentDocument(project);
    EXPECT_EQ(project->parentDocument(), client);
}

TEST_F(DocumentTreeTest, LeavingTheTreeDropsTheContact) {
    BLClient* client = insert<BLClient>();
    BLContact* person = insert<BLContact>();
    person->setParent(client);
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setContact(person);
    EXPECT_EQ(invoice->parentDocument(), client) << "the contact's client becomes the parent";
    invoice->setParentDocument(nullptr);
    EXPECT_EQ(invoice->contact(), nullptr);
    EXPECT_FALSE(person->assignedDocuments().contains(invoice));

    BLInvoice* direct = insert<BLInvoice>();
    direct->setContact(client);
    EXPECT_EQ(direct->parentDocument(), client) << "a contact without parent is the parent itself";
}

TEST_F(DocumentTreeTest, ASendableTakesItsClientsTerms) {
    BLCurrency* franc = insert<BLCurrency>();
    BLLayout* layout = insert<BLLayout>();
    BLPaymentType* transfer = insert<BLPaymentType>();
    BLClient* client = insert<BLClient>();
    client->setCurrency(franc);
    client->setLayout(layout);
    client->setPaymentType(transfer);
    client->setPayInterval(int16_t{45});
    client->setUseGrossPrices(true);
    int taxUpdates = 0;
    modelHooks().updateTaxRule = [&](BLDocument&) { ++taxUpdates; };

    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setPayInterval(int16_t{10});
    invoice->setParentDocument(client);
    EXPECT_EQ(invoice->currency(), franc);
    EXPECT_EQ(invoice->layout(), layout);
    EXPECT_EQ(invoice->paymentType(), transfer);
    EXPECT_EQ(invoice->payIntervalValue(), 45);
    EXPECT_TRUE(invoice->useGrossPricesValue());
    EXPECT_EQ(taxUpdates, 1);

    invoice->setParentDocument(client);
    EXPECT_EQ(taxUpdates, 1) << "an unchanged parent does nothing";
}

TEST_F(DocumentTreeTest, CountDocumentsCountsInvoicesAndEstimatesAndFollowsChanges) {
    BLClient* client = insert<BLClient>();
    BLProject* project = insert<BLProject>();
    project->setParentDocument(client);
    for (BLDocument* document : std::vector<BLDocument*>{insert<BLInvoice>(), insert<BLInvoice>(), insert<BLEstimate>(),
                                                         insert<BLPayment>()}) {
        document->setParentDocument(client);
    }
    insert<BLPartialInvoice>()->setParentDocument(project);
    // 2 invoices + 1 estimate directly, 1 partial invoice (an invoice) in the project; the
    // payment and the project count 0.
    EXPECT_EQ(client->countDocuments(), 4);
    EXPECT_EQ(client->sortDocuments(), 9996);
    EXPECT_EQ(client->valueForKey("countDocuments"), Value(4));
    insert<BLInvoice>()->setParentDocument(project);
    EXPECT_EQ(client->countDocuments(), 5) << "the cached count is reset by the move";
}

TEST_F(DocumentTreeTest, CollectingInvoicesSkipsPartialInvoices) {
    BLClient* client = insert<BLClient>();
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setParentDocument(client);
    insert<BLPartialInvoice>()->setParentDocument(client);
    BLProject* project = insert<BLProject>();
    project->setParentDocument(client);
    BLInvoice* inProject = insert<BLInvoice>();
    inProject->setParentDocument(project);
    std::vector<BLDocument*> found = client->collectDocumentsWithEntityName("Invoice");
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0], invoice);
    EXPECT_EQ(found[1], inProject);
    EXPECT_EQ(invoice->collectDocumentsWithEntityName("Invoice"), std::vector<BLDocument*>{invoice});
}

TEST_F(DocumentTreeTest, ExternalFilesDraftsAndFollowUps) {
    BLClient* client = insert<BLClient>();
    BLExternalFileGroup* folder = insert<BLExternalFileGroup>();
    folder->setParentDocument(client);
    BLExternalFile* inFolder = insert<BLExternalFile>();
    inFolder->setParentDocument(folder);
    BLExternalFile* loose = insert<BLExternalFile>();
    loose->setParentDocument(client);
    std::vector<BLDocument*> files = {folder, loose};
    EXPECT_EQ(client->collectExternalFiles(), files);

    BLInvoice* draft = insert<BLInvoice>();
    draft->setParentDocument(client);
    BLInvoice* issued = insert<BLInvoice>();
    issued->setParentDocument(client);
    issued->setDateSent(Date(100.0));
    BLEstimate* estimate = insert<BLEstimate>();
    estimate->setParentDocument(client);
    std::vector<BLDocument*> drafts = {draft, estimate};
    EXPECT_EQ(client->collectDrafts(), drafts);

    BLFollowUp* older = insert<BLFollowUp>();
    older->setDateSent(Date(50.0));
    BLFollowUp* newer = insert<BLFollowUp>();
    newer->setDateSent(Date(500.0));
    BLFollowUp* unsent = insert<BLFollowUp>();
    for (BLFollowUp* followUp : {older, unsent, newer}) {
        followUp->setParentDocument(issued);
    }
    std::vector<BLDocument*> letters = {newer, older, unsent};
    EXPECT_EQ(client->followUps(), letters);
}

TEST_F(DocumentTreeTest, AllowedChildrenFollowTheTreeTable) {
    BLCurrency* euro = insert<BLCurrency>();
    BLCurrency* franc = insert<BLCurrency>();
    BLClient* client = insert<BLClient>();
    BLInvoice* invoice = insert<BLInvoice>();
    invoice->setCurrency(euro);
    invoice->setParentDocument(client);
    BLEstimate* estimate = insert<BLEstimate>();
    BLExternalFileGroup* folder = insert<BLExternalFileGroup>();
    folder->setParentDocument(invoice);
    BLExternalFile* inFolder = insert<BLExternalFile>();
    inFolder->setParentDocument(folder);
    BLExternalFile* loose = insert<BLExternalFile>();
    BLPayment* payment = insert<BLPayment>();
    BLPayment* francPayment = insert<BLPayment>();
    francPayment->setCurrency(franc);
    BLProject* project = insert<BLProject>();
    BLFollowUp* projectLetter = insert<BLFollowUp>();
    projectLetter->setParentDocument(project);

    struct Row {
        const char* what;
        BLDocument* parent;
        BLDocument* candidate;
        bool allowed;
    };
    const Row rows[] = {
        {"client takes an invoice", client, insert<BLInvoice>(), true},
        {"client takes a payment", client, payment, true},
        {"client takes no follow-up", client, projectLetter, false},
        {"invoice takes a file", invoice, loose, true},
        {"invoice takes no payment without an open balance", invoice, payment, false},
        {"invoice refuses another currency", invoice, francPayment, false},
        {"invoice takes a follow-up of a project", invoice, projectLetter, true},
        {"estimate takes a follow-up of a project", estimate, projectLetter, true},
        {"estimate takes no payment", estimate, payment, false},
        {"a loose file takes a file", loose, insert<BLExternalFile>(), true},
        {"a file in a folder takes none", inFolder, insert<BLExternalFile>(), false},
        {"a folder takes a file", folder, loose, true},
        {"a payment takes nothing", payment, loose, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.parent->allowsDocuments({row.candidate}), row.allowed);
    }

    EXPECT_EQ(inFolder->allowedParentForDocument(payment), client);
    modelHooks().invoiceBalance = [](const BLInvoice&) -> std::optional<Decimal> { return Decimal(10); };
    EXPECT_EQ(inFolder->allowedParentForDocument(payment), invoice) << "an open balance takes payments";
}

TEST_F(DocumentTreeTest, ItemTreeAccessors) {
    BLInvoice* invoice = insert<BLInvoice>();
    BLGroup* group = insert<BLGroup>();
    BLCost* first = insert<BLCost>();
    BLCost* second = insert<BLCost>();
    BLCost* inGroup = insert<BLCost>();
    invoice->setChildsArray({first, group, second});
    inGroup->setParent(group);
    EXPECT_EQ(first->siblings(), (std::vector<BLContainer*>{group, second}));
    EXPECT_EQ(first->siblingsWithEntityName("Cost"), std::vector<BLContainer*>{second});
    EXPECT_EQ(invoice->combinedArray(), (std::vector<BLContainer*>{invoice, first, group, second}));
    EXPECT_EQ(invoice->collectChildrenWithEntityName("Cost"), (std::vector<BLContainer*>{first, inGroup, second}));
    EXPECT_EQ(inGroup->invoice(), invoice);
    EXPECT_EQ(inGroup->sendable(), invoice);
    EXPECT_EQ(inGroup->document(), invoice);
    EXPECT_TRUE(invoice->isRoot());
    EXPECT_FALSE(inGroup->isRoot());
}

}  // namespace
}  // namespace brassline
