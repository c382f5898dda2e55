#include <algorithm>

#include "core/KeyedArchive.h"
#include "core/Localization.h"
#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/BLTranscript.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

constexpr const char* kSentChangedNotification = "SentChanged";
constexpr const char* kDatePaidCacheKey = "datePaid_1";
constexpr const char* kUnlockedOperation = "Unlocked";

// A preference label (for example "invoice.label"), translated for the client's language
// when a translation is known; the localised fallback word when the preference is empty.
std::string preferredLabel(BLSendable& sendable, std::string_view prefKey, std::string_view fallback) {
    std::string text;
    if (ManagedObjectContext* context = sendable.managedObjectContext()) {
        text = BLPreference::preferenceValue(*context, prefKey).toString();
    }
    if (text.empty()) {
        return localizedString(fallback);
    }
    BLClient* client = sendable.client();
    if (client != nullptr && client->language() != nullptr && modelHooks().translateWithLanguage) {
        if (std::optional<std::string> translated = modelHooks().translateWithLanguage(*client->language(), text)) {
            return *translated;
        }
    }
    return text;
}

std::string twoDigits(int value) {
    std::string text = std::to_string(value);
    return text.size() < 2 ? "0" + text : text;
}

}  // namespace

bool BLSendable::numberIsUnique() const {
    std::optional<std::string> number = name();
    ManagedObjectContext* context = managedObjectContext();
    if (!number || context == nullptr) {
        return true;
    }
    FetchRequest request(entityName());
    request.setIncludesSubentities(false);
    if (!request.setPredicateFormat("name == %@", {Value(*number)})) {
        return true;
    }
    std::optional<std::vector<ManagedObject*>> found = context->executeFetchRequest(request);
    if (!found) {
        return true;
    }
    return std::none_of(found->begin(), found->end(), [this](const ManagedObject* other) { return other != this; });
}

std::optional<Date> BLSendable::activityDate() const {
    if (std::optional<Date> sent = dateSent()) {
        return sent;
    }
    return dateCreation();
}

std::string BLSendable::year() const {
    std::optional<Date> sent = dateSent();
    return sent ? std::to_string(sent->yearOfCommonEra()) : std::string();
}

std::string BLSendable::month() const {
    std::optional<Date> sent = dateSent();
    return sent ? twoDigits(sent->monthOfYear()) : std::string();
}

std::string BLSendable::statusKey(bool forDisplay) {
    if (forDisplay && isDraft()) {
        return "draft";
    }
    return dateSent() ? "sent" : "draft";
}

std::string BLSendable::displayStatus() {
    return localizedString(statusKey(true));
}

std::string BLSendable::displayName() const {
    // The label and the draft test read totals through the per-object cache, which is a
    // cache and not a change of the document.
    auto& self = const_cast<BLSendable&>(*this);
    std::string text = self.label();
    if (std::optional<std::string> number = name(); number && !number->empty()) {
        text += " " + *number;
    }
    if (std::optional<std::string> title = subject(); title && !title->empty()) {
        text += " - " + *title;
    }
    if (self.isDraft()) {
        text += " (" + localizedString("draft") + ")";
    }
    return text;
}

std::string BLSendable::fullDisplayName() const {
    BLClient* owner = client();
    if (owner == nullptr) {
        return displayName();
    }
    return owner->displayName() + " - " + displayName();
}

std::string BLSendable::nameOrDraft() const {
    std::optional<std::string> number = name();
    return number ? *number : localizedString("draft");
}

std::string BLSendable::sendTitle() const {
    return localizedString(dateSent() ? "send again" : "send");
}

std::string BLSendable::dateDueAsString() const {
    std::optional<Date> due = dateDue();
    if (!due) {
        return {};
    }
    return DateTransformer(DateStyle::Medium).format(*due);
}

std::string BLSendable::dateDueAsDays() const {
    std::optional<int16_t> days = payInterval();
    return days ? std::to_string(*days) : std::string();
}

void BLSendable::setDateSent(std::optional<Date> value) {
    const bool syncing = isSyncing();
    if (!value && !syncing && storage() != nullptr) {
        setStorage(nullptr);
    }
    gen::BLSendable::setDateSent(value);
    notifyChildsForKey("tableInfo");
    notifyChildsForKey("displayName");
    ManagedObjectContext* context = managedObjectContext();
    if (!syncing && context != nullptr) {
        // Listeners redraw lists and sheets: a later turn keeps them out of the middle of an
        // issue, and the object may be gone by then, so it is looked up again.
        const ObjectID id = objectID();
        RunLoop::main().perform([context, id] {
            ManagedObject* object = context->objectWithID(id);
            if (object == nullptr || object->managedObjectContext() == nullptr) {
                return;
            }
            NotificationCenter::defaultCenter().postNotificationName(kSentChangedNotification, object,
                                                                     {{"context", Value(context)}});
        });
    }
    resetCaches();
}

