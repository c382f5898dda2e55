#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../money/ItemTestSupport.h"
#include "core/Date.h"
#include "lifecycle/Conversions.h"
#include "model/BLSyncHelper.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLExternalFile.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLOption.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/BLTitle.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {
namespace {

const Date kConversionNow = Date(800000000.0);
const Date kSourceSent = Date(790000000.0);
const Date kSourceDue = Date(791000000.0);

// A client with its own layouts, pay interval and payment type; the documents below it
// are built under the sync flag so that their own values stay as written.
class ConversionTest : public ItemFixture {
protected:
    void SetUp() override {
        ItemFixture::SetUp();
        Clock::setNow(kConversionNow);
        client = insert<BLClient>();
        clientLayout = layoutNamed("client invoice layout");
        clientEstimateLayout = layoutNamed("client estimate layout");
        ownLayout = layoutNamed("own layout");
        clientPaymentType = insert<BLPaymentType>();
        plainPaymentType = insert<BLPaymentType>();
        {
            SyncingScope syncing;
            client->setLayout(clientLayout);
            client->setEstimateLayout(clientEstimateLayout);
            client->setPayInterval(int16_t{14});
            client->setPaymentType(clientPaymentType);
        }
        modelHooks().updateTaxRule = [this](BLDocument& document) {
            taxUpdates.push_back(&document);
            flagDuringTaxUpdate = BLSyncHelper::isSyncing();
        };
        modelHooks().userDefaultBool = [this](std::string_view key) {
            return key == kKeepLeadOnConversionDefault && keepLead;
        };
    }
    void TearDown() override {
        setRecurringSetUp(nullptr);
        Clock::setNow(std::nullopt);
        ItemFixture::TearDown();
    }

    BLLayout* layoutNamed(const char* name) {
        auto* layout = insert<BLLayout>();
        layout->setName(std::string(name));
        return layout;
    }
    // An issued document of the client with a number, lead, frozen output and an
    // attached file; its own layout and pay interval differ from the client's.
    template <typename T>
    T* issued(const char* number) {
        SyncingScope syncing;
        T* document = insert<T>();
        document->setCurrency(currencyNamed("EUR"));
        document->setParentDocument(client);
        document->setName(std::string(number));
        document->setLead(std::string("Dear client"));
        document->setDateSent(kSourceSent);
        document->setDateDue(kSourceDue);
        document->setLayout(ownLayout);
        document->setPayInterval(int16_t{45});
        document->setDateCreation(Date(1000.0));
        document->setStorage(insert<BLSendableStorage>());
        auto* file = insert<BLExternalFile>();
        file->setParentDocument(document);
        return document;
    }
    static std::vector<std::string> entityNames(const BLContainer& container) {
        std::vector<std::string> names;
        for (BLContainer* child : container.childs()) {
            names.push_back(child->entityName());
        }
        return names;
    }

