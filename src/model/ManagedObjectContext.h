#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Value.h"
#include "model/EntityDescription.h"
#include "model/ManagedObject.h"
#include "model/PersistentStore.h"
#include "model/UidIndex.h"

namespace brassline {

class FetchRequest;
class PersistentStore;
class SerialQueue;
class UndoManager;

// When ManagedObjectContext::schedule runs a task.
struct ContextSchedule {
    // Seconds on the main run loop's clock before the task runs; 0 is the next turn.
    double delaySeconds = 0.0;
    // Non-empty: at most one pending task per key and context; a request before the
    // pending one has started is dropped (the coalescing of delayed cache resets).
    std::string onceKey;
};

// Owns the managed objects of one object graph. A main context belongs to the main thread
// (the thread of RunLoop::main()) and has an undo manager; a child context works on a
// private serial queue, copies objects from its parent on first use (the parent's current
// state, unsaved changes included) and hands its own changes to the parent only on save.
// Failures are answers (null, false, an empty optional) with the reason in `error` and a
// log line; nothing throws.
class ManagedObjectContext : public Object {
public:
    // A main context over `store` (may be null: the objects then live in memory only).
    // The context loads the store's objects at once; a failed load leaves it empty and
    // logged, see loadError().
    explicit ManagedObjectContext(const ManagedObjectModel& model, std::unique_ptr<PersistentStore> store = nullptr);
    // A child context of `parent` on a serial queue of its own.
    explicit ManagedObjectContext(ManagedObjectContext& parent, std::string queueName = "ChildContext");
    ~ManagedObjectContext() override;
    ManagedObjectContext(const ManagedObjectContext&) = delete;
    ManagedObjectContext& operator=(const ManagedObjectContext&) = delete;

    Value valueForKey(std::string_view key) const override;
    std::string_view className() const override { return "ManagedObjectContext"; }

    const ManagedObjectModel& model() const { return m_model; }
    const EntityDescription* entityNamed(std::string_view name) const { return m_model.entityNamed(name); }
    ManagedObjectContext* parentContext() const { return m_parent; }
    bool isMainContext() const { return m_parent == nullptr; }
    PersistentStore* persistentStore() const;
    const std::string& storeIdentifier() const;
    // Unique in the process and never reused, unlike the context's address: state kept
    // beside a context is keyed by it.
    uint64_t serialNumber() const;
    const std::string& loadError() const { return m_loadError; }
    // The main context's undo manager; null for child contexts or after setUndoManager(nullptr).
    UndoManager* undoManager() const { return m_undoManager.get(); }
    void setUndoManager(std::unique_ptr<UndoManager> undoManager);

    // Runs work on the context's thread: the main run loop or the private queue.
    // performBlockAndWait runs the block before it returns (on the calling thread when
    // that is already the context's thread).
    void performBlock(std::function<void()> block);
    void performBlockAndWait(const std::function<void()>& block);
    bool isOnContextThread() const;
    // Expires when the context goes. Work and caches that outlive a call hold this rather
    // than the context's address, which a later context may reuse.
    std::weak_ptr<ManagedObjectContext*> livenessToken() const { return m_alive; }

    // The one way to leave work for later on behalf of this context: the task runs on the
    // context's thread with the context, only while the context lives, and the context
    // cancels its pending timers when it goes. Run-loop tasks never capture a context's
    // address; they are scheduled here. Thread-safe.
    using ContextTask = std::function<void(ManagedObjectContext&)>;
    void schedule(ContextTask task, const ContextSchedule& when = {});

    // Inserts a new object of a concrete entity and calls its awakeFromCreate. Null for an
    // unknown or abstract entity.
    ManagedObject* insertNewObjectForEntityForName(std::string_view entityName);
    ManagedObject* insertNewObject(const EntityDescription& entity);
    // Calls prepareForDeletion, applies the delete rules and marks the object deleted. A
    // deny rule that holds objects refuses the whole deletion: false with the reason.
    bool deleteObject(ManagedObject* object, std::string* error = nullptr);

