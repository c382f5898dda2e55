#include "lifecycle/Conversions.h"

#include <optional>
#include <string>

#include "core/Date.h"
#include "core/Log.h"
#include "lifecycle/SendableRules.h"
#include "model/BLSyncHelper.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

RecurringSetUp& recurringSetUp() {
    static RecurringSetUp setUp;
    return setUp;
}

bool keepLead() {
    return userDefaultIsOn(kKeepLeadOnConversionDefault);
}

// The steps after the flag is down: they derive from the finished copy.
void finish(BLSendable& copy, bool withPaymentType) {
    updateTaxRuleIfInstalled(copy);
    if (withPaymentType) {
        updatePaymentType(copy);
    }
    copy.resetCaches();
}

void invertBelow(BLContainer& container) {
    for (BLContainer* child : container.childs()) {
        if (auto* line = dynamic_cast<BLCost*>(child)) {
            line->invertQuantities();
        } else {
            invertBelow(*child);
        }
    }
}

}  // namespace

void invertQuantities(BLSendable& sendable) {
    invertBelow(sendable);
}

BLInvoice* createInvoice(BLEstimate& estimate) {
    BLInvoice* invoice = nullptr;
    {
        SyncingScope syncing;
        invoice = dynamic_cast<BLInvoice*>(
            estimate.cloneWithEntityReplacements({{"Estimate", "Invoice"}, {"Option", "Title"}},
                                                 {"name", "completeMode", "storage", "documents", "dateCreation"}));
        if (invoice == nullptr) {
            logMessage("The estimate %@ can't become an invoice", estimate.uid().value_or(""));
            return nullptr;
        }
        estimate.setCompleteMode(int16_t{1});
        invoice->setDateCreation(Date::now());
        invoice->setDateSent(std::nullopt);
        invoice->setDateDue(std::nullopt);
        if (!keepLead()) {
            invoice->setLead(std::nullopt);
        }
        if (BLClient* client = invoice->client()) {
            invoice->setLayout(client->layout());
            invoice->setPayInterval(client->payInterval());
        }
        invoice->setReference(estimate.name());
    }
    finish(*invoice, true);
    estimate.resetCaches();
    return invoice;
}

BLEstimate* createEstimate(BLInvoice& invoice) {
    BLEstimate* estimate = nullptr;
    {
        SyncingScope syncing;
        estimate = dynamic_cast<BLEstimate*>(invoice.cloneWithEntityReplacements(
            {{"Invoice", "Estimate"}}, {"documents", "name", "storage", "completeMode", "dateCreation"}));
        if (estimate == nullptr) {
            logMessage("The invoice %@ can't become an estimate", invoice.uid().value_or(""));
            return nullptr;
        }
        estimate->setDateCreation(Date::now());
        estimate->setDateSent(std::nullopt);
        estimate->setDateDue(std::nullopt);
        estimate->setParentDocument(invoice.parentDocument());
        if (!keepLead()) {
            estimate->setLead(std::nullopt);
        }
        if (BLClient* client = estimate->client()) {
            estimate->setLayout(client->estimateLayout());
        }
    }
    finish(*estimate, true);
    return estimate;
}

BLInvoice* createCreditNote(BLInvoice& invoice) {
    BLInvoice* note = nullptr;
    {
        SyncingScope syncing;
        note = dynamic_cast<BLInvoice*>(invoice.cloneWithEntityReplacements({{"PermanentInvoiceRepetition", "Invoice"}},
                                                                            {"documents", "name", "storage"}));
        if (note == nullptr) {
            logMessage("No credit note can be made of the invoice %@", invoice.uid().value_or(""));
            return nullptr;
        }
        // dateDue and completeMode stay as they were on the invoice: a note of a settled
        // invoice is settled from the start.
        note->setDateCreation(Date::now());
        note->setDateSent(std::nullopt);
        note->setLead(std::nullopt);
        note->setRecurringMode(int16_t{3});
        note->setRecurring(false);
        note->setReference(invoice.name());
        note->setParentDocument(invoice.parentDocument());
        invertQuantities(*note);
    }
    note->resetCaches();
    return note;
}

BLSendable* duplicateSendable(BLSendable& sendable) {
    BLSendable* copy = dynamic_cast<BLSendable*>(sendable.duplicate());
    if (copy == nullptr) {
        logMessage("The document %@ can't be duplicated", sendable.uid().value_or(""));
    }
    return copy;
}

void setRecurringSetUp(RecurringSetUp setUp) {
    recurringSetUp() = std::move(setUp);
}

BLInvoice* createRecurring(BLInvoice& invoice) {
    if (!recurringSetUp()) {
        logMessage("Recurring invoices are not available yet; %@ is not repeated", invoice.uid().value_or(""));
        return nullptr;
    }
    BLInvoice* copy = nullptr;
    {
        SyncingScope syncing;
        copy = dynamic_cast<BLInvoice*>(invoice.cloneWithEntityReplacements({}, {"documents", "name", "storage"}));
        if (copy == nullptr) {
            logMessage("The invoice %@ can't be repeated", invoice.uid().value_or(""));
            return nullptr;
        }
        recurringSetUp()(invoice, *copy);
    }
    finish(*copy, false);
    return copy;
}

}  // namespace brassline
