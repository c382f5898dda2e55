#pragma once

#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"
#include "model/EntityDescription.h"

namespace brassline {

class ManagedObjectContext;

// The identity of an object within one store: its entity and a number unique in the store.
struct ObjectID {
    const EntityDescription* entity = nullptr;
    int64_t number = 0;
    bool isNull() const { return entity == nullptr; }
    bool operator==(const ObjectID& other) const { return entity == other.entity && number == other.number; }
};

// Bits of awakeFromSnapshotEvents, as the platform numbers them.
enum SnapshotEvent : uint32_t {
    kSnapshotEventUndoInsertion = 1u << 1,
    kSnapshotEventUndoDeletion = 1u << 2,
    kSnapshotEventUndoUpdate = 1u << 3,
    kSnapshotEventRollback = 1u << 4,
    kSnapshotEventRefresh = 1u << 5,
};

// A typed view over the objects of a to-many relationship: iterates the live list and
// casts each element to the destination class. Invalidated by the next change to it.
template <typename T>
class ManagedObjectRange {
public:
    explicit ManagedObjectRange(const std::vector<ManagedObject*>& objects) : m_objects(&objects) {}
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T*;
        using difference_type = std::ptrdiff_t;
        using pointer = T**;
        using reference = T*;
        Iterator() = default;
        explicit Iterator(std::vector<ManagedObject*>::const_iterator it) : m_it(it) {}
        T* operator*() const { return static_cast<T*>(*m_it); }
        Iterator& operator++() {
            ++m_it;
            return *this;
        }
        Iterator operator++(int) {
            Iterator old = *this;
            ++m_it;
            return old;
        }
        bool operator==(const Iterator& other) const { return m_it == other.m_it; }

    private:
        std::vector<ManagedObject*>::const_iterator m_it;
    };
    Iterator begin() const { return Iterator(m_objects->begin()); }
    Iterator end() const { return Iterator(m_objects->end()); }
    size_t size() const { return m_objects->size(); }
    bool empty() const { return m_objects->empty(); }
    T* operator[](size_t index) const { return static_cast<T*>((*m_objects)[index]); }
    bool contains(const ManagedObject* object) const;
    const std::vector<ManagedObject*>& objects() const { return *m_objects; }
    std::vector<T*> toVector() const { return std::vector<T*>(begin(), end()); }

private:
    const std::vector<ManagedObject*>* m_objects;
};

// A stored object. Owned by its context, which keeps a deleted object allocated until
// the deletion is saved (or longer, while undo may bring it back), so pointers held by
// undo actions stay valid. All calls belong to the context's thread.
//
// Generated accessors (see tools/modelgen): scalar getters answer std::optional<T>
// (absent stays distinguishable from 0 or ""), data getters a pointer (null when absent);
// the `Value` pair of bool and int16 reads absent as 0. Setters are virtual and go
// through change notices, change tracking and undo; primitive accessors skip the
// notices and the hooks but are still tracked and undoable, so saves never miss them.
class ManagedObject : public Object {
public:
    ManagedObject();
    ~ManagedObject() override;
    ManagedObject(const ManagedObject&) = delete;
    ManagedObject& operator=(const ManagedObject&) = delete;

    const EntityDescription& entity() const { return *m_entity; }
    const std::string& entityName() const { return m_entity->name(); }
    std::string_view className() const override { return m_entity->managedObjectClassName(); }
    ManagedObjectContext* managedObjectContext() const { return m_context; }
    ObjectID objectID() const { return {m_entity, m_number}; }
    // "x-coredata://<store identifier>/<Entity>/p<number>".
    std::string URIString() const;
    bool isKindOfEntity(std::string_view entityName) const;