    BLClient* client = nullptr;
    BLLayout* clientLayout = nullptr;
    BLLayout* clientEstimateLayout = nullptr;
    BLLayout* ownLayout = nullptr;
    BLPaymentType* clientPaymentType = nullptr;
    BLPaymentType* plainPaymentType = nullptr;
    std::vector<BLDocument*> taxUpdates;
    bool flagDuringTaxUpdate = true;
    bool keepLead = false;
};

TEST_F(ConversionTest, AnEstimateBecomesAnInvoiceThatBillsItsFormerOptions) {
    auto* estimate = issued<BLEstimate>("AN-7");
    addCost(estimate, "100");
    add<BLOption>(estimate);
    addCost(estimate, "50");
    // The estimate leaves the optional 50 out of its total.
    ASSERT_EQ(estimate->cost(), dec("100"));

    BLInvoice* invoice = createInvoice(*estimate);
    ASSERT_NE(invoice, nullptr);
    EXPECT_EQ(invoice->entityName(), "Invoice");
    EXPECT_EQ(entityNames(*invoice), (std::vector<std::string>{"Cost", "Title", "Cost"}));
    // 100 + 50: the heading is a plain title now, its lines count.
    EXPECT_EQ(invoice->cost(), dec("150"));
    EXPECT_EQ(estimate->completeModeValue(), 1) << "the estimate is accepted";
    EXPECT_EQ(invoice->completeModeValue(), 0);
    EXPECT_FALSE(invoice->name().has_value());
    EXPECT_FALSE(invoice->dateSent().has_value());
    EXPECT_FALSE(invoice->dateDue().has_value());
    EXPECT_EQ(invoice->dateCreation(), kConversionNow);
    EXPECT_FALSE(invoice->lead().has_value());
    EXPECT_EQ(invoice->reference(), std::optional<std::string>("AN-7"));
    EXPECT_EQ(invoice->layout(), clientLayout);
    EXPECT_EQ(invoice->payIntervalValue(), 14);
    EXPECT_EQ(invoice->storage(), nullptr);
    EXPECT_TRUE(invoice->documents().empty()) << "attached files stay with the estimate";
    EXPECT_EQ(invoice->parentDocument(), client);
    ASSERT_FALSE(taxUpdates.empty());
    EXPECT_EQ(taxUpdates.back(), invoice);
    EXPECT_FALSE(flagDuringTaxUpdate) << "the tax step runs after the flag is down";
    EXPECT_FALSE(BLSyncHelper::isSyncing());
}

TEST_F(ConversionTest, AnInvoiceBecomesAnEstimateBesideIt) {
    auto* invoice = issued<BLInvoice>("RE-3");
    invoice->setCompleteModeValue(1);
    addCost(invoice, "20", "3");

    BLEstimate* estimate = createEstimate(*invoice);
    ASSERT_NE(estimate, nullptr);
    EXPECT_EQ(estimate->entityName(), "Estimate");
    EXPECT_EQ(estimate->completeModeValue(), 0) << "completeMode is not copied";
    EXPECT_EQ(invoice->completeModeValue(), 1);
    EXPECT_FALSE(estimate->name().has_value());
    EXPECT_FALSE(estimate->dateSent().has_value());
    EXPECT_FALSE(estimate->dateDue().has_value());
    EXPECT_EQ(estimate->dateCreation(), kConversionNow);
    EXPECT_EQ(estimate->layout(), clientEstimateLayout);
    EXPECT_EQ(estimate->parentDocument(), client);
    EXPECT_FALSE(estimate->reference().has_value());
    // 20 x 3.
    EXPECT_EQ(estimate->cost(), dec("60"));
    EXPECT_FALSE(flagDuringTaxUpdate);
}

TEST_F(ConversionTest, TheLeadStaysOnlyWhenTheUserAsksForIt) {
    struct Row {
        const char* conversion;
        bool keep;
        std::optional<std::string> lead;
    };
    const Row rows[] = {
        {"invoice", false, std::nullopt},
        {"invoice", true, "Dear client"},
        {"estimate", false, std::nullopt},
        {"estimate", true, "Dear client"},
        // A credit note never keeps it.
        {"credit note", true, std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.conversion) + (row.keep ? " keeping" : " dropping"));
        keepLead = row.keep;
        BLSendable* made = nullptr;
        if (std::string(row.conversion) == "invoice") {
            made = createInvoice(*issued<BLEstimate>("AN-1"));
        } else if (std::string(row.conversion) == "estimate") {
            made = createEstimate(*issued<BLInvoice>("RE-1"));
        } else {
            made = createCreditNote(*issued<BLInvoice>("RE-1"));
        }
        ASSERT_NE(made, nullptr);
        EXPECT_EQ(made->lead(), row.lead);
    }
}

