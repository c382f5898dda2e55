#include "model/entities/BLContainer.h"

#include <algorithm>
#include <map>
#include <unordered_set>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/UndoManager.h"
#include "model/entities/BLContextState.h"
#include "model/entities/BLDocument.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLSendable.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

std::map<const EntityDescription*, BLContainer::DefaultBehaviour>& behaviours() {
    static std::map<const EntityDescription*, BLContainer::DefaultBehaviour> table;
    return table;
}

const BLContainer::DefaultBehaviour* behaviourFor(const EntityDescription& entity) {
    for (const EntityDescription* current = &entity; current != nullptr; current = current->superentity()) {
        auto found = behaviours().find(current);
        if (found != behaviours().end()) {
            return &found->second;
        }
    }
    return nullptr;
}

Value::Array objectArray(const std::vector<BLContainer*>& objects) {
    Value::Array array;
    array.reserve(objects.size());
    for (BLContainer* object : objects) {
        array.emplace_back(static_cast<Object*>(object));
    }
    return array;
}

// Walks the parent chain from `start`, guarded against loops.
template <typename Match>
BLContainer* firstUp(const BLContainer* start, Match match) {
    std::unordered_set<const BLContainer*> visited;
    for (const BLContainer* current = start; current != nullptr && visited.insert(current).second;
         current = current->parent()) {
        if (match(*current)) {
            return const_cast<BLContainer*>(current);
        }
    }
    return nullptr;
}

// The amounts of lines and documents under their key-value names.
void registerAmountKeys(EntityDescription& entity);

}  // namespace

void BLContainer::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("childsArray", [](const ManagedObject& object) -> Value {
        return Value(objectArray(static_cast<const BLContainer&>(object).childsArray()));
    });
    entity.registerDerivedProperty("children", [](const ManagedObject& object) -> Value {
        return Value(objectArray(static_cast<const BLContainer&>(object).children()));
    });
    entity.registerDerivedProperty("costsArray", [](const ManagedObject& object) -> Value {
        return Value(objectArray(static_cast<const BLContainer&>(object).costsArray()));
    });
    entity.registerDerivedProperty("combinedArray", [](const ManagedObject& object) -> Value {
        return Value(objectArray(static_cast<const BLContainer&>(object).combinedArray()));
    });
    entity.registerDerivedProperty("siblings", [](const ManagedObject& object) -> Value {
        return Value(objectArray(static_cast<const BLContainer&>(object).siblings()));
    });
    entity.registerDerivedProperty("isRoot", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLContainer&>(object).isRoot());
    });
    entity.registerDerivedProperty("invoice", [](const ManagedObject& object) -> Value {
        return Value(static_cast<Object*>(static_cast<const BLContainer&>(object).invoice()));
    });
    entity.registerDerivedProperty("sendable", [](const ManagedObject& object) -> Value {
        return Value(static_cast<Object*>(static_cast<const BLContainer&>(object).sendable()));
    });
    entity.registerDerivedProperty("document", [](const ManagedObject& object) -> Value {
        return Value(static_cast<Object*>(static_cast<const BLContainer&>(object).document()));
    });
    entity.registerDerivedProperty("invoiceForMetrics", [](const ManagedObject& object) -> Value {
        return Value(static_cast<Object*>(static_cast<const BLContainer&>(object).invoiceForMetrics()));
    });
    registerAmountKeys(entity);
}

