#include "model/entities/BLInvoice.h"

#include <algorithm>

#include "core/Localization.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

constexpr const char* kDatePaidCacheKey = "datePaid_1";

}  // namespace

bool sendableAcceptsFollowUpOfProject(const std::vector<BLDocument*>& candidates) {
    if (candidates.empty()) {
        return false;
    }
    for (const BLDocument* candidate : candidates) {
        if (candidate == nullptr || candidate->entityName() != "FollowUp" || candidate->parentDocument() == nullptr ||
            !candidate->parentDocument()->isKindOfEntity("Project")) {
            return false;
        }
    }
    return true;
}

void BLInvoice::awakeFromCreate() {
    gen::BLInvoice::awakeFromCreate();
    if (isSyncing()) {
        return;
    }
    if (recurringIntervalValue() == 0) {
        setPrimitiveRecurringInterval(int16_t{1});
    }
    if (recurringModeValue() == 0) {
        setPrimitiveRecurringMode(int16_t{3});
    }
}

void BLInvoice::setup() {
    BLSendable::setup();
    if (layout() == nullptr) {
        BLLayout* fromClient = client() != nullptr ? client()->layout() : nullptr;
        if (fromClient == nullptr && managedObjectContext() != nullptr) {
            if (BLProfile* profile = defaultItemForContext<BLProfile>(*managedObjectContext())) {
                fromClient = profile->layout();
            }
        }
        setLayout(fromClient);
    }
    if (modelHooks().fixMissingLayout) {
        modelHooks().fixMissingLayout(*this);
    }
}

BLBase* BLInvoice::duplicate() {
    return duplicateAsDraft({"documents", "name", "storage", "parentDocument", "dateSent"});
}

std::vector<std::string> BLInvoice::allowedDocuments() const {
    std::vector<std::string> allowed = {"BLExternalFile", "BLExternalFileGroup"};
    // Payments only while money is open; with no balance known there is nothing to pay.
    if (modelHooks().invoiceBalance) {
        std::optional<Decimal> balance = modelHooks().invoiceBalance(*this);
        if (balance && *balance > Decimal()) {
            allowed.emplace_back("BLPayment");
        }
    }
    return allowed;
}

bool BLInvoice::allowsDocuments(const std::vector<BLDocument*>& candidates) const {
    for (const BLDocument* candidate : candidates) {
        if (candidate != nullptr && candidate->currency() != nullptr && candidate->currency() != currency()) {
            return false;
        }
    }
    return BLDocument::allowsDocuments(candidates) || sendableAcceptsFollowUpOfProject(candidates);
}

// State, dates and words.

std::vector<BLInvoice*> BLInvoice::partialInvoices() const {
    std::vector<BLInvoice*> result;
    for (BLDocument* document : documents()) {
        if (document != nullptr && document->entityName() == "PartialInvoice") {
            result.push_back(static_cast<BLInvoice*>(document));
        }
    }
    return result;
}

bool BLInvoice::isDraft() {
    std::vector<BLInvoice*> partials = partialInvoices();
    for (BLInvoice* partial : partials) {
        if (partial->dateSent() && partial->childs().empty()) {
            return false;
        }
    }
    if (!partials.empty() && balanced() && cost() != Decimal()) {
        return !dateSent();
    }
    return BLSendable::isDraft();
}

bool BLInvoice::isDue() {
    if (state() > 0 || !dateSent() || balanced()) {
        return false;
    }
    std::optional<Date> due = dateDue();
    return due && *due < Date::now().dayEnd();
}

bool BLInvoice::isOverDue() {
    if (!dateSent() || !isDue()) {
        return false;
    }
    int64_t interval = 0;
    if (ManagedObjectContext* context = managedObjectContext()) {
        interval = BLPreference::preferenceValue(*context, "invoice.overdueInterval").toInt64();
    }
    return Date::now().daysSinceDate(*dateDue()) > interval;
}