TEST_F(ConversionTest, ACreditNoteOfASettledInvoiceIsSettledWithNegatedQuantities) {
    auto* invoice = issued<BLInvoice>("RE-5");
    invoice->setCompleteModeValue(1);
    invoice->setRecurring(true);
    invoice->setRecurringModeValue(2);
    addCost(invoice, "10", "2");
    auto* group = add<BLGroup>(invoice);
    addCost(group, "3", "4");
    auto* inner = add<BLGroup>(group);
    addCost(inner, "1", "-5");

    BLInvoice* note = createCreditNote(*invoice);
    ASSERT_NE(note, nullptr);
    EXPECT_EQ(note->completeModeValue(), 1);
    EXPECT_EQ(note->dateDue(), kSourceDue) << "dateDue is not cleared";
    EXPECT_FALSE(note->dateSent().has_value());
    EXPECT_FALSE(note->name().has_value());
    EXPECT_EQ(note->dateCreation(), kConversionNow);
    EXPECT_EQ(note->reference(), std::optional<std::string>("RE-5"));
    EXPECT_FALSE(note->recurringValue());
    EXPECT_EQ(note->recurringModeValue(), 3);
    EXPECT_EQ(note->parentDocument(), client);
    EXPECT_EQ(note->storage(), nullptr);
    EXPECT_TRUE(note->documents().empty());
    // Every line negated: the note's total mirrors the invoice's.
    EXPECT_EQ(note->cost(), invoice->cost().invert());
    EXPECT_LT(note->cost(), Decimal());
    auto* noteGroup = dynamic_cast<BLGroup*>(note->childsArray().at(1));
    ASSERT_NE(noteGroup, nullptr);
    auto* noteInner = dynamic_cast<BLGroup*>(noteGroup->childsArray().at(1));
    ASSERT_NE(noteInner, nullptr);
    EXPECT_EQ(static_cast<BLCost*>(note->childsArray().at(0))->lineQuantity(), dec("-2"));
    EXPECT_EQ(static_cast<BLCost*>(noteGroup->childsArray().at(0))->lineQuantity(), dec("-4"));
    EXPECT_EQ(static_cast<BLCost*>(noteInner->childsArray().at(0))->lineQuantity(), dec("5"));
    // The source is untouched.
    EXPECT_EQ(static_cast<BLCost*>(invoice->childsArray().at(0))->lineQuantity(), dec("2"));
    EXPECT_TRUE(invoice->recurringValue());
}

TEST_F(ConversionTest, ADuplicateIsAFreshDraftThatKeepsItsOwnTerms) {
    struct Row {
        const char* kind;
        BLSendable* source;
    };
    const Row rows[] = {{"invoice", issued<BLInvoice>("RE-9")}, {"estimate", issued<BLEstimate>("AN-9")}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.kind);
        row.source->setCompleteModeValue(2);
        addCost(row.source, "7", "3");
        BLSendable* copy = duplicateSendable(*row.source);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->entityName(), row.source->entityName());
        EXPECT_FALSE(copy->name().has_value());
        EXPECT_FALSE(copy->dateSent().has_value());
        EXPECT_FALSE(copy->dateDue().has_value());
        EXPECT_EQ(copy->completeModeValue(), 0);
        EXPECT_EQ(copy->dateCreation(), kConversionNow);
        EXPECT_EQ(copy->storage(), nullptr);
        EXPECT_TRUE(copy->documents().empty());
        EXPECT_EQ(copy->parentDocument(), client);
        // Joining the parent under the flag takes nothing from the client.
        EXPECT_EQ(copy->layout(), ownLayout);
        EXPECT_EQ(copy->payIntervalValue(), 45);
        EXPECT_EQ(copy->cost(), dec("21"));
        EXPECT_FALSE(flagDuringTaxUpdate);
        EXPECT_EQ(taxUpdates.back(), copy);
    }
}

TEST_F(ConversionTest, RecurringNeedsItsSubsystemAndRunsItUnderTheFlag) {
    auto* invoice = issued<BLInvoice>("RE-11");
    const size_t invoicesBefore = client->collectDocumentsWithEntityName("Invoice").size();
    EXPECT_EQ(createRecurring(*invoice), nullptr);
    EXPECT_EQ(client->collectDocumentsWithEntityName("Invoice").size(), invoicesBefore) << "nothing is cloned";

    bool flagDuringSetUp = false;
    BLInvoice* seenSource = nullptr;
    setRecurringSetUp([&](BLInvoice& source, BLInvoice& copy) {
        flagDuringSetUp = BLSyncHelper::isSyncing();
        seenSource = &source;
        copy.setDateCreation(Date(5.0));
    });
    BLInvoice* next = createRecurring(*invoice);
    ASSERT_NE(next, nullptr);
    EXPECT_TRUE(flagDuringSetUp);
    EXPECT_EQ(seenSource, invoice);
    EXPECT_FALSE(next->name().has_value());
    EXPECT_EQ(next->storage(), nullptr);
    EXPECT_TRUE(next->documents().empty());
    EXPECT_EQ(next->dateCreation(), Date(5.0));
    EXPECT_FALSE(BLSyncHelper::isSyncing());
}

}  // namespace
}  // namespace brassline
