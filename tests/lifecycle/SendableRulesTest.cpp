#include <string>

#include <gtest/gtest.h>

#include "../model/EntityFixture.h"
#include "lifecycle/SendableRules.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProject.h"
#include "model/entities/ModelHooks.h"

namespace brassline {
namespace {

// Two clients with different terms; documents move between them.
class SendableRulesTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        first = clientWith("first", 10, false);
        second = clientWith("second", 30, true);
        modelHooks().updateTaxRule = [this](BLDocument&) { ++taxUpdates; };
    }

    BLClient* clientWith(const char* name, int16_t payInterval, bool gross) {
        SyncingScope syncing;
        auto* client = insert<BLClient>();
        client->setName(std::string(name));
        client->setLayout(layoutNamed((std::string(name) + " layout").c_str()));
        client->setEstimateLayout(layoutNamed((std::string(name) + " estimate layout").c_str()));
        client->setPayInterval(payInterval);
        client->setUseGrossPrices(gross);
        auto* paymentType = insert<BLPaymentType>();
        paymentType->setName(std::string(name));
        client->setPaymentType(paymentType);
        auto* currency = insert<BLCurrency>();
        currency->setName(std::string(name) + " currency");
        client->setCurrency(currency);
        return client;
    }
    BLLayout* layoutNamed(const char* name) {
        auto* layout = insert<BLLayout>();
        layout->setName(std::string(name));
        return layout;
    }
    BLContact* contactOf(BLClient* client) {
        SyncingScope syncing;
        auto* contact = insert<BLContact>();
        contact->setParent(client);
        return contact;
    }

    BLClient* first = nullptr;
    BLClient* second = nullptr;
    int taxUpdates = 0;
};

TEST_F(SendableRulesTest, ANewParentBringsTheClientsTerms) {
    auto* invoice = insert<BLInvoice>();
    invoice->setParentDocument(first);
    // No parent before: the client's layout; a new client: its terms; no payment type or
    // currency of its own: the client's.
    EXPECT_EQ(invoice->layout(), first->layout());
    EXPECT_EQ(invoice->payIntervalValue(), 10);
    EXPECT_FALSE(invoice->useGrossPricesValue());
    EXPECT_EQ(invoice->paymentType(), first->paymentType());
    EXPECT_EQ(invoice->currency(), first->currency());
    EXPECT_EQ(invoice->contact(), first) << "the client becomes the contact";
    EXPECT_EQ(taxUpdates, 1);

    // Moving on to another client: terms follow, layout, payment type and currency stay.
    invoice->setParentDocument(second);
    EXPECT_EQ(invoice->layout(), first->layout());
    EXPECT_EQ(invoice->payIntervalValue(), 30);
    EXPECT_TRUE(invoice->useGrossPricesValue());
    EXPECT_EQ(invoice->paymentType(), first->paymentType());
    EXPECT_EQ(invoice->currency(), first->currency());
    EXPECT_EQ(invoice->contact(), second);
    EXPECT_EQ(taxUpdates, 2);

    // The same parent again changes nothing, and nothing below the document may hold it.
    invoice->setParentDocument(second);
    EXPECT_EQ(taxUpdates, 2);
    auto* payment = insert<BLPayment>();
    payment->setParentDocument(invoice);
    invoice->setParentDocument(payment);
    EXPECT_EQ(invoice->parentDocument(), second);
}

TEST_F(SendableRulesTest, WhileSyncingAParentIsOnlyStored) {
    auto* invoice = insert<BLInvoice>();
    {
        SyncingScope syncing;
        invoice->setParentDocument(first);
    }
    EXPECT_EQ(invoice->parentDocument(), first);
    EXPECT_EQ(invoice->layout(), nullptr);
    EXPECT_EQ(invoice->payInterval(), std::nullopt);
    EXPECT_EQ(invoice->contact(), nullptr);
    EXPECT_EQ(taxUpdates, 0);
}

