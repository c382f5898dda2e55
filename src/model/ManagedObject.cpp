#include "model/ManagedObject.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "core/Log.h"
#include "model/KeyPath.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"

namespace brassline {

ManagedObject::ManagedObject() = default;
ManagedObject::~ManagedObject() = default;

void ManagedObject::attach(const EntityDescription& entity, ManagedObjectContext& context, int64_t number) {
    m_entity = &entity;
    m_context = &context;
    m_number = number;
    m_values.assign(entity.attributes().size(), Value());
    m_toOne.assign(entity.toOneCount(), nullptr);
    m_toMany.assign(entity.toManyCount(), {});
}

std::string ManagedObject::URIString() const {
    std::string uri = "x-coredata://";
    if (m_context != nullptr) {
        uri += m_context->storeIdentifier();
    }
    uri += "/" + m_entity->name() + "/p" + std::to_string(m_number);
    return uri;
}

bool ManagedObject::isKindOfEntity(std::string_view entityName) const {
    for (const EntityDescription* entity = m_entity; entity != nullptr; entity = entity->superentity()) {
        if (entity->name() == entityName) {
            return true;
        }
    }
    return false;
}

void ManagedObject::fireFault() const {
    if (m_isFault) {
        m_isFault = false;
        m_context->fulfillFault(const_cast<ManagedObject&>(*this));
    }
}

bool ManagedObject::isDataFault(const AttributeDescription& attribute) const {
    fireFault();
    return attribute.slot < 64 && (m_dataFaults & (uint64_t{1} << attribute.slot)) != 0;
}

void ManagedObject::fireDataFault(uint16_t slot) const {
    if (slot >= 64 || (m_dataFaults & (uint64_t{1} << slot)) == 0) {
        return;
    }
    // Cleared first: a value that can't be read stays absent instead of being asked for
    // again on every access.
    m_dataFaults &= ~(uint64_t{1} << slot);
    PersistentStore* store = m_context != nullptr ? m_context->persistentStore() : nullptr;
    const AttributeDescription& attribute = *m_entity->attributes()[slot];
    if (store == nullptr) {
        logMessage("%@.%@ of %@ waits for a store that is gone", m_entity->name(), attribute.name, URIString());
        return;
    }
    std::string error;
    std::optional<Value> value = store->loadDataValue(*m_entity, m_number, attribute, &error);
    if (!value) {
        logMessage("%@.%@ of %@ could not be read: %@", m_entity->name(), attribute.name, URIString(), error);
        return;
    }
    const_cast<ManagedObject*>(this)->m_values[slot] = std::move(*value);
}

// Key-value coding.

Value ManagedObject::valueForKey(std::string_view key) const {
    fireFault();
    const EntityDescription::Property* property = m_entity->propertyForKey(key);
    if (property == nullptr) {
        return valueForUndefinedKey(key);
    }
    switch (property->kind) {
        case EntityDescription::Property::Kind::Attribute:
            fireDataFault(property->attribute->slot);
            return m_values[property->attribute->slot];
        case EntityDescription::Property::Kind::ToOne:
            return Value(static_cast<Object*>(m_toOne[property->relationship->slot]));
        case EntityDescription::Property::Kind::ToMany: {
            const auto& objects = m_toMany[property->relationship->slot];
            Value::Array array;
            array.reserve(objects.size());
            for (ManagedObject* object : objects) {
                array.emplace_back(static_cast<Object*>(object));
            }
            return Value(std::move(array));
        }
        case EntityDescription::Property::Kind::Derived:
            return property->getter(*this);
    }
    return Value();
}

Value ManagedObject::valueForKeyPath(std::string_view keyPath) const {
    if (keyPath.find('.') == std::string_view::npos && keyPath.find('@') == std::string_view::npos) {
        return valueForKey(keyPath);
    }
    return KeyPath::parse(keyPath).evaluate(Value(const_cast<Object*>(static_cast<const Object*>(this))));
}

void ManagedObject::setValueForKey(const Value& value, std::string_view key) {
    fireFault();
    const EntityDescription::Property* property = m_entity->propertyForKey(key);
    if (property == nullptr || property->setter == nullptr) {
        setValueForUndefinedKey(value, key);
        return;
    }
    if (property->kind == EntityDescription::Property::Kind::Attribute) {
        Value converted = value;
        if (!attributes::coerce(property->attribute->type, converted)) {
            logMessage("Refused %@ for %@.%@: not a %@", value.description(), m_entity->name(), key,
                       attributeTypeName(property->attribute->type));
            return;
        }
        property->setter(*this, converted);
        return;
    }
    property->setter(*this, value);
}

void ManagedObject::setValueForKeyPath(const Value& value, std::string_view keyPath) {
    size_t dot = keyPath.rfind('.');
    if (dot == std::string_view::npos) {
        setValueForKey(value, keyPath);
        return;
    }
    Value target = valueForKeyPath(keyPath.substr(0, dot));
    if (auto* object = dynamic_cast<ManagedObject*>(target.object())) {
        object->setValueForKey(value, keyPath.substr(dot + 1));
        return;
    }
    logMessage("setValueForKeyPath: %@ does not lead to an object from %@", keyPath, m_entity->name());
}

Value ManagedObject::valueForUndefinedKey(std::string_view key) const {
    // Predicates and layouts ask mixed entities for keys that only some have: answering
    // null quietly is the contract, a log line per object would drown the log.
    (void)key;
    return Value();
}

void ManagedObject::setValueForUndefinedKey(const Value& value, std::string_view key) {
    (void)value;
    logMessage("setValue:forUndefinedKey: %@ is not a settable key of %@", key, m_entity->name());
}

Value ManagedObject::primitiveValueForKey(std::string_view key) const {
    fireFault();
    for (const AttributeDescription* attribute : m_entity->attributes()) {
        if (attribute->name == key) {
            fireDataFault(attribute->slot);
            return m_values[attribute->slot];
        }
    }
    if (const RelationshipDescription* relationship = m_entity->relationshipNamed(key)) {
        return currentValue(relationship->name, relationship->isToMany, relationship->slot);
    }
    return Value();
}

void ManagedObject::setPrimitiveValueForKey(const Value& value, std::string_view key) {
    fireFault();
    if (const AttributeDescription* attribute = m_entity->attributeNamed(key)) {
        Value converted = value;
        if (!attributes::coerce(attribute->type, converted)) {
            logMessage("Refused %@ for %@.%@: not a %@", value.description(), m_entity->name(), key,
                       attributeTypeName(attribute->type));
            return;
        }
        storeAttribute(*attribute, std::move(converted));
        return;
    }
    if (const RelationshipDescription* relationship = m_entity->relationshipNamed(key)) {
        std::vector<ManagedObject*> targets;
        if (ManagedObject* target = attributes::toObject(value)) {
            targets.push_back(target);
        } else if (const Value::Array* array = value.array()) {
            for (const Value& element : *array) {
                if (ManagedObject* object = attributes::toObject(element)) {
                    targets.push_back(object);
                }
            }
        }
        setRelationshipObjects(*relationship, targets);
        return;
    }
    logMessage("setPrimitiveValue: %@ is not a stored key of %@", key, m_entity->name());
}

// Change notices.

void ManagedObject::willChangeValueForKey(std::string_view key) {
    // Old values are captured where the slot is written, so nothing is due here; the call
    // stays for symmetry with didChange in hand-written setters.
    (void)key;
}

void ManagedObject::didChangeValueForKey(std::string_view key) {
    if (m_isObserved && m_context != nullptr) {
        m_context->notifyObservers(*this, key);
    }
}

void ManagedObject::triggerChangeForKey(std::string_view key) {
    willChangeValueForKey(key);
    didChangeValueForKey(key);
}

uint64_t ManagedObject::addObserverForKey(std::string key, KeyObserver observer) {
    if (m_context == nullptr) {
        return 0;
    }
    uint64_t token = m_context->m_nextObserverToken++;
    m_context->m_observers[this].push_back({token, std::move(key), std::move(observer)});
    m_isObserved = true;
    return token;
}

void ManagedObject::removeObserver(uint64_t token) {
    if (m_context == nullptr) {
        return;
    }
    auto found = m_context->m_observers.find(this);
    if (found == m_context->m_observers.end()) {
        return;
    }
    auto& entries = found->second;
    entries.erase(
        std::remove_if(entries.begin(), entries.end(), [token](const auto& entry) { return entry.token == token; }),
        entries.end());
    if (entries.empty()) {
        m_context->m_observers.erase(found);
        m_isObserved = false;
    }
}

// State.

bool ManagedObject::isInserted() const {
    return (m_stateFlags & ManagedObjectContext::kInserted) != 0 &&
           (m_stateFlags & ManagedObjectContext::kDeleted) == 0;
}

bool ManagedObject::isDeleted() const {
    return (m_stateFlags & ManagedObjectContext::kDeleted) != 0;
}

bool ManagedObject::isUpdated() const {
    return (m_stateFlags & ManagedObjectContext::kUpdated) != 0 && !isInserted() && !isDeleted();
}

Value ManagedObject::currentValue(const std::string& key, bool toMany, uint16_t slot) const {
    if (!toMany) {
        return Value(static_cast<Object*>(m_toOne[slot]));
    }
    Value::Array array;
    for (ManagedObject* object : m_toMany[slot]) {
        array.emplace_back(static_cast<Object*>(object));
    }
    (void)key;
    return Value(std::move(array));
}

Value::Dictionary ManagedObject::changedValues() const {
    Value::Dictionary result;
    if (!m_changes) {
        return result;
    }
    for (const auto& [key, committed] : m_changes->committed) {
        Value current = primitiveValueForKey(key);
        // Same content but of another numeric type still counts as unchanged.
        if (!(current == committed) || current.type() != committed.type()) {
            result.emplace(key, std::move(current));
        }
    }
    return result;
}

Value::Dictionary ManagedObject::changedValuesForCurrentEvent() const {
    return m_changes ? m_changes->event : Value::Dictionary();
}

Value::Dictionary ManagedObject::committedValuesForKeys(const std::vector<std::string>& keys) const {
    fireFault();
    Value::Dictionary result;
    auto committedValue = [this](const std::string& key) {
        if (m_changes) {
            auto found = m_changes->committed.find(key);
            if (found != m_changes->committed.end()) {
                return found->second;
            }
        }
        return primitiveValueForKey(key);
    };
    if (keys.empty()) {
        for (const AttributeDescription* attribute : m_entity->attributes()) {
            if (!attribute->isTransient) {
                result.emplace(attribute->name, committedValue(attribute->name));
            }
        }
        for (const RelationshipDescription* relationship : m_entity->relationships()) {
            result.emplace(relationship->name, committedValue(relationship->name));
        }
        return result;
    }
    for (const std::string& key : keys) {
        result.emplace(key, committedValue(key));
    }
    return result;
}

// Cache.

std::optional<Value> ManagedObject::holdfastCacheValueForKey(std::string_view key) const {
    if (m_cache) {
        for (const auto& [cachedKey, value] : *m_cache) {
            if (cachedKey == key) {
                return value;
            }
        }
    }
    return std::nullopt;
}

void ManagedObject::setHoldfastCacheValue(Value value, std::string_view key) {
    if (!m_cache) {
        m_cache = std::make_unique<std::vector<std::pair<std::string, Value>>>();
    }
    for (auto& [cachedKey, cached] : *m_cache) {
        if (cachedKey == key) {
            cached = std::move(value);
            return;
        }
    }
    m_cache->emplace_back(std::string(key), std::move(value));
}

void ManagedObject::holdfastResetCacheValues() {
    m_cache.reset();
}

// Slot access for generated accessors.

const Value& ManagedObject::attributeSlot(uint16_t slot) const {
    fireFault();
    fireDataFault(slot);
    return m_values[slot];
}

void ManagedObject::setAttributeSlot(uint16_t slot, Value value) {
    fireFault();
    storeAttribute(*m_entity->attributes()[slot], std::move(value));
}

void ManagedObject::setAttributeSlotWithNotices(uint16_t slot, Value value) {
    setValueWithNotices(*m_entity->attributes()[slot], std::move(value));
}

ManagedObject* ManagedObject::toOneSlot(uint16_t slot) const {
    fireFault();
    return m_toOne[slot];
}

const std::vector<ManagedObject*>& ManagedObject::toManySlot(uint16_t slot) const {
    fireFault();
    return m_toMany[slot];
}

const RelationshipDescription& ManagedObject::relationshipAt(bool toMany, uint16_t slot) const {
    for (const RelationshipDescription* relationship : m_entity->relationships()) {
        if (relationship->isToMany == toMany && relationship->slot == slot) {
            return *relationship;
        }
    }
    // Generated code asks only for slots the generator assigned.
    std::abort();
}

const Value& ManagedObject::primitiveValue(const AttributeDescription& attribute) const {
    return attributeSlot(attribute.slot);
}

void ManagedObject::setPrimitiveValue(const AttributeDescription& attribute, Value value) {
    fireFault();
    storeAttribute(attribute, std::move(value));
}

void ManagedObject::setValueWithNotices(const AttributeDescription& attribute, Value value) {
    fireFault();
    willChangeValueForKey(attribute.name);
    storeAttribute(attribute, std::move(value));
    didChangeValueForKey(attribute.name);
}

ManagedObject* ManagedObject::toOneObject(const RelationshipDescription& relationship) const {
    return toOneSlot(relationship.slot);
}

const std::vector<ManagedObject*>& ManagedObject::toManyObjects(const RelationshipDescription& relationship) const {
    return toManySlot(relationship.slot);
}

// The single writers of stored slots.

ManagedObject::ChangeState& ManagedObject::changeState() {
    if (!m_changes) {
        m_changes = std::make_unique<ChangeState>();
    }
    return *m_changes;
}

void ManagedObject::noteChange(const std::string& key, const Value& oldValue, bool transient) {
    ChangeState& state = changeState();
    if (!transient && !m_context->isMergingExternally()) {
        state.committed.emplace(key, oldValue);
    }
    state.event.emplace(key, oldValue);
}

void ManagedObject::storeAttribute(const AttributeDescription& attribute, Value value) {
    // The old value is what undo and the committed values give back, so a waiting one is
    // read before it is replaced.
    fireDataFault(attribute.slot);
    Value& slot = m_values[attribute.slot];
    if (slot == value && slot.type() == value.type()) {
        return;
    }
    Value old = std::move(slot);
    slot = std::move(value);
    if (m_context == nullptr) {
        return;
    }
    if (&attribute == m_entity->uidAttribute() && !isDeleted()) {
        m_context->uidChanged(*this, old, slot);
    }
    noteChange(attribute.name, old, attribute.isTransient);
    m_context->markUpdated(*this);
    if (m_context->registersUndo()) {
        const AttributeDescription* described = &attribute;
        m_context->registerUndo([this, described, old] {
            setValueWithNotices(*described, old);
            awakeFromSnapshotEvents(kSnapshotEventUndoUpdate);
        });
    }
}

void ManagedObject::storeToOne(const RelationshipDescription& relationship, ManagedObject* target) {
    ManagedObject* old = m_toOne[relationship.slot];
    if (old == target) {
        return;
    }
    if (m_context != nullptr) {
        noteChange(relationship.name, Value(static_cast<Object*>(old)), false);
    }
    m_toOne[relationship.slot] = target;
    if (m_context == nullptr) {
        return;
    }
    m_context->markUpdated(*this);
    if (m_context->registersUndo()) {
        const RelationshipDescription* described = &relationship;
        m_context->registerUndo([this, described, old] {
            willChangeValueForKey(described->name);
            storeToOne(*described, old);
            didChangeValueForKey(described->name);
            awakeFromSnapshotEvents(kSnapshotEventUndoUpdate);
        });
    }
}

void ManagedObject::storeToManyInsert(const RelationshipDescription& relationship, ManagedObject* target,
                                      size_t index) {
    auto& objects = m_toMany[relationship.slot];
    if (m_context != nullptr) {
        ChangeState& state = changeState();
        // Building the old array costs; do it only when the key has no old value yet.
        if (state.committed.find(relationship.name) == state.committed.end() ||
            state.event.find(relationship.name) == state.event.end()) {
            noteChange(relationship.name, currentValue(relationship.name, true, relationship.slot), false);
        }
    }
    objects.insert(objects.begin() + static_cast<std::ptrdiff_t>(std::min(index, objects.size())), target);
    if (m_context == nullptr) {
        return;
    }
    m_context->markUpdated(*this);
    if (m_context->registersUndo()) {
        const RelationshipDescription* described = &relationship;
        size_t at = std::min(index, objects.size() - 1);
        m_context->registerUndo([this, described, at] {
            willChangeValueForKey(described->name);
            storeToManyRemove(*described, at);
            didChangeValueForKey(described->name);
            awakeFromSnapshotEvents(kSnapshotEventUndoUpdate);
        });
    }
}

void ManagedObject::storeToManyRemove(const RelationshipDescription& relationship, size_t index) {
    auto& objects = m_toMany[relationship.slot];
    if (index >= objects.size()) {
        return;
    }
    if (m_context != nullptr) {
        ChangeState& state = changeState();
        if (state.committed.find(relationship.name) == state.committed.end() ||
            state.event.find(relationship.name) == state.event.end()) {
            noteChange(relationship.name, currentValue(relationship.name, true, relationship.slot), false);
        }
    }
    ManagedObject* removed = objects[index];
    objects.erase(objects.begin() + static_cast<std::ptrdiff_t>(index));
    if (m_context == nullptr) {
        return;
    }
    m_context->markUpdated(*this);
    if (m_context->registersUndo()) {
        const RelationshipDescription* described = &relationship;
        m_context->registerUndo([this, described, removed, index] {
            willChangeValueForKey(described->name);
            storeToManyInsert(*described, removed, index);
            didChangeValueForKey(described->name);
            awakeFromSnapshotEvents(kSnapshotEventUndoUpdate);
        });
    }
}

// Relationship edits with inverse upkeep. Each slot write registers its own undo, so
// undoing a group restores both sides and the positions in ordered lists exactly.

void ManagedObject::detachInverse(const RelationshipDescription& relationship, ManagedObject* target) {
    const RelationshipDescription* inverse = relationship.inverse;
    if (inverse == nullptr || target == nullptr) {
        return;
    }
    target->fireFault();
    if (!inverse->isToMany) {
        if (target->m_toOne[inverse->slot] == this) {
            target->willChangeValueForKey(inverse->name);
            target->storeToOne(*inverse, nullptr);
            target->didChangeValueForKey(inverse->name);
        }
        return;
    }
    auto& objects = target->m_toMany[inverse->slot];
    auto found = std::find(objects.begin(), objects.end(), this);
    if (found != objects.end()) {
        target->willChangeValueForKey(inverse->name);
        target->storeToManyRemove(*inverse, static_cast<size_t>(found - objects.begin()));
        target->didChangeValueForKey(inverse->name);
    }
}

void ManagedObject::attachInverse(const RelationshipDescription& relationship, ManagedObject* target) {
    const RelationshipDescription* inverse = relationship.inverse;
    if (inverse == nullptr || target == nullptr) {
        return;
    }
    target->fireFault();
    if (!inverse->isToMany) {
        ManagedObject* previous = target->m_toOne[inverse->slot];
        if (previous == this) {
            return;
        }
        if (previous != nullptr) {
            // The target leaves its previous owner: take it out of that owner's side.
            previous->fireFault();
            if (relationship.isToMany) {
                auto& objects = previous->m_toMany[relationship.slot];
                auto found = std::find(objects.begin(), objects.end(), target);
                if (found != objects.end()) {
                    previous->willChangeValueForKey(relationship.name);
                    previous->storeToManyRemove(relationship, static_cast<size_t>(found - objects.begin()));
                    previous->didChangeValueForKey(relationship.name);
                }
            } else if (previous->m_toOne[relationship.slot] == target) {
                previous->willChangeValueForKey(relationship.name);
                previous->storeToOne(relationship, nullptr);
                previous->didChangeValueForKey(relationship.name);
            }
        }
        target->willChangeValueForKey(inverse->name);
        target->storeToOne(*inverse, this);
        target->didChangeValueForKey(inverse->name);
        return;
    }
    auto& objects = target->m_toMany[inverse->slot];
    if (std::find(objects.begin(), objects.end(), this) == objects.end()) {
        target->willChangeValueForKey(inverse->name);
        target->storeToManyInsert(*inverse, this, objects.size());
        target->didChangeValueForKey(inverse->name);
    }
}

void ManagedObject::setToOneObject(const RelationshipDescription& relationship, ManagedObject* target) {
    fireFault();
    if (relationship.isToMany) {
        setRelationshipObjects(relationship,
                               target ? std::vector<ManagedObject*>{target} : std::vector<ManagedObject*>{});
        return;
    }
    ManagedObject* old = m_toOne[relationship.slot];
    if (old == target) {
        return;
    }
    willChangeValueForKey(relationship.name);
    detachInverse(relationship, old);
    if (target != nullptr && relationship.inverse != nullptr && !relationship.inverse->isToMany) {
        // One-to-one: whoever pointed at the target through this relationship lets go.
        target->fireFault();
        ManagedObject* previous = target->m_toOne[relationship.inverse->slot];
        if (previous != nullptr && previous != this) {
            previous->willChangeValueForKey(relationship.name);
            previous->storeToOne(relationship, nullptr);
            previous->didChangeValueForKey(relationship.name);
        }
    }
    storeToOne(relationship, target);
    if (target != nullptr && relationship.inverse != nullptr) {
        const RelationshipDescription* inverse = relationship.inverse;
        if (inverse->isToMany) {
            auto& objects = target->m_toMany[inverse->slot];
            if (std::find(objects.begin(), objects.end(), this) == objects.end()) {
                target->willChangeValueForKey(inverse->name);
                target->storeToManyInsert(*inverse, this, objects.size());
                target->didChangeValueForKey(inverse->name);
            }
        } else if (target->m_toOne[inverse->slot] != this) {
            target->willChangeValueForKey(inverse->name);
            target->storeToOne(*inverse, this);
            target->didChangeValueForKey(inverse->name);
        }
    }
    didChangeValueForKey(relationship.name);
}

void ManagedObject::addObjectToRelationship(const RelationshipDescription& relationship, ManagedObject* target) {
    fireFault();
    if (!relationship.isToMany) {
        setToOneObject(relationship, target);
        return;
    }
    const auto& objects = m_toMany[relationship.slot];
    if (target == nullptr || std::find(objects.begin(), objects.end(), target) != objects.end()) {
        return;
    }
    insertObjectInRelationshipAtIndex(relationship, target, objects.size());
}

void ManagedObject::removeObjectFromRelationship(const RelationshipDescription& relationship, ManagedObject* target) {
    fireFault();
    if (!relationship.isToMany) {
        if (m_toOne[relationship.slot] == target) {
            setToOneObject(relationship, nullptr);
        }
        return;
    }
    const auto& objects = m_toMany[relationship.slot];
    auto found = std::find(objects.begin(), objects.end(), target);
    if (found != objects.end()) {
        removeObjectFromRelationshipAtIndex(relationship, static_cast<size_t>(found - objects.begin()));
    }
}

void ManagedObject::insertObjectInRelationshipAtIndex(const RelationshipDescription& relationship,
                                                      ManagedObject* target, size_t index) {
    fireFault();
    if (target == nullptr || !relationship.isToMany) {
        return;
    }
    if (!target->entity().isKindOfEntity(*relationship.destination)) {
        logMessage("Refused %@ in %@.%@", target->entityName(), m_entity->name(), relationship.name);
        return;
    }
    auto& objects = m_toMany[relationship.slot];
    index = std::min(index, objects.size());
    auto found = std::find(objects.begin(), objects.end(), target);
    if (found != objects.end()) {
        size_t from = static_cast<size_t>(found - objects.begin());
        if (relationship.isOrdered && from != index) {
            moveObjectInRelationship(relationship, from, index > from ? index - 1 : index);
        }
        return;
    }
    willChangeValueForKey(relationship.name);
    storeToManyInsert(relationship, target, index);
    attachInverse(relationship, target);
    didChangeValueForKey(relationship.name);
}

void ManagedObject::removeObjectFromRelationshipAtIndex(const RelationshipDescription& relationship, size_t index) {
    fireFault();
    if (!relationship.isToMany || index >= m_toMany[relationship.slot].size()) {
        return;
    }
    ManagedObject* target = m_toMany[relationship.slot][index];
    willChangeValueForKey(relationship.name);
    storeToManyRemove(relationship, index);
    detachInverse(relationship, target);
    didChangeValueForKey(relationship.name);
}

void ManagedObject::moveObjectInRelationship(const RelationshipDescription& relationship, size_t from, size_t to) {
    fireFault();
    if (!relationship.isToMany) {
        return;
    }
    auto& objects = m_toMany[relationship.slot];
    if (from >= objects.size() || to >= objects.size() || from == to) {
        return;
    }
    ManagedObject* moved = objects[from];
    willChangeValueForKey(relationship.name);
    storeToManyRemove(relationship, from);
    storeToManyInsert(relationship, moved, to);
    didChangeValueForKey(relationship.name);
}

void ManagedObject::setRelationshipObjects(const RelationshipDescription& relationship,
                                           const std::vector<ManagedObject*>& targets) {
    fireFault();
    if (!relationship.isToMany) {
        setToOneObject(relationship, targets.empty() ? nullptr : targets.front());
        return;
    }
    const auto& objects = m_toMany[relationship.slot];
    for (size_t i = objects.size(); i-- > 0;) {
        if (std::find(targets.begin(), targets.end(), objects[i]) == targets.end()) {
            removeObjectFromRelationshipAtIndex(relationship, i);
        }
    }
    size_t position = 0;
    for (ManagedObject* target : targets) {
        if (target == nullptr) {
            continue;
        }
        auto found = std::find(objects.begin(), objects.end(), target);
        if (found == objects.end()) {
            insertObjectInRelationshipAtIndex(relationship, target, relationship.isOrdered ? position : objects.size());
        } else if (relationship.isOrdered && static_cast<size_t>(found - objects.begin()) != position) {
            moveObjectInRelationship(relationship, static_cast<size_t>(found - objects.begin()), position);
        } else if (!relationship.isOrdered) {
            continue;
        }
        ++position;
    }
}

// Conversions.

namespace attributes {

std::optional<std::string> toString(const Value& value) {
    if (const std::string* text = value.string()) {
        return *text;
    }
    return std::nullopt;
}

std::optional<Decimal> toDecimal(const Value& value) {
    if (value.isNull()) {
        return std::nullopt;
    }
    if (const Decimal* decimal = value.decimal()) {
        return *decimal;
    }
    return value.toDecimal();
}

std::optional<Date> toDate(const Value& value) {
    if (const Date* date = value.date()) {
        return *date;
    }
    return std::nullopt;
}

const Bytes* toData(const Value& value) {
    return value.bytes();
}

std::optional<bool> toBool(const Value& value) {
    if (value.isNull()) {
        return std::nullopt;
    }
    return value.toBool();
}

std::optional<int16_t> toInt16(const Value& value) {
    if (value.isNull()) {
        return std::nullopt;
    }
    return static_cast<int16_t>(value.toInt64());
}

std::optional<int32_t> toInt32(const Value& value) {
    if (value.isNull()) {
        return std::nullopt;
    }
    return static_cast<int32_t>(value.toInt64());
}

std::optional<int64_t> toInt64(const Value& value) {
    if (value.isNull()) {
        return std::nullopt;
    }
    return value.toInt64();
}

std::optional<double> toDouble(const Value& value) {
    if (value.isNull()) {
        return std::nullopt;
    }
    return value.toDouble();
}

Value fromString(std::optional<std::string> value) {
    return value ? Value(std::move(*value)) : Value();
}

Value fromDecimal(const std::optional<Decimal>& value) {
    return value ? Value(*value) : Value();
}

Value fromDate(const std::optional<Date>& value) {
    return value ? Value(*value) : Value();
}

Value fromData(std::optional<Bytes> value) {
    return value ? Value(std::move(*value)) : Value();
}

Value fromBool(const std::optional<bool>& value) {
    return value ? Value(*value) : Value();
}

Value fromInt16(const std::optional<int16_t>& value) {
    return value ? Value(int64_t{*value}) : Value();
}

Value fromInt32(const std::optional<int32_t>& value) {
    return value ? Value(int64_t{*value}) : Value();
}

Value fromInt64(const std::optional<int64_t>& value) {
    return value ? Value(*value) : Value();
}

Value fromDouble(const std::optional<double>& value) {
    return value ? Value(*value) : Value();
}

bool coerce(AttributeType type, Value& value) {
    if (value.isNull()) {
        return true;
    }
    const bool isText = value.string() != nullptr;
    switch (type) {
        case AttributeType::String:
            return isText;
        case AttributeType::Date:
            return value.date() != nullptr;
        case AttributeType::Data:
            return value.bytes() != nullptr;
        case AttributeType::Decimal:
            if (value.decimal() != nullptr) {
                return true;
            }
            if (isText) {
                std::optional<Decimal> parsed = Decimal::parse(*value.string());
                if (!parsed) {
                    return false;
                }
                value = Value(*parsed);
                return true;
            }
            if (!value.isNumber()) {
                return false;
            }
            value = Value(value.toDecimal());
            return true;
        case AttributeType::Bool:
            if (!value.isNumber() && !isText) {
                return false;
            }
            value = Value(value.toBool());
            return true;
        case AttributeType::Int16:
        case AttributeType::Int32:
        case AttributeType::Int64: {
            if (isText && !Decimal::parse(*value.string())) {
                return false;
            }
            if (!value.isNumber() && !isText) {
                return false;
            }
            int64_t number = value.toInt64();
            if (type == AttributeType::Int16) {
                number = static_cast<int16_t>(number);
            } else if (type == AttributeType::Int32) {
                number = static_cast<int32_t>(number);
            }
            value = Value(number);
            return true;
        }
        case AttributeType::Double:
            if (isText && !Decimal::parse(*value.string())) {
                return false;
            }
            if (!value.isNumber() && !isText) {
                return false;
            }
            value = Value(value.toDouble());
            return true;
    }
    return false;
}

ManagedObject* toObject(const Value& value) {
    return dynamic_cast<ManagedObject*>(value.object());
}

}  // namespace attributes

}  // namespace brassline
