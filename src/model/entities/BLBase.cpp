#include "model/entities/BLBase.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <unordered_set>

#include "core/Localization.h"
#include "core/Log.h"
#include "core/UniqueId.h"
#include "model/BLSyncHelper.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/Predicate.h"
#include "model/RunLoop.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

bool contains(const std::vector<std::string>& list, std::string_view key) {
    return std::find(list.begin(), list.end(), key) != list.end();
}

}  // namespace

void BLBase::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("displayName", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).displayName());
    });
    entity.registerDerivedProperty("fullDisplayName", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).fullDisplayName());
    });
    entity.registerDerivedProperty("isArchived", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).isArchived());
    });
    entity.registerDerivedProperty("isSyncing", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).isSyncing());
    });
    entity.registerDerivedProperty("isLocked", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).isLocked());
    });
    entity.registerDerivedProperty("isUnlocked", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).isUnlocked());
    });
    entity.registerDerivedProperty("hasDocument", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).hasDocument());
    });
    entity.registerDerivedProperty("isSent", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).isSent());
    });
    entity.registerDerivedProperty("canDelete", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLBase&>(object).canDelete());
    });
    entity.registerDerivedProperty("derivatesCount", [](const ManagedObject& object) -> Value {
        return Value(static_cast<int64_t>(static_cast<const BLBase&>(object).derivatesCount()));
    });
    entity.registerDerivedProperty("allDerivates", [](const ManagedObject& object) -> Value {
        Value::Array array;
        for (BLBase* derivate : static_cast<const BLBase&>(object).allDerivates()) {
            array.emplace_back(static_cast<Object*>(derivate));
        }
        return Value(std::move(array));
    });
    entity.registerDerivedProperty("effectiveCostPrice",
                                   [](const ManagedObject&) -> Value { return Value(Decimal()); });
}

int64_t BLBase::countInContext(ManagedObjectContext& context, std::string_view className) {
    const EntityDescription* entity = nullptr;
    for (const auto& candidate : context.model().entities()) {
        if (candidate->managedObjectClassName() == className) {
            entity = candidate.get();
            break;
        }
    }
    if (entity == nullptr) {
        return 0;
    }
    FetchRequest request(entity->name());
    std::string error;
    std::optional<size_t> count = context.countForFetchRequest(request, &error);
    if (!count) {
        logMessage(kErrorFetchingCountMessage, error);
        return std::numeric_limits<int64_t>::max();
    }
    return static_cast<int64_t>(*count);
}

BLBase* BLBase::insertInManagedObjectContext(ManagedObjectContext& context, std::string_view entityName,
                                             const std::string& uid) {
    const EntityDescription* entity = context.entityNamed(entityName);
    if (entity == nullptr) {
        logMessage("insertInManagedObjectContext: unknown entity %@", entityName);
        return nullptr;
    }
    if (ManagedObject* existing = context.objectWithUid(*entity, uid)) {
        return dynamic_cast<BLBase*>(existing);
    }
    auto* object = dynamic_cast<BLBase*>(context.insertNewObject(*entity));
    if (object != nullptr) {
        object->setUid(uid);
    }
    return object;
}

std::string BLBase::fixedAttribute(const std::optional<std::string>& value) {
    return value.value_or("");
}

void BLBase::awakeFromCreate() {
    gen::BLBase::awakeFromCreate();
    if (!uid()) {
        setPrimitiveUid(uniqueBase64String());
    }
}

void BLBase::prepareForDeletion() {
    gen::BLBase::prepareForDeletion();
    // The deleted link is spliced out: what was cloned from it now derives from its source.
    BLBase* ownSource = source();
    for (BLBase* derivate : derivates().toVector()) {
        derivate->setSource(ownSource == derivate ? nullptr : ownSource);
    }
}

void BLBase::awakeFromSnapshotEvents(uint32_t events) {
    gen::BLBase::awakeFromSnapshotEvents(events);
    if ((events & (kSnapshotEventUndoDeletion | kSnapshotEventUndoUpdate | kSnapshotEventRefresh)) != 0) {
        resetCaches();
        derivatesChanged();
    }
}

void BLBase::setup() {
    if (!uid()) {
        setUid(uniqueBase64String());
    }
}

void BLBase::fixMissingValues() {
    if (!uid()) {
        setUid(uniqueBase64String());
    }
}

// Cloning.

BLBase* BLBase::clone() {
    return cloneWithEntityReplacements(EntityReplacements{}, {});
}

BLBase* BLBase::cloneWithEntityReplacements(const EntityReplacements& replacements) {
    return cloneWithEntityReplacements(replacements, {});
}

BLBase* BLBase::cloneWithEntityReplacements(const EntityReplacements& replacements,
                                            const std::vector<std::string>& skip) {
    return cloneWithEntityReplacements(replacements, skip, true);
}

