#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/entities/gen/BLBase.h"

namespace brassline {

class Predicate;

// Source entity name to target entity name for clones, as {"Cost": "CatalogItem"}.
using EntityReplacements = std::map<std::string, std::string, std::less<>>;

// The root of every business object: identity, clone, the derivates chain, usage and
// deletion, merge and cache invalidation. Owned by its context; main thread.
class BLBase : public gen::BLBase {
public:
    static void setupClass(EntityDescription& entity);

    // Objects of the entity whose class is `className`: 0 when no entity matches; the
    // largest int64 (and a log line) when the fetch fails.
    static int64_t countInContext(ManagedObjectContext& context, std::string_view className);
    // The object of the entity with this uid, or a new one given it.
    static BLBase* insertInManagedObjectContext(ManagedObjectContext& context, std::string_view entityName,
                                                const std::string& uid);
    // Raw text for a missing one: "" for nothing.
    static std::string fixedAttribute(const std::optional<std::string>& value);

    // The framework's insert hook: every object gets a uid (sync tracks objects by it).
    void awakeFromCreate() override;
    void prepareForDeletion() override;
    void awakeFromSnapshotEvents(uint32_t events) override;

    // Set-up of a new object (user action or import) and repair of a damaged one: both
    // give a missing uid; subclasses fill what else is absent.
    virtual void setup();
    virtual void fixMissingValues();

    // Cloning. The full form answers nil for an object marked doNotClone; the skip list
    // reaches only this object, children are cloned whole. The root raises the sync flag.
    virtual BLBase* clone();
    BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements);
    virtual BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements,
                                                const std::vector<std::string>& skip);
    virtual BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements,
                                                const std::vector<std::string>& skip, bool isRoot);
    virtual BLBase* duplicate();
    virtual void willBeCloned() {}
    virtual void hasBeenClonedFrom(BLBase* source) { (void)source; }
    virtual void hasBeenClonedTo(BLBase* clone) { (void)clone; }
    // Keys never written on this object (absent: none).
    virtual std::optional<std::vector<std::string>> skippedProperties() const { return std::nullopt; }
    virtual std::vector<std::string> skippedPropertiesForDuplicate() const { return {}; }

    // The derivates chain. setSource keeps it loop-free and tells both sources.
    void setSource(brassline::BLBase* value) override;
    void removeSource(BLBase* value);
    void validateSources();
    void derivatesChanged();
    std::vector<BLBase*> allDerivates() const;
    size_t derivatesCount() const { return derivates().size(); }
    BLBase* firstSource();
    BLBase* firstSourceWithEntityName(std::string_view entityName);
    virtual bool updateFromSource() { return false; }

    // Usage and deletion.
    virtual std::vector<std::string> usageKeys() const { return {}; }
    virtual std::vector<ManagedObject*> usageObjects() const;
    std::optional<Predicate> usageFilterPredicate() const;
    virtual bool canDelete() const { return false; }
    virtual bool validateForDelete() const { return true; }
    // Deletes the object and processes the pending changes.
    void deleteObject();

    // Takes over the other object (same entity): absent attributes, to-many members; the
    // other is deleted. False for itself or another entity.
    bool merge(BLBase* other);

    // Caches: resetCaches clears the per-object cache and arranges resetCachesDelayed
    // once per run-loop turn, which announces a change of every derived display key.
    virtual void resetCaches();
    void resetCachesDelayed();
    virtual void updateCaches() {}

    virtual std::string displayName() const;
    virtual std::string fullDisplayName() const { return displayName(); }
    virtual bool isArchived() const { return archivedValue(); }
    bool isSyncing() const;
    virtual bool isLocked() const { return false; }
    bool isUnlocked() const { return !isLocked(); }
    virtual bool hasDocument() const { return false; }
    virtual bool isSent() const { return true; }
    virtual bool prioritySort() const { return false; }

    // The same object in another context of the store; null when it isn't there.
    ManagedObject* objectInContext(ManagedObjectContext& context) const;
    // {"entityName", "attributes" (all but uid), "relations" (name to object URI text)}.
    Value::Dictionary pasteBoardDictionary() const;
    Value quickPrimitiveValueForKey(std::string_view key) const;
    void setQuickPrimitiveValueForKey(const Value& value, std::string_view key);

protected:
    // Whether skippedProperties forbids writing `key`.
    bool isSkippedProperty(std::string_view key) const;
    // Names a nameless new object with the translated "untitled" (not while syncing).
    void nameUntitledIfNameless();
};

// countInContext for a class known at compile time.
template <typename T>
int64_t countInContext(ManagedObjectContext& context) {
    return BLBase::countInContext(context, T::entityDescription().managedObjectClassName());
}

// A list of objects as key-value coding answers it: an array of object references.
template <typename T>
Value objectListValue(const std::vector<T*>& objects) {
    Value::Array list;
    list.reserve(objects.size());
    for (T* object : objects) {
        list.emplace_back(static_cast<Object*>(object));
    }
    return Value(std::move(list));
}

}  // namespace brassline