BLTranscript* BLSendable::unlockDocument() {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr || !dateSent()) {
        return nullptr;
    }
    if (modelHooks().removeFromSepaQueue) {
        modelHooks().removeFromSepaQueue(*this);
    }
    auto* transcript = BLTranscript::insertInManagedObjectContext(*context);
    transcript->setDate(Date::now());
    transcript->setType(label());
    transcript->setOperation(std::string(kUnlockedOperation));
    transcript->setName(name());
    if (modelHooks().interchangeRecord) {
        if (std::optional<Value::Dictionary> record = modelHooks().interchangeRecord(*this)) {
            transcript->setRecordData(KeyedArchiver::archivedDataWithRootObject(Value(*record)));
        }
    }
    // The frozen PDF moves to the trail before the document lets go of it.
    BLSendableStorage* frozen = storage();
    if (frozen != nullptr) {
        transcript->setStorage(frozen);
    }
    setDateSent(std::nullopt);
    setDateDue(std::nullopt);
    setDeliveryType(int16_t{0});
    setStorage(nullptr);
    updateTaxRuleIfInstalled(*this);
    return transcript;
}

// Invoices.

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
        return preferredLabel(*this, "finalInvoice.label", "invoice");
    }
    if (costWithTaxes() < Decimal()) {
        return preferredLabel(*this, "creditnote.label", "creditnote");
    }
    return preferredLabel(*this, "invoice.label", "invoice");
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

// Estimates.

std::string BLEstimate::statusImage() {
    const int16_t mark = state();
    return mark == 0 ? "" : mark == 1 ? "completed" : "cancelled";
}

int16_t BLEstimate::state() const {
    const int16_t stored = completeModeValue();
    return stored == -1 ? int16_t{2} : stored;
}

void BLEstimate::setCompleteMode(std::optional<int16_t> value) {
    gen::BLEstimate::setCompleteMode(value);
    resetCaches();
}

std::string BLEstimate::label() {
    return preferredLabel(*this, "estimate.label", "estimate");
}

std::string BLEstimate::statusKey(bool /*forDisplay*/) {
    if (state() == 2) {
        return "declined";
    }
    if (state() == 1) {
        return "accepted";
    }
    return dateSent() ? "sent" : "draft";
}

namespace {

// The state getters cache and fetch, so the const object of a key read is read mutably.
BLSendable& stateOf(const ManagedObject& object) {
    return const_cast<BLSendable&>(static_cast<const BLSendable&>(object));
}

// Invoice-only keys answer nothing on other sendables.
BLInvoice* invoiceOf(const ManagedObject& object) {
    return dynamic_cast<BLInvoice*>(&stateOf(object));
}

Value optionalDate(const std::optional<Date>& date) {
    return date ? Value(*date) : Value();
}

}  // namespace

void BLSendable::registerStateKeys(EntityDescription& entity) {
    entity.registerDerivedProperty("status",
                                   [](const ManagedObject& o) -> Value { return Value(stateOf(o).status()); });
    entity.registerDerivedProperty("displayStatus",
                                   [](const ManagedObject& o) -> Value { return Value(stateOf(o).displayStatus()); });
    entity.registerDerivedProperty("isDraft",
                                   [](const ManagedObject& o) -> Value { return Value(stateOf(o).isDraft()); });
    entity.registerDerivedProperty("label", [](const ManagedObject& o) -> Value { return Value(stateOf(o).label()); });
    entity.registerDerivedProperty("documentType",
                                   [](const ManagedObject& o) -> Value { return Value(stateOf(o).documentType()); });
    entity.registerDerivedProperty("nameOrDraft",
                                   [](const ManagedObject& o) -> Value { return Value(stateOf(o).nameOrDraft()); });
    entity.registerDerivedProperty(
        "activityDate", [](const ManagedObject& o) -> Value { return optionalDate(stateOf(o).activityDate()); });
    entity.registerDerivedProperty("statusImage",
                                   [](const ManagedObject& o) -> Value { return Value(stateOf(o).statusImage()); });
    entity.registerDerivedProperty(
        "extraStatusImage", [](const ManagedObject& o) -> Value { return Value(stateOf(o).extraStatusImage()); });
    entity.registerDerivedProperty(
        "state", [](const ManagedObject& o) -> Value { return Value(static_cast<int64_t>(stateOf(o).state())); });
    entity.registerDerivedProperty("isDue", [](const ManagedObject& o) -> Value {
        BLInvoice* invoice = invoiceOf(o);
        return invoice != nullptr ? Value(invoice->isDue()) : Value();
    });
    entity.registerDerivedProperty("isOverDue", [](const ManagedObject& o) -> Value {
        BLInvoice* invoice = invoiceOf(o);
        return invoice != nullptr ? Value(invoice->isOverDue()) : Value();
    });
    entity.registerDerivedProperty("balanced", [](const ManagedObject& o) -> Value {
        BLInvoice* invoice = invoiceOf(o);
        return Value(invoice != nullptr && invoice->balanced());
    });
    entity.registerDerivedProperty("datePaid", [](const ManagedObject& o) -> Value {
        BLInvoice* invoice = invoiceOf(o);
        return invoice != nullptr ? optionalDate(invoice->datePaid()) : Value();
    });
    entity.registerDerivedProperty("dateOverdue", [](const ManagedObject& o) -> Value {
        BLInvoice* invoice = invoiceOf(o);
        return invoice != nullptr ? optionalDate(invoice->dateOverdue()) : Value();
    });
}

}  // namespace brassline