    // Posts one objects-did-change notification for the changes since the last call (on
    // the main context this is requested for the end of the run-loop turn at the first
    // change) and closes the event for changedValuesForCurrentEvent.
    void processPendingChanges();
    bool hasChanges() const;
    std::vector<ManagedObject*> insertedObjects() const;
    std::vector<ManagedObject*> updatedObjects() const;
    std::vector<ManagedObject*> deletedObjects() const;
    size_t registeredObjectCount() const { return m_objectsByNumber.size(); }

    // Without merging, the object's unsaved changes are dropped; either way its cache is
    // cleared, it is reported under "refreshed" and hears awakeFromSnapshotEvents(refresh).
    void refreshObject(ManagedObject* object, bool mergeChanges);
    // Drops the object's unchanged large data values from memory; they are read from the
    // store again on next access. Answers how many values were dropped (0 without a store).
    size_t turnDataIntoFaults(ManagedObject* object);
    // Commits the changes: into the store for a main context (refused off the main
    // thread), into the parent for a child context. Deleted objects are released once no
    // undo action can reach them.
    bool save(std::string* error = nullptr);
    // Takes the store's write lock ahead of the save and merges what other writers
    // committed (PersistentStore::beginWriting): call it before drawing anything that must
    // be unique in the file, such as a document number. Main context only; true without a
    // store. The lock holds until the next save.
    bool beginWriting(std::string* error = nullptr);

    // For stores, inside beginWriting. Gives every unsaved inserted object numbered at or
    // below `largestInUse` a number after it, and numbers new objects after it.
    void renumberInsertedObjects(int64_t largestInUse);
    // For stores, inside beginWriting: the changes of other writers, applied between
    // beginMerge and endMerge through the ordinary setters. They register no undo, are not
    // saved again and reach observers as changes of the current event; setters see
    // isMergingExternally(). endMerge answers the objects the merge brought in, changed
    // and removed, in that order.
    void beginMerge();
    bool isMergingExternally() const { return m_isMerging; }
    // The object of that number when the context has it, else a new one brought in.
    ManagedObject* mergeObject(const EntityDescription& entity, int64_t number);
    // Another writer deleted the object: it leaves every relationship and the context,
    // reads as deleted, and no save of this context writes it.
    void mergeDeletion(ManagedObject& object);
    struct MergeResult {
        std::vector<ManagedObject*> inserted;
        std::vector<ManagedObject*> updated;
        std::vector<ManagedObject*> deleted;
    };
    MergeResult endMerge();
    // Counts the merges so far: caches built from fetches compare it to know they are stale.
    uint64_t mergeCount() const { return m_mergeCount; }
    // The registered object of that number, deleted or not; null when there is none.
    ManagedObject* objectWithNumber(int64_t number) const;

    // Off the main thread, a fetch on the main context is re-run on the main queue.
    std::optional<std::vector<ManagedObject*>> executeFetchRequest(const FetchRequest& request,
                                                                   std::string* error = nullptr);
    std::optional<size_t> countForFetchRequest(const FetchRequest& request, std::string* error = nullptr);
    // The index lookup behind `uid == X` fetches: the first live object of the entity (or
    // a subentity) with that uid, or null.
    ManagedObject* objectWithUid(const EntityDescription& entity, std::string_view uid) const;
    ManagedObject* objectWithID(const ObjectID& objectID);
    // Null for malformed text, another store, or an object not in this context.
    ManagedObject* objectForURIString(std::string_view uri);
    std::vector<ManagedObject*> objectsForURIStrings(const std::vector<std::string>& uris);