namespace {

using ItemAmount = Decimal (*)(BLItem&);
using SendableAmount = Decimal (*)(BLSendable&);

// Amount reads fill the per-object cache (and a line may store its missing quantity of 1),
// so the const object handed to a getter is read through a mutable view. A class without
// the amount answers nothing.
template <ItemAmount forItem, SendableAmount forSendable>
Value amountValue(const ManagedObject& object) {
    auto& container = const_cast<BLContainer&>(static_cast<const BLContainer&>(object));
    if constexpr (forItem != nullptr) {
        if (auto* item = dynamic_cast<BLItem*>(&container)) {
            return Value(forItem(*item));
        }
    }
    if constexpr (forSendable != nullptr) {
        if (auto* sendable = dynamic_cast<BLSendable*>(&container)) {
            return Value(forSendable(*sendable));
        }
    }
    return Value();
}

Decimal itemCost(BLItem& item) {
    return item.cost();
}
Decimal itemNet(BLItem& item) {
    return item.net();
}
Decimal itemTax(BLItem& item) {
    return item.lineTaxes();
}
Decimal itemGross(BLItem& item) {
    return item.gross();
}
Decimal itemMargin(BLItem& item) {
    return item.margin();
}
Decimal itemDiscount(BLItem& item) {
    return item.totalDiscount();
}
Decimal itemWeight(BLItem& item) {
    return item.totalWeight();
}
Decimal itemCostForGroup(BLItem& item) {
    return item.costForGroup();
}
Decimal itemDiscountAmount(BLItem& item) {
    return item.discountAmount();
}
Decimal sendableCost(BLSendable& sendable) {
    return sendable.cost();
}
Decimal sendableTax(BLSendable& sendable) {
    return sendable.tax();
}
Decimal sendableGross(BLSendable& sendable) {
    return sendable.costWithTaxes();
}
Decimal sendableMargin(BLSendable& sendable) {
    return sendable.margin();
}
Decimal sendableDiscount(BLSendable& sendable) {
    return sendable.totalDiscount();
}
Decimal sendableWeight(BLSendable& sendable) {
    return sendable.totalWeight();
}
Decimal sendableBalance(BLSendable& sendable) {
    return sendable.balance();
}
Decimal sendableDiscountAmount(BLSendable& sendable) {
    return sendable.discountAmount();
}

void registerAmountKeys(EntityDescription& entity) {
    entity.registerDerivedProperty("cost", amountValue<itemCost, sendableCost>);
    entity.registerDerivedProperty("net", amountValue<itemNet, sendableCost>);
    entity.registerDerivedProperty("tax", amountValue<itemTax, sendableTax>);
    entity.registerDerivedProperty("gross", amountValue<itemGross, sendableGross>);
    entity.registerDerivedProperty("costWithTaxes", amountValue<itemGross, sendableGross>);
    entity.registerDerivedProperty("margin", amountValue<itemMargin, sendableMargin>);
    entity.registerDerivedProperty("totalDiscount", amountValue<itemDiscount, sendableDiscount>);
    entity.registerDerivedProperty("totalWeight", amountValue<itemWeight, sendableWeight>);
    entity.registerDerivedProperty("costForGroup", amountValue<itemCostForGroup, nullptr>);
    entity.registerDerivedProperty("balance", amountValue<nullptr, sendableBalance>);
    entity.registerDerivedProperty("discountAmount", amountValue<itemDiscountAmount, sendableDiscountAmount>);
}

}  // namespace

// Defaults.

void BLContainer::registerDefaultBehaviour(const EntityDescription& entity, DefaultBehaviour behaviour) {
    behaviours()[&entity] = std::move(behaviour);
}

std::optional<std::string> BLContainer::defaultUID(const EntityDescription& entity) {
    const DefaultBehaviour* behaviour = behaviourFor(entity);
    return behaviour != nullptr ? behaviour->defaultUID : std::nullopt;
}

std::vector<BLContainer*> BLContainer::filterDefaultItems(const EntityDescription& entity,
                                                          std::vector<BLContainer*> items) {
    const DefaultBehaviour* behaviour = behaviourFor(entity);
    if (behaviour != nullptr && behaviour->filterDefaultItems) {
        return behaviour->filterDefaultItems(std::move(items));
    }
    return items;
}

namespace {

std::vector<BLContainer*> fetchContainers(ManagedObjectContext& context, const EntityDescription& entity,
                                          std::string_view format, const std::vector<Value>& arguments) {
    FetchRequest request(entity.name());
    std::string error;
    if (!request.setPredicateFormat(format, arguments, &error)) {
        logMessage("Bad predicate %@: %@", format, error);
        return {};
    }
    std::optional<std::vector<ManagedObject*>> objects = context.executeFetchRequest(request, &error);
    if (!objects) {
        logMessage("Fetch of %@ failed: %@", entity.name(), error);
        return {};
    }
    std::vector<BLContainer*> result;
    result.reserve(objects->size());
    for (ManagedObject* object : *objects) {
        if (auto* container = dynamic_cast<BLContainer*>(object)) {
            result.push_back(container);
        }
    }
    return result;
}

}  // namespace

BLContainer* BLContainer::defaultItemForContext(ManagedObjectContext& context, const EntityDescription& entity) {
    if (!BLContextState::readyForDefaultValues(context)) {
        return nullptr;
    }
    const std::string& className = entity.managedObjectClassName();
    if (BLContainer* cached = BLContextState::cachedDefaultItem(context, className)) {
        return cached;
    }
    const EntityDescription* known = context.entityNamed(entity.name());
    std::vector<BLContainer*> found;
    if (known != nullptr) {
        found = filterDefaultItems(*known, fetchContainers(context, *known, "isDefault == YES", {}));
    }
    std::optional<std::string> fixedUID = known != nullptr ? defaultUID(*known) : std::nullopt;
    if (found.empty() && fixedUID) {
        found = fetchContainers(context, *known, "uid LIKE[cd] %@", {Value(*fixedUID)});
    }
    BLContainer* result = nullptr;
    if (found.empty() && known != nullptr) {
        // Setting up a default may ask for defaults in turn (a team member's set-up wants
        // the default team member): while one is being made, it isn't there yet.
        static std::vector<std::pair<const ManagedObjectContext*, const EntityDescription*>> making;
        const auto key = std::make_pair(static_cast<const ManagedObjectContext*>(&context), known);
        if (std::find(making.begin(), making.end(), key) != making.end()) {
            return nullptr;
        }
        making.push_back(key);
        // A default made for the user is no step of the user's: nothing to undo.
        UndoManager* undo = context.undoManager();
        bool wasEnabled = undo != nullptr && undo->isUndoRegistrationEnabled();
        if (wasEnabled) {
            undo->disableUndoRegistration();
        }
        result = dynamic_cast<BLContainer*>(context.insertNewObject(*known));
        if (result != nullptr) {
            result->setupDefault();
            result->setIsDefault(true);
            if (fixedUID) {
                result->setUid(*fixedUID);
            }
            NotificationCenter::defaultCenter().postNotificationName(kAddedDefaultItemNotification, result);
            context.processPendingChanges();
        }
        if (wasEnabled) {
            undo->enableUndoRegistration();
        }
        making.erase(std::find(making.begin(), making.end(), key));
    } else if (!found.empty()) {
        result = found.front();
    }
    if (result != nullptr) {
        if (const DefaultBehaviour* behaviour = behaviourFor(result->entity());
            behaviour != nullptr && behaviour->didFindDefault) {
            behaviour->didFindDefault(*result);
        }
    }
    BLContextState::setCachedDefaultItem(context, className, result);
    return result;
}

