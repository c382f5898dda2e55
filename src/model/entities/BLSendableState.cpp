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
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/BLTranscript.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

namespace {

constexpr const char* kSentChangedNotification = "SentChanged";
constexpr const char* kUnlockedOperation = "Unlocked";

std::string twoDigits(int value) {
    std::string text = std::to_string(value);
    return text.size() < 2 ? "0" + text : text;
}

}  // namespace

std::string BLSendable::preferredLabel(std::string_view prefKey, std::string_view fallback) {
    std::string text;
    if (ManagedObjectContext* context = managedObjectContext()) {
        text = BLPreference::preferenceValue(*context, prefKey).toString();
    }
    if (text.empty()) {
        return localizedString(fallback);
    }
    BLClient* owner = client();
    if (owner != nullptr && owner->language() != nullptr && modelHooks().translateWithLanguage) {
        if (std::optional<std::string> translated = modelHooks().translateWithLanguage(*owner->language(), text)) {
            return *translated;
        }
    }
    return text;
}

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