    // For stores before loading: room for `count` more objects in the registry and the
    // uid index, and for `count` more objects of `entity` in its list, so a large load
    // does not rehash or regrow them object by object.
    void reserveObjects(size_t count);
    void reserveObjects(const EntityDescription& entity, size_t count);
    // For stores while loading: objects made here are neither inserted nor updated.
    ManagedObject* registerLoadedObject(const EntityDescription& entity, int64_t number);
    void setLoadedValue(ManagedObject& object, const AttributeDescription& attribute, Value value);
    // Leaves a data attribute in the store until first read (loadDataValue); false when the
    // attribute can't wait (its value must then be set with setLoadedValue).
    bool setLoadedDataFault(ManagedObject& object, const AttributeDescription& attribute);
    // Sets one side only; stores load both sides of a relationship.
    void setLoadedRelationship(ManagedObject& object, const RelationshipDescription& relationship,
                               const std::vector<ManagedObject*>& targets);
    // Ends a load: every loaded object hears awakeFromFetch.
    void finishLoading();

private:
    friend class ManagedObject;
    // The uid index keys objects by the hash of their uid, not by a copy of it: lookups
    // confirm each candidate against the object's current value, so the index never holds
    // text of its own nor points into values that setters replace.
    static size_t uidHash(std::string_view uid) { return std::hash<std::string_view>{}(uid); }
    static bool hasUid(const ManagedObject& object, std::string_view uid);
    struct ObserverEntry {
        uint64_t token;
        std::string key;
        ManagedObject::KeyObserver observer;
    };

    enum Flag : uint8_t { kInserted = 1, kUpdated = 2, kDeleted = 4, kRefreshed = 8 };

    void registerObject(ManagedObject& object);
    void unregisterObject(ManagedObject& object);
    void noteObjectFlag(ManagedObject& object, uint8_t flag);
    void requestProcessPendingChanges();
    void markUpdated(ManagedObject& object);
    void uidChanged(ManagedObject& object, const Value& oldUid, const Value& newUid);
    void indexUid(ManagedObject& object, const std::string& uid);
    void unindexUid(const ManagedObject& object, const std::string& uid);
    bool canDelete(ManagedObject& object, std::vector<ManagedObject*>& visited, std::string* error) const;
    void deleteWithRules(ManagedObject& object);
    void markDeleted(ManagedObject& object, bool registerUndo);
    void markUndeleted(ManagedObject& object, bool registerUndo);
    bool registersUndo() const;
    void registerUndo(std::function<void()> action);
    std::optional<std::vector<ManagedObject*>> fetchHere(const FetchRequest& request, std::string* error);
    void notifyObservers(ManagedObject& object, std::string_view key);
    int64_t allocateObjectNumber();
    void releaseObject(ManagedObject* object);

    // Child contexts.
    ManagedObject* childObjectForParentObject(ManagedObject& parentObject);
    void fulfillFault(ManagedObject& object);
    bool saveIntoParent(std::string* error);

    const ManagedObjectModel& m_model;
    ManagedObjectContext* m_parent = nullptr;
    std::unique_ptr<PersistentStore> m_store;
    std::string m_storeIdentifier;
    std::string m_loadError;
    std::unique_ptr<UndoManager> m_undoManager;
    std::unique_ptr<SerialQueue> m_queue;
    std::shared_ptr<ManagedObjectContext*> m_alive;  // Pending run-loop work checks it.
    struct Scheduled;
    std::shared_ptr<Scheduled> m_scheduled;  // Shared with the timers and once-tasks of schedule().
    static void runScheduled(const std::shared_ptr<Scheduled>& scheduled, std::function<void()> run);
    static void armTimer(const std::shared_ptr<Scheduled>& scheduled, double delaySeconds, std::function<void()> run);
    std::atomic<int64_t> m_nextNumber{1};

    std::unordered_map<int64_t, std::unique_ptr<ManagedObject>> m_objectsByNumber;
    std::vector<std::vector<ManagedObject*>> m_objectsByEntity;  // Live objects, by entity index.
    UidIndex m_uidIndex;                                         // By uidHash.
    std::vector<ManagedObject*> m_pendingObjects;                // Some state flag set since the last save.
    std::vector<ManagedObject*> m_eventObjects;                  // Some event flag set since the last event.
    std::vector<std::unique_ptr<ManagedObject>> m_graveyard;     // Saved deletions undo may revive.
    std::vector<ManagedObject*> m_loadedObjects;
    bool m_processRequested = false;
    bool m_isProcessing = false;
    bool m_isLoading = false;
    bool m_isMerging = false;
    uint64_t m_mergeCount = 0;
    MergeResult m_merge;

    std::unordered_map<const ManagedObject*, std::vector<ObserverEntry>> m_observers;
    uint64_t m_nextObserverToken = 1;
};

}  // namespace brassline