    // Key-value coding. Order of lookup: stored properties and derived properties of the
    // class and its ancestors (one table), then valueForUndefinedKey. To-one relationships
    // answer an object reference, to-many ones an array of references.
    Value valueForKey(std::string_view key) const override;
    Value valueForKeyPath(std::string_view keyPath) const;
    // Writes through the typed setters, so hand-written overrides run. Values are
    // converted to the attribute's type; a value that can't be is logged and dropped.
    void setValueForKey(const Value& value, std::string_view key);
    void setValueForKeyPath(const Value& value, std::string_view keyPath);
    virtual Value valueForUndefinedKey(std::string_view key) const;
    virtual void setValueForUndefinedKey(const Value& value, std::string_view key);
    // Stored value without derived shadows or hooks; null for an unknown key.
    Value primitiveValueForKey(std::string_view key) const;
    // Raw write of a stored property: no notices, no setter hook (tracked and undoable).
    void setPrimitiveValueForKey(const Value& value, std::string_view key);

    // Change notices. didChange tells the observers of the key and of every key that
    // depends on it. Observers are called synchronously on the context's thread.
    using KeyObserver = std::function<void(ManagedObject& object, std::string_view key)>;
    void willChangeValueForKey(std::string_view key);
    void didChangeValueForKey(std::string_view key);
    // will + did: announces a change of a derived key.
    void triggerChangeForKey(std::string_view key);
    uint64_t addObserverForKey(std::string key, KeyObserver observer);
    void removeObserver(uint64_t token);

    // State since the last save, and changes since the last processPendingChanges (the
    // values before the change, by key).
    bool isInserted() const;
    bool isDeleted() const;
    bool isUpdated() const;
    bool hasChanges() const { return isInserted() || isDeleted() || isUpdated(); }
    bool isFault() const { return m_isFault; }
    // Whether a data attribute still waits in the store: large bytes are read on first
    // access, not at open. Reading the attribute in any way fulfils it.
    bool isDataFault(const AttributeDescription& attribute) const;
    Value::Dictionary changedValues() const;
    Value::Dictionary changedValuesForCurrentEvent() const;
    // The values as last saved (or loaded); all stored keys when `keys` is empty.
    Value::Dictionary committedValuesForKeys(const std::vector<std::string>& keys) const;

    // The per-object cache of derived values, cleared by holdfastResetCacheValues.
    std::optional<Value> holdfastCacheValueForKey(std::string_view key) const;
    void setHoldfastCacheValue(Value value, std::string_view key);
    void holdfastResetCacheValues();

    // Life cycle hooks, called by the context.
    virtual void awakeFromCreate() {}
    virtual void awakeFromFetch() {}
    virtual void prepareForDeletion() {}
    virtual void awakeFromSnapshotEvents(uint32_t events) { (void)events; }
    virtual void willSave() {}
    virtual void didSave() {}

    // Generic access by description (reflection: clone, merge, stores).
    const Value& primitiveValue(const AttributeDescription& attribute) const;
    void setPrimitiveValue(const AttributeDescription& attribute, Value value);
    void setValueWithNotices(const AttributeDescription& attribute, Value value);
    ManagedObject* toOneObject(const RelationshipDescription& relationship) const;
    const std::vector<ManagedObject*>& toManyObjects(const RelationshipDescription& relationship) const;
    // Relationship edits keep the inverse in step, announce every touched key and
    // register their undo. Adding an object already present does nothing.
    void setToOneObject(const RelationshipDescription& relationship, ManagedObject* target);
    void addObjectToRelationship(const RelationshipDescription& relationship, ManagedObject* target);
    void removeObjectFromRelationship(const RelationshipDescription& relationship, ManagedObject* target);
    void insertObjectInRelationshipAtIndex(const RelationshipDescription& relationship, ManagedObject* target,
                                           size_t index);
    void removeObjectFromRelationshipAtIndex(const RelationshipDescription& relationship, size_t index);
    void moveObjectInRelationship(const RelationshipDescription& relationship, size_t from, size_t to);
    void setRelationshipObjects(const RelationshipDescription& relationship,
                                const std::vector<ManagedObject*>& targets);

protected:
    // For generated accessors: slot-indexed, no lookup.
    const Value& attributeSlot(uint16_t slot) const;
    void setAttributeSlot(uint16_t slot, Value value);             // Primitive.
    void setAttributeSlotWithNotices(uint16_t slot, Value value);  // Notices + primitive.
    ManagedObject* toOneSlot(uint16_t slot) const;
    const std::vector<ManagedObject*>& toManySlot(uint16_t slot) const;
    const RelationshipDescription& relationshipAt(bool toMany, uint16_t slot) const;

private:
    friend class ManagedObjectContext;
    // Old values by key: `committed` holds the value at the last save of each key changed
    // since, `event` the value before the current event of each key changed in it.
    struct ChangeState {
        Value::Dictionary committed;
        Value::Dictionary event;
    };

