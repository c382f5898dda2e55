#include "model/entities/BLSendable.h"

#include <algorithm>
#include <unordered_set>

#include "model/BLSyncHelper.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLProject.h"
#include "model/entities/ModelHooks.h"

namespace brassline {

void BLSendable::setupClass(EntityDescription& entity) {
    // The stored legacy text would shadow the project above for key-value coding.
    entity.registerDerivedProperty(
        "project",
        [](const ManagedObject& object) -> Value {
            return Value(static_cast<Object*>(static_cast<const BLSendable&>(object).project()));
        },
        [](ManagedObject& object, const Value& value) {
            auto& sendable = static_cast<BLSendable&>(object);
            if (const std::string* text = value.string()) {
                sendable.gen::BLSendable::setProject(*text);
                return;
            }
            sendable.setParentDocument(dynamic_cast<BLDocument*>(value.object()));
        });
    entity.registerDerivedProperty("legacyProjectName", [](const ManagedObject& object) -> Value {
        std::optional<std::string> name = static_cast<const BLSendable&>(object).legacyProjectName();
        return name ? Value(*name) : Value();
    });
    registerTotalKeys(entity);
    registerStateKeys(entity);
}

std::vector<BLContainer*> BLSendable::costsArray() const {
    std::vector<BLContainer*> result;
    for (BLContainer* child : childs()) {
        Value cost = child->valueForKey("cost");
        if (!cost.isNull() && cost.toDecimal() != Decimal()) {
            result.push_back(child);
        }
    }
    return result;
}

void BLSendable::setParentDocument(brassline::BLDocument* value) {
    validateContacts();
    if (modelHooks().resetCurrencyTransformer) {
        modelHooks().resetCurrencyTransformer(*this);
    }
    if (isSyncing()) {
        gen::BLSendable::setParentDocument(value);
        return;
    }
    if (value == parentDocument() || (value != nullptr && (value == this || isParentOf(value)))) {
        return;
    }
    BLDocument* oldParent = parentDocument();
    BLClient* oldClient = client();
    applyParentDocument(value);
    BLClient* newClient = client();
    if (newClient == nullptr) {
        return;
    }
    if (oldParent == nullptr) {
        setLayout(newClient->layout());
    }
    if (currency() == nullptr && newClient->currency() != nullptr) {
        gen::BLSendable::setCurrency(newClient->currency());
    }
    if (newClient != oldClient) {
        if (paymentType() == nullptr) {
            setPaymentType(newClient->paymentType());
        }
        setPayInterval(newClient->payInterval());
        setUseGrossPrices(newClient->useGrossPrices());
    }
    updateTaxRuleIfInstalled(*this);
}

void BLSendable::validateContacts() {
    BLDocument::validateContacts();
    if (isSyncing()) {
        return;
    }
    BLClient* owner = client();
    if (owner == nullptr || owner->isDeleted()) {
        if (contact() != nullptr) {
            gen::BLSendable::setContact(nullptr);
        }
        return;
    }
    // The stored setter: the document's own setContact would move it in the tree.
    const std::vector<BLContainer*> candidates = owner->combinedArray();
    if (std::find(candidates.begin(), candidates.end(), contact()) == candidates.end()) {
        gen::BLSendable::setContact(dynamic_cast<BLContact*>(candidates.front()));
    }
    if (currency() == nullptr && owner->currency() != nullptr) {
        gen::BLSendable::setCurrency(owner->currency());
    }
}

void BLSendable::setStorage(brassline::BLSendableStorage* value) {
    gen::BLSendable::setStorage(value);
    if (value != nullptr && !isSyncing() && modelHooks().writeDocument) {
        modelHooks().writeDocument(*this, false);
    }
}

void BLSendable::setup() {
    BLFinancial::setup();
    if (modelHooks().updatePaymentType) {
        modelHooks().updatePaymentType(*this);
    }
}

void BLSendable::fixMissingValues() {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr || !context->isMainContext()) {
        return;
    }
    BLBase::fixMissingValues();
    BLDocument* owner = parentDocument();
    // A parent that hangs nowhere (none, or a top document such as a client) is taken
    // from the contact, which knows its client.
    if (contact() != nullptr && (owner == nullptr || owner->parentDocument() == nullptr)) {
        auto* contactOwner = dynamic_cast<BLDocument*>(contact()->parent());
        BLDocument* target = contactOwner != nullptr ? contactOwner : contact();
        if (target != owner) {
            gen::BLSendable::setParentDocument(target);
        }
    }
    if (layout() == nullptr) {
        if (BLProfile* profile = defaultItemForContext<BLProfile>(*context)) {
            setLayout(profile->layout());
        }
    }
    if (currency() == nullptr) {
        setCurrency(defaultItemForContext<BLCurrency>(*context));
    }
    std::unordered_set<const BLBase*> visited{this};
    for (BLContainer* child : childs().toVector()) {
        if (visited.insert(child).second) {
            child->fixMissingValues();
        }
    }
    for (BLDocument* document : documents().toVector()) {
        if (visited.insert(document).second) {
            document->fixMissingValues();
        }
    }
}

BLBase* BLSendable::clone() {
    auto* copy = static_cast<BLSendable*>(cloneWithEntityReplacements({}, {"storage"}));
    if (copy != nullptr) {
        copy->setDateSent(std::nullopt);
    }
    return copy;
}

BLBase* BLSendable::cloneWithEntityReplacements(const EntityReplacements& replacements,
                                                const std::vector<std::string>& skip) {
    auto* copy = dynamic_cast<BLSendable*>(BLBase::cloneWithEntityReplacements(replacements, skip));
    if (copy != nullptr) {
        copy->setDateSent(std::nullopt);
        copy->notifyParentsForKey("cost");
        copy->notifyParentsForKey("costWithTaxes");
    }
    return copy;
}

BLBase* BLSendable::duplicateAsDraft(const std::vector<std::string>& skip) {
    BLDocument* owner = parentDocument();
    BLSendable* copy = nullptr;
    {
        // Under the flag the copy only joins the parent: it keeps its own layout, pay
        // interval and prices instead of taking the client's as a newly moved one would.
        SyncingScope syncing;
        copy = dynamic_cast<BLSendable*>(cloneWithEntityReplacements({}, skip));
        if (copy == nullptr) {
            return nullptr;
        }
        copy->setDateDue(std::nullopt);
        copy->setDateSent(std::nullopt);
        copy->setCompleteMode(int16_t{0});
        copy->setDateCreation(Date::now());
        copy->setParentDocument(owner);
    }
    updateTaxRuleIfInstalled(*copy);
    copy->resetCaches();
    return copy;
}

}  // namespace brassline