BLBase* BLBase::cloneWithEntityReplacements(const EntityReplacements& replacements,
                                            const std::vector<std::string>& skip, bool isRoot) {
    if (doNotCloneValue()) {
        return nullptr;
    }
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr || isDeleted()) {
        logMessage(kErrorFindingObjectMessage, entityName(), "the object is not in a context");
        return nullptr;
    }
    willBeCloned();
    // While the clone is filled, no setter may derive anything from half-copied values.
    std::optional<SyncingScope> syncing;
    if (isRoot) {
        syncing.emplace();
    }
    std::string targetName = entityName();
    if (auto replacement = replacements.find(targetName); replacement != replacements.end()) {
        targetName = replacement->second;
    }
    auto* copy = dynamic_cast<BLBase*>(context->insertNewObjectForEntityForName(targetName));
    if (copy == nullptr) {
        logMessage("Cannot clone %@ as %@", entityName(), targetName);
        return nullptr;
    }
    const EntityDescription& target = copy->entity();

    for (const AttributeDescription* attribute : entity().attributes()) {
        if (contains(skip, attribute->name) || copy->isSkippedProperty(attribute->name)) {
            continue;
        }
        const AttributeDescription* targetAttribute = target.attributeNamed(attribute->name);
        if (targetAttribute == nullptr || targetAttribute->type != attribute->type) {
            continue;
        }
        if (attribute->name == "uid") {
            copy->setValueWithNotices(*targetAttribute, Value(uniqueBase64String()));
        } else {
            copy->setValueWithNotices(*targetAttribute, primitiveValue(*attribute));
        }
    }

    for (const RelationshipDescription* relationship : entity().relationships()) {
        if (relationship->name == "derivates" || relationship->name == "source" || contains(skip, relationship->name) ||
            copy->isSkippedProperty(relationship->name)) {
            continue;
        }
        const RelationshipDescription* targetRelationship = target.relationshipNamed(relationship->name);
        if (targetRelationship == nullptr || targetRelationship->isToMany != relationship->isToMany) {
            continue;
        }
        if (!relationship->isToMany) {
            if (ManagedObject* object = toOneObject(*relationship)) {
                copy->setToOneObject(*targetRelationship, object);
            }
            continue;
        }
        // Copied: cloning children moves objects between lists while we walk them.
        std::vector<ManagedObject*> members = toManyObjects(*relationship);
        if (relationship->inverse == nullptr || relationship->inverse->isToMany) {
            copy->setRelationshipObjects(*targetRelationship, members);
            continue;
        }
        for (ManagedObject* member : members) {
            auto* child = dynamic_cast<BLBase*>(member);
            if (child == nullptr || !member->entity().isKindOfEntity(*relationship->destination)) {
                continue;
            }
            if (BLBase* childClone = child->cloneWithEntityReplacements(replacements, {}, false)) {
                copy->addObjectToRelationship(*targetRelationship, childClone);
            }
        }
    }

    copy->setSource(this);
    copy->hasBeenClonedFrom(this);
    hasBeenClonedTo(copy);
    if (isRoot) {
        resetCaches();
        copy->resetCaches();
        syncing.reset();
        // Children belong to the root's batch: one objects-did-change for the whole tree.
        context->processPendingChanges();
    }
    return copy;
}

BLBase* BLBase::duplicate() {
    return clone();
}

void BLBase::nameUntitledIfNameless() {
    if (!isSyncing() && !name()) {
        setName(localizedString(kUntitledText));
    }
}

bool BLBase::isSkippedProperty(std::string_view key) const {
    std::optional<std::vector<std::string>> skipped = skippedProperties();
    return skipped && contains(*skipped, key);
}

// The derivates chain.

void BLBase::setSource(brassline::BLBase* value) {
    BLBase* old = source();
    gen::BLBase::setSource(value);
    validateSources();
    if (value != nullptr) {
        value->derivatesChanged();
    }
    if (old != nullptr && old != value) {
        old->derivatesChanged();
    }
}

void BLBase::removeSource(BLBase* value) {
    if (value != nullptr && source() == value) {
        setSource(nullptr);
    }
}

void BLBase::validateSources() {
    std::unordered_set<const BLBase*> visited;
    BLBase* current = this;
    while (current != nullptr) {
        visited.insert(current);
        BLBase* next = current->source();
        if (next != nullptr && visited.count(next) != 0) {
            // The link that closes the loop is the one cut.
            next->gen::BLBase::setSource(nullptr);
            return;
        }
        current = next;
    }
}

void BLBase::derivatesChanged() {
    std::unordered_set<const BLBase*> visited;
    for (BLBase* current = this; current != nullptr && visited.insert(current).second; current = current->source()) {
        current->triggerChangeForKey("allDerivates");
    }
}

namespace {

void collectDerivates(const BLBase& object, std::vector<BLBase*>& result, std::unordered_set<const BLBase*>& seen) {
    for (BLBase* derivate : object.derivates()) {
        if (seen.insert(derivate).second) {
            collectDerivates(*derivate, result, seen);
            result.push_back(derivate);
        }
    }
}

}  // namespace

std::vector<BLBase*> BLBase::allDerivates() const {
    std::vector<BLBase*> result;
    std::unordered_set<const BLBase*> seen{this};
    collectDerivates(*this, result, seen);
    return result;
}