    void attach(const EntityDescription& entity, ManagedObjectContext& context, int64_t number);
    void fireFault() const;
    void fireDataFault(uint16_t slot) const;
    ChangeState& changeState();
    Value currentValue(const std::string& key, bool toMany, uint16_t slot) const;
    void noteChange(const std::string& key, const Value& oldValue, bool transient);
    // The single place that writes a stored slot: records the old value, marks the object
    // updated, registers the undo and keeps the uid index in step.
    void storeAttribute(const AttributeDescription& attribute, Value value);
    void storeToOne(const RelationshipDescription& relationship, ManagedObject* target);
    void storeToManyInsert(const RelationshipDescription& relationship, ManagedObject* target, size_t index);
    void storeToManyRemove(const RelationshipDescription& relationship, size_t index);
    void detachInverse(const RelationshipDescription& relationship, ManagedObject* target);
    void attachInverse(const RelationshipDescription& relationship, ManagedObject* target);

    const EntityDescription* m_entity = nullptr;
    ManagedObjectContext* m_context = nullptr;
    int64_t m_number = 0;
    std::vector<Value> m_values;
    std::vector<ManagedObject*> m_toOne;
    std::vector<std::vector<ManagedObject*>> m_toMany;
    std::unique_ptr<ChangeState> m_changes;
    std::unique_ptr<std::vector<std::pair<std::string, Value>>> m_cache;
    uint32_t m_entityPosition = 0;  // Index in the context's list of the entity.
    uint8_t m_stateFlags = 0;       // Since the last save.
    uint8_t m_eventFlags = 0;       // Since the last processPendingChanges.
    bool m_isObserved = false;
    mutable bool m_isFault = false;
    mutable uint64_t m_dataFaults = 0;  // Bit per attribute slot (below 64) waiting in the store.
};

template <typename T>
bool ManagedObjectRange<T>::contains(const ManagedObject* object) const {
    for (ManagedObject* element : *m_objects) {
        if (element == object) {
            return true;
        }
    }
    return false;
}

// Conversions between Value and the typed accessors of generated classes. Absent (null)
// converts to an empty optional or a null pointer; numbers convert among numeric types;
// numeric text parses for numeric attributes.
namespace attributes {
std::optional<std::string> toString(const Value& value);
std::optional<Decimal> toDecimal(const Value& value);
std::optional<Date> toDate(const Value& value);
const Bytes* toData(const Value& value);
std::optional<bool> toBool(const Value& value);
std::optional<int16_t> toInt16(const Value& value);
std::optional<int32_t> toInt32(const Value& value);
std::optional<int64_t> toInt64(const Value& value);
std::optional<double> toDouble(const Value& value);

Value fromString(std::optional<std::string> value);
Value fromDecimal(const std::optional<Decimal>& value);
Value fromDate(const std::optional<Date>& value);
Value fromData(std::optional<Bytes> value);
Value fromBool(const std::optional<bool>& value);
Value fromInt16(const std::optional<int16_t>& value);
Value fromInt32(const std::optional<int32_t>& value);
Value fromInt64(const std::optional<int64_t>& value);
Value fromDouble(const std::optional<double>& value);

// The value converted to `type`; false (and the value untouched) when it can't be.
bool coerce(AttributeType type, Value& value);
// The managed object referenced by a value; null for null or a foreign object.
ManagedObject* toObject(const Value& value);
}  // namespace attributes

}  // namespace brassline
