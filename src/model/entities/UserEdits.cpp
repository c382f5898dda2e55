#include "model/entities/UserEdits.h"

#include <array>

#include "core/Log.h"
#include "model/ManagedObject.h"
#include "model/entities/BLBase.h"
#include "model/entities/BLContainer.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

// Kinds whose canDelete states a rule; the rest inherit a plain "no" that stands for
// "not on its own" and are judged by their usage instead.
constexpr std::array<std::string_view, 7> kKindsWithDeleteRule = {"Document", "Currency",  "PaymentType", "Language",
                                                                  "Layout",   "ItemGroup", "FollowUpType"};

// The relationships whose members keep an object from going, in the order a refusal
// names them.
constexpr std::array<std::string_view, 11> kUsageRelationships = {
    "documents", "assignedDocuments", "childs",  "contacts",   "estimateDocuments", "statementDocuments", "followUps",
    "costs",     "memberDocuments",   "clients", "importRules"};

// Keys of an issued document that stay open to the user (see the state table of a
// sendable): closing it, attaching payments and files, and the marks around it.
constexpr std::array<std::string_view, 6> kOpenWhileIssued = {"completeMode",   "deliveryType", "documents",
                                                              "documentLabels", "toDo",         "metaValues"};

std::string describe(const ManagedObject& object) {
    const auto* base = dynamic_cast<const BLBase*>(&object);
    if (base != nullptr && object.isKindOfEntity("Sendable")) {
        return base->displayName();
    }
    const Value nameValue = object.primitiveValueForKey("name");
    if (const std::string* name = nameValue.string(); name != nullptr && !name->empty()) {
        return object.entityName() + " \"" + *name + "\"";
    }
    return base != nullptr ? base->displayName() : object.entityName();
}

bool isItem(const ManagedObject& object) {
    return object.isKindOfEntity("Item");
}

}  // namespace

const ManagedObject* lockingDocument(const ManagedObject& object) {
    const auto* container = dynamic_cast<const BLContainer*>(&object);
    // A document above its items, never a client above its documents: the walk stops at
    // the first object that is no item.
    while (container != nullptr) {
        if (container->isLocked()) {
            return container;
        }
        if (!isItem(*container)) {
            return nullptr;
        }
        container = container->parent();
    }
    return nullptr;
}

EditCheck checkUserEdit(const ManagedObject& object, std::string_view key) {
    const ManagedObject* locked = lockingDocument(object);
    if (locked == nullptr) {
        return {};
    }
    if (locked == &object &&
        std::find(kOpenWhileIssued.begin(), kOpenWhileIssued.end(), key) != kOpenWhileIssued.end()) {
        return {};
    }
    return {formatMessage(kLockedDocumentMessage, describe(*locked))};
}

EditCheck checkUserDeletion(const ManagedObject& object) {
    if (const ManagedObject* locked = lockingDocument(object)) {
        return {formatMessage(kLockedDeletionMessage, describe(*locked))};
    }
    if (isItem(object)) {
        return {};
    }
    const auto* base = dynamic_cast<const BLBase*>(&object);
    bool hasRule = false;
    for (std::string_view kind : kKindsWithDeleteRule) {
        hasRule = hasRule || object.isKindOfEntity(kind);
    }
    if (base == nullptr || (hasRule ? base->canDelete() : base->usageObjects().empty())) {
        return {};
    }
    const std::string name = describe(object);
    if (object.primitiveValueForKey("isDefault").toBool()) {
        return {formatMessage(kDefaultDeletionMessage, name)};
    }
    for (std::string_view key : kUsageRelationships) {
        const RelationshipDescription* relationship = object.entity().relationshipNamed(key);
        if (relationship == nullptr || !relationship->isToMany) {
            continue;
        }
        size_t count = 0;
        for (ManagedObject* member : object.toManyObjects(*relationship)) {
            count += member->isDeleted() ? 0 : 1;
        }
        if (count > 0) {
            return {formatMessage(kUsedDeletionMessage, name, std::to_string(count), std::string(key))};
        }
    }
    return {formatMessage(kUsedDeletionMessage, name, std::to_string(base->usageObjects().size()), "objects")};
}

EditCheck checkUserInsertion(const EntityDescription& entity, const ManagedObject* parent) {
    (void)entity;
    if (parent == nullptr) {
        return {};
    }
    return checkUserEdit(*parent, "childs");
}

}  // namespace brassline