BLBase* BLBase::firstSource() {
    validateSources();
    BLBase* current = source();
    while (current != nullptr && current->source() != nullptr) {
        current = current->source();
    }
    return current;
}

BLBase* BLBase::firstSourceWithEntityName(std::string_view name) {
    validateSources();
    for (BLBase* current = source(); current != nullptr; current = current->source()) {
        if (current->entityName() == name) {
            return current;
        }
    }
    return nullptr;
}

// Usage and deletion.

std::vector<ManagedObject*> BLBase::usageObjects() const {
    std::vector<ManagedObject*> result;
    std::unordered_set<const ManagedObject*> seen;
    for (const std::string& key : usageKeys()) {
        const RelationshipDescription* relationship = entity().relationshipNamed(key);
        if (relationship == nullptr) {
            continue;
        }
        if (!relationship->isToMany) {
            ManagedObject* object = toOneObject(*relationship);
            if (object != nullptr && seen.insert(object).second) {
                result.push_back(object);
            }
            continue;
        }
        for (ManagedObject* object : toManyObjects(*relationship)) {
            if (seen.insert(object).second) {
                result.push_back(object);
            }
        }
    }
    return result;
}

std::optional<Predicate> BLBase::usageFilterPredicate() const {
    Value::Array objects;
    for (ManagedObject* object : usageObjects()) {
        objects.emplace_back(static_cast<Object*>(object));
    }
    return Predicate::parse("self IN %@", {Value(std::move(objects))});
}

void BLBase::deleteObject() {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    std::string error;
    if (!context->deleteObject(this, &error)) {
        logMessage("Could not delete %@: %@", entityName(), error);
    }
    context->processPendingChanges();
}

bool BLBase::merge(BLBase* other) {
    // Entities are compared by identity: one description per entity name in a model.
    if (other == nullptr || other == this || &other->entity() != &entity()) {
        return false;
    }
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return false;
    }
    context->processPendingChanges();
    for (const AttributeDescription* attribute : entity().attributes()) {
        if (primitiveValue(*attribute).isNull() && !other->primitiveValue(*attribute).isNull()) {
            setValueWithNotices(*attribute, other->primitiveValue(*attribute));
        }
    }
    for (const RelationshipDescription* relationship : entity().relationships()) {
        if (!relationship->isToMany) {
            continue;
        }
        std::vector<ManagedObject*> members = other->toManyObjects(*relationship);
        for (ManagedObject* member : members) {
            if (member != this) {
                addObjectToRelationship(*relationship, member);
            }
        }
        other->setRelationshipObjects(*relationship, {});
    }
    other->deleteObject();
    return true;
}

// Caches.

void BLBase::resetCaches() {
    holdfastResetCacheValues();
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    // The task finds the object again by ID: by the time it runs the object, or a child
    // context with it, may be gone.
    ObjectID id = objectID();
    context->schedule(
        [id](ManagedObjectContext& objects) {
            if (auto* object = dynamic_cast<BLBase*>(objects.objectWithID(id))) {
                object->resetCachesDelayed();
            }
        },
        {0.0, "resetCachesDelayed:" + std::to_string(id.number)});
}

void BLBase::resetCachesDelayed() {
    if (isDeleted() || isFault() || managedObjectContext() == nullptr) {
        return;
    }
    for (std::string_view key : kResetCachesKeys) {
        triggerChangeForKey(key);
    }
}

std::string BLBase::displayName() const {
    std::string name = entityName();
    for (char& c : name) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return localizedString(name);
}

bool BLBase::isSyncing() const {
    const ManagedObjectContext* context = managedObjectContext();
    return BLSyncHelper::isSyncing() || (context != nullptr && context->isMergingExternally());
}

ManagedObject* BLBase::objectInContext(ManagedObjectContext& context) const {
    return context.objectForURIString(URIString());
}

Value::Dictionary BLBase::pasteBoardDictionary() const {
    Value::Dictionary attributes;
    for (const AttributeDescription* attribute : entity().attributes()) {
        if (attribute->name != "uid" && !attribute->isTransient) {
            attributes[attribute->name] = primitiveValue(*attribute);
        }
    }
    Value::Dictionary relations;
    for (const RelationshipDescription* relationship : entity().relationships()) {
        if (!relationship->isToMany) {
            ManagedObject* object = toOneObject(*relationship);
            relations[relationship->name] = object != nullptr ? Value(object->URIString()) : Value();
            continue;
        }
        Value::Array uris;
        for (ManagedObject* object : toManyObjects(*relationship)) {
            uris.emplace_back(object->URIString());
        }
        relations[relationship->name] = Value(std::move(uris));
    }
    Value::Dictionary result;
    result["entityName"] = Value(entityName());
    result["attributes"] = Value(std::move(attributes));
    result["relations"] = Value(std::move(relations));
    return result;
}

Value BLBase::quickPrimitiveValueForKey(std::string_view key) const {
    return primitiveValueForKey(key);
}

void BLBase::setQuickPrimitiveValueForKey(const Value& value, std::string_view key) {
    willChangeValueForKey(key);
    setPrimitiveValueForKey(value, key);
    didChangeValueForKey(key);
}

}  // namespace brassline