void BLContainer::clearDefaultItemCache(ManagedObjectContext& context) {
    BLContextState::clearDefaultItemCache(context);
}

std::pair<std::string, std::vector<Value>> BLContainer::siblingsToRemoveDefaultPredicate() const {
    return {"self != %@", {Value(static_cast<Object*>(const_cast<BLContainer*>(this)))}};
}

void BLContainer::setIsDefault(std::optional<bool> value) {
    if (value.value_or(false) == isDefaultValue()) {
        return;
    }
    gen::BLContainer::setIsDefault(value);
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    if (!isSyncing()) {
        auto [format, arguments] = siblingsToRemoveDefaultPredicate();
        const AttributeDescription* flag = entity().attributeNamed("isDefault");
        for (BLContainer* sibling : fetchContainers(*context, entity(), format, arguments)) {
            if (sibling->isDefaultValue() && flag != nullptr) {
                sibling->setValueWithNotices(*flag, Value(false));
            }
        }
    }
    // The notification's object is the class name, which is no object here: it travels in
    // the user info under "object".
    Value::Dictionary info;
    info["object"] = Value(entity().managedObjectClassName());
    NotificationCenter::defaultCenter().postNotificationName(
        formatMessage(kChangedDefaultNotificationFormat, entityName()), nullptr, std::move(info));
    if (value.value_or(false)) {
        BLContextState::setCachedDefaultItem(*context, entityName(), this);
    }
    context->processPendingChanges();
}

// The item tree.

void BLContainer::setChildsArray(const std::vector<BLContainer*>& values) {
    setChilds(std::vector<ManagedObject*>(values.begin(), values.end()));
}

std::vector<BLContainer*> BLContainer::combinedArray() const {
    std::vector<BLContainer*> result{const_cast<BLContainer*>(this)};
    for (BLContainer* child : childs()) {
        result.push_back(child);
    }
    return result;
}

std::vector<BLContainer*> BLContainer::siblings() const {
    std::vector<BLContainer*> result;
    if (BLContainer* owner = parent()) {
        for (BLContainer* child : owner->childs()) {
            if (child != this) {
                result.push_back(child);
            }
        }
    }
    return result;
}

std::vector<BLContainer*> BLContainer::siblingsWithEntityName(std::string_view name) const {
    std::vector<BLContainer*> result;
    for (BLContainer* sibling : siblings()) {
        if (sibling->entityName() == name) {
            result.push_back(sibling);
        }
    }
    return result;
}

namespace {

void collectChildren(const BLContainer& container, std::string_view name, std::vector<BLContainer*>& result,
                     std::unordered_set<const BLContainer*>& visited) {
    if (!visited.insert(&container).second) {
        return;
    }
    if (container.entityName() == name) {
        result.push_back(const_cast<BLContainer*>(&container));
    }
    for (BLContainer* child : container.childs()) {
        collectChildren(*child, name, result, visited);
    }
}

}  // namespace

std::vector<BLContainer*> BLContainer::collectChildrenWithEntityName(std::string_view name) const {
    std::vector<BLContainer*> result;
    std::unordered_set<const BLContainer*> visited;
    collectChildren(*this, name, result, visited);
    return result;
}

BLInvoice* BLContainer::invoice() const {
    return static_cast<BLInvoice*>(
        firstUp(this, [](const BLContainer& object) { return object.isKindOfEntity("Invoice"); }));
}

BLSendable* BLContainer::sendable() const {
    return static_cast<BLSendable*>(
        firstUp(this, [](const BLContainer& object) { return object.isKindOfEntity("Sendable"); }));
}

BLDocument* BLContainer::document() const {
    // The document that owns an item: the first document up the chain that is no item.
    return static_cast<BLDocument*>(firstUp(this, [](const BLContainer& object) {
        return object.isKindOfEntity("Document") && !object.isKindOfEntity("Item");
    }));
}

void BLContainer::notifyParentsForKey(std::string_view key) {
    std::unordered_set<const BLContainer*> visited{this};
    for (BLContainer* current = parent(); current != nullptr && visited.insert(current).second;
         current = current->parent()) {
        current->triggerChangeForKey(key);
    }
}

}  // namespace brassline