std::optional<Date> BLInvoice::dateOverdue() const {
    std::optional<Date> due = dateDue();
    if (!due) {
        return std::nullopt;
    }
    int64_t interval = 0;
    if (ManagedObjectContext* context = managedObjectContext()) {
        interval = BLPreference::preferenceValue(*context, "invoice.overdueInterval").toInt64();
    }
    return due->dateByAddingDays(static_cast<int>(interval));
}

std::optional<Date> BLInvoice::datePaid() {
    std::vector<BLPayment*> all = payments();
    if (all.empty() || !(balanced() || state() == 1)) {
        return std::nullopt;
    }
    if (std::optional<Value> cached = holdfastCacheValueForKey(kDatePaidCacheKey)) {
        if (const Date* date = cached->date()) {
            return *date;
        }
    }
    std::optional<Date> latest;
    for (BLPayment* payment : all) {
        std::optional<Date> paid = payment->dateCreation();
        if (paid && (!latest || *paid > *latest)) {
            latest = paid;
        }
    }
    if (latest) {
        setHoldfastCacheValue(Value(*latest), kDatePaidCacheKey);
    }
    return latest;
}

bool BLInvoice::canEditCurrency() const {
    std::vector<BLInvoice*> partials = partialInvoices();
    return std::none_of(partials.begin(), partials.end(), [](BLInvoice* partial) { return partial->dateSent(); });
}

bool BLInvoice::canSend() {
    std::vector<BLInvoice*> partials = partialInvoices();
    if (partials.empty()) {
        return true;
    }
    for (BLInvoice* partial : partials) {
        if (partial->dateSent()) {
            return true;
        }
    }
    return dateSent().has_value();
}

std::string BLInvoice::label() {
    if (hasPartialInvoices()) {
        return preferredLabel("finalInvoice.label", "invoice");
    }
    if (costWithTaxes() < Decimal()) {
        return preferredLabel("creditnote.label", "creditnote");
    }
    return preferredLabel("invoice.label", "invoice");
}

std::string BLInvoice::documentType() {
    if (hasPartialInvoices()) {
        return localizedString("Final invoice");
    }
    return localizedString(costWithTaxes() < Decimal() ? "credit note" : "invoice");
}

std::string BLInvoice::mailPrefsKey() {
    return cost() < Decimal() ? "creditnote" : "invoice";
}

int16_t BLInvoice::currentDeliveryType() const {
    if (modelHooks().sendPluginDeliveryType) {
        if (std::optional<int16_t> declared = modelHooks().sendPluginDeliveryType(*this)) {
            return *declared;
        }
    }
    return deliveryTypeValue();
}

void BLInvoice::setCompleteMode(std::optional<int16_t> value) {
    if (modelHooks().removeFromSepaQueue) {
        modelHooks().removeFromSepaQueue(*this);
    }
    gen::BLInvoice::setCompleteMode(value);
    notifyParentsForKey("tableInfo");
}

std::string BLInvoice::statusKey(bool forDisplay) {
    // The list word treats a draft as a draft even when nothing is owed; the plain key
    // answers "paid" for it, which scripts and filters have always seen.
    if (forDisplay) {
        if (isDraft()) {
            return "draft";
        }
        if (balanced()) {
            return "paid";
        }
        if (state() == 1) {
            return "settled";
        }
        if (state() == 2) {
            return "canceled";
        }
    } else {
        if (balanced()) {
            return "paid";
        }
        if (state() == 2) {
            return "canceled";
        }
        if (state() == 1) {
            return "settled";
        }
    }
    return dateSent() ? "sent" : "draft";
}

std::string BLInvoice::statusImage() {
    // A credit note shows as one whatever else holds; a closing mark beats the money.
    if (costWithTaxes() < Decimal()) {
        return "creditnote";
    }
    if (const int16_t mark = completeModeValue(); mark >= 1) {
        return mark == 1 ? "completed" : "cancelled";
    }
    if (balanced() && !isDraft()) {
        return "paid";
    }
    if (isOverDue()) {
        return "overdue";
    }
    return isDue() ? "due" : "";
}

}  // namespace brassline