TEST_F(SendableRulesTest, AnEstimateTakesTheEstimateLayoutAndValidityWhileADraft) {
    modelHooks().preferenceValue = [](ManagedObjectContext&, std::string_view key) {
        return key == "estimate.validity" ? Value(int64_t{21}) : Value();
    };
    auto* estimate = insert<BLEstimate>();
    estimate->setParentDocument(first);
    EXPECT_EQ(estimate->layout(), first->estimateLayout());
    EXPECT_EQ(estimate->payIntervalValue(), 21) << "validity, not the client's pay interval";

    auto* issued = insert<BLEstimate>();
    issued->setDateSent(Date(100.0));
    issued->setParentDocument(second);
    EXPECT_EQ(issued->layout(), second->layout()) << "an issued estimate keeps the sendable rule";
    EXPECT_EQ(issued->payIntervalValue(), 30);
}

TEST_F(SendableRulesTest, ValidateContactsKeepsOnlyContactsOfTheClient) {
    BLContact* ownContact = contactOf(first);
    BLContact* strangerContact = contactOf(second);
    struct Row {
        const char* name;
        BLDocument* parent;
        BLContact* contact;
        BLContact* expected;
    };
    const Row rows[] = {
        {"own contact is kept", first, ownContact, ownContact},
        {"the client itself is kept", first, first, first},
        {"another client's contact becomes the client", first, strangerContact, first},
        {"no contact becomes the client", first, nullptr, first},
        {"without a client the contact goes", nullptr, ownContact, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto* invoice = insert<BLInvoice>();
        {
            SyncingScope syncing;
            invoice->setParentDocument(row.parent);
            // The stored setter: the document's own would move it below the contact.
            invoice->gen::BLDocument::setContact(row.contact);
        }
        invoice->validateContacts();
        EXPECT_EQ(invoice->contact(), row.expected);
        EXPECT_EQ(invoice->currency(), row.parent != nullptr ? first->currency() : nullptr);
    }
}

TEST_F(SendableRulesTest, PaymentTypesFollowTheKindOfDocument) {
    auto typed = [this](const char* type, bool isDefault) {
        auto* paymentType = insert<BLPaymentType>();
        paymentType->setType(type != nullptr ? std::optional<std::string>(type) : std::nullopt);
        paymentType->setPrimitiveIsDefault(isDefault);
        return paymentType;
    };
    BLPaymentType* directDebit = typed("SEPA", false);
    BLPaymentType* plainDefault = typed(nullptr, true);
    BLPaymentType* validity = typed("BLEstimate", true);

    // An invoice gives up a typed payment type for the client's, else the plain default.
    auto* underClient = insert<BLInvoice>();
    {
        SyncingScope syncing;
        underClient->setParentDocument(first);
        underClient->setPaymentType(directDebit);
    }
    updatePaymentType(*underClient);
    EXPECT_EQ(underClient->paymentType(), first->paymentType());

    auto* alone = insert<BLInvoice>();
    alone->setPaymentType(directDebit);
    updatePaymentType(*alone);
    EXPECT_EQ(alone->paymentType(), plainDefault);

    // A plain one stays.
    auto* plain = insert<BLInvoice>();
    plain->setPaymentType(first->paymentType());
    updatePaymentType(*plain);
    EXPECT_EQ(plain->paymentType(), first->paymentType());

    // An estimate shows validity terms instead of payment terms.
    auto* estimate = insert<BLEstimate>();
    estimate->setPaymentType(plainDefault);
    updatePaymentType(*estimate);
    EXPECT_EQ(estimate->paymentType(), validity);
}

TEST_F(SendableRulesTest, RepairTakesAParentThatHangsNowhereFromTheContact) {
    BLContact* contact = contactOf(first);
    BLProject* project = nullptr;
    {
        SyncingScope syncing;
        project = insert<BLProject>();
        project->setParentDocument(second);
    }
    struct Row {
        const char* name;
        BLDocument* parent;
        BLContact* contact;
        BLDocument* expected;
    };
    const Row rows[] = {
        {"no parent: the contact's client", nullptr, contact, first},
        {"a client is a top document: the contact's client", second, contact, first},
        {"the client as contact: itself", nullptr, first, first},
        {"a project below a client is usable", project, contact, project},
        {"no contact, nothing to go by", nullptr, nullptr, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto* invoice = insert<BLInvoice>();
        {
            SyncingScope syncing;
            invoice->setParentDocument(row.parent);
            invoice->gen::BLDocument::setContact(row.contact);
        }
        invoice->fixMissingValues();
        EXPECT_EQ(invoice->parentDocument(), row.expected);
        EXPECT_FALSE(invoice->uid().value_or("").empty());
    }
}

}  // namespace
}  // namespace brassline
