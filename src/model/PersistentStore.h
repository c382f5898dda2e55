#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/Value.h"

namespace brassline {

class ManagedObject;
class ManagedObjectContext;
class EntityDescription;
struct AttributeDescription;

// The objects of one save, each list without duplicates.
struct StoreChanges {
    std::vector<ManagedObject*> inserted;
    std::vector<ManagedObject*> updated;
    std::vector<ManagedObject*> deleted;
};

// Where a main context keeps its objects. A context loads every object at open
// (loadObjects, through the context's registerLoadedObject... calls) and hands each save
// over as one unit: a store writes all of it or nothing.
class PersistentStore {
public:
    virtual ~PersistentStore() = default;

    // The store identifier in object URIs.
    virtual const std::string& identifier() const = 0;
    // The largest object number in use; new objects continue after it.
    virtual int64_t largestObjectNumber() const = 0;
    virtual bool loadObjects(ManagedObjectContext& context, std::string* error) = 0;
    // Takes the store's write lock for the next save and brings the context up to what
    // other writers committed since it last looked (renumbering its unsaved insertions
    // where they would collide). Whatever is drawn from the context after this answered
    // (counters, numbers) is drawn under the lock. Holds until saveChanges or
    // endWriting. A store with a single writer answers true at once.
    virtual bool beginWriting(ManagedObjectContext& context, std::string* error);
    // Lets go of the lock of beginWriting when no save follows.
    virtual void endWriting() {}
    virtual bool saveChanges(const StoreChanges& changes, std::string* error) = 0;
    // The saved value of a data attribute left behind at load (setLoadedDataFault). Safe
    // to call from any thread. Nothing, with the reason, when it can't be read.
    virtual std::optional<Value> loadDataValue(const EntityDescription& entity, int64_t number,
                                               const AttributeDescription& attribute, std::string* error);
};

// A store in memory, for tests and scratch documents: keeps the saved state of every
// object by number so that another context can load it again. failNextSave makes the
// next save fail (the "disk full" of tests).
class InMemoryStore : public PersistentStore {
public:
    struct Record {
        std::string entityName;
        std::map<std::string, Value> attributes;
        std::map<std::string, std::vector<int64_t>> relationships;  // Ordered as stored; one element for to-one.
    };

    explicit InMemoryStore(std::string identifier);

    const std::string& identifier() const override { return m_identifier; }
    int64_t largestObjectNumber() const override { return m_largestNumber; }
    bool loadObjects(ManagedObjectContext& context, std::string* error) override;
    bool saveChanges(const StoreChanges& changes, std::string* error) override;

    const std::map<int64_t, Record>& records() const { return m_records; }
    int saveCount() const { return m_saveCount; }
    void failNextSave(std::string reason) { m_failure = std::move(reason); }

private:
    std::string m_identifier;
    std::map<int64_t, Record> m_records;
    int64_t m_largestNumber = 0;
    int m_saveCount = 0;
    std::string m_failure;
};

}  // namespace brassline
