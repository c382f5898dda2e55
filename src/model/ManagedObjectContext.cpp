#include "model/ManagedObjectContext.h"

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "core/Log.h"
#include "core/UniqueId.h"
#include "model/FetchRequest.h"
#include "model/NotificationCenter.h"
#include "model/Notifications.h"
#include "model/PersistentStore.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"

namespace brassline {

namespace {

std::string currentThreadDescription() {
    std::ostringstream text;
    text << "thread " << std::this_thread::get_id();
    return text.str();
}

// Serial numbers by context, kept here rather than in the context itself; registered at
// construction and dropped at destruction, on whatever thread makes the context.
std::mutex g_serialMutex;
std::unordered_map<const ManagedObjectContext*, uint64_t>& serialNumbers() {
    static std::unordered_map<const ManagedObjectContext*, uint64_t> table;
    return table;
}

void registerSerialNumber(const ManagedObjectContext* context) {
    static uint64_t next = 1;
    std::lock_guard lock(g_serialMutex);
    serialNumbers()[context] = next++;
}

Value objectArray(const std::vector<ManagedObject*>& objects) {
    Value::Array array;
    array.reserve(objects.size());
    for (ManagedObject* object : objects) {
        array.emplace_back(static_cast<Object*>(object));
    }
    return Value(std::move(array));
}

}  // namespace

// What the timers and once-tasks of schedule() share with their context: whether it still
// lives, and the timers to cancel when it goes. The mutex orders a firing timer against
// the destructor on another thread.
struct ManagedObjectContext::Scheduled {
    std::mutex mutex;
    ManagedObjectContext* context = nullptr;
    std::set<RunLoop::TimerId> timers;
    // Once-keys are scoped by this number, never by an address that a later context reuses.
    uint64_t serial = 0;
};

namespace {

std::atomic<uint64_t> nextContextSerial{1};

}  // namespace

ManagedObjectContext::ManagedObjectContext(const ManagedObjectModel& model, std::unique_ptr<PersistentStore> store)
    : m_model(model),
      m_store(std::move(store)),
      m_undoManager(std::make_unique<UndoManager>()),
      m_alive(std::make_shared<ManagedObjectContext*>(this)),
      m_scheduled(std::make_shared<Scheduled>()) {
    m_scheduled->context = this;
    m_scheduled->serial = nextContextSerial++;
    registerSerialNumber(this);
    // The first call fixes the main thread; a main context made first thing in a test or
    // in main() makes that thread the main one.
    RunLoop::main();
    m_objectsByEntity.resize(model.entities().size());
    m_storeIdentifier = m_store ? m_store->identifier() : uniqueBase64String();
    if (m_store) {
        m_nextNumber = m_store->largestObjectNumber() + 1;
        std::string error;
        if (!m_store->loadObjects(*this, &error)) {
            m_loadError = error;
            logMessage("Could not load the store %@: %@", m_storeIdentifier, error);
        }
    }
}

ManagedObjectContext::ManagedObjectContext(ManagedObjectContext& parent, std::string queueName)
    : m_model(parent.m_model),
      m_parent(&parent),
      m_storeIdentifier(parent.storeIdentifier()),
      m_queue(std::make_unique<SerialQueue>(std::move(queueName))),
      m_alive(std::make_shared<ManagedObjectContext*>(this)),
      m_scheduled(std::make_shared<Scheduled>()) {
    m_scheduled->context = this;
    m_scheduled->serial = nextContextSerial++;
    registerSerialNumber(this);
    m_objectsByEntity.resize(m_model.entities().size());
}

uint64_t ManagedObjectContext::serialNumber() const {
    std::lock_guard lock(g_serialMutex);
    auto found = serialNumbers().find(this);
    return found == serialNumbers().end() ? 0 : found->second;
}

ManagedObjectContext::~ManagedObjectContext() {
    // Scheduled work dies with the context: pending timers are cancelled, and what already
    // sits in a queue finds the context gone.
    std::set<RunLoop::TimerId> timers;
    {
        std::lock_guard lock(m_scheduled->mutex);
        m_scheduled->context = nullptr;
        timers.swap(m_scheduled->timers);
    }
    for (RunLoop::TimerId timer : timers) {
        RunLoop::main().cancel(timer);
    }
    {
        std::lock_guard lock(g_serialMutex);
        serialNumbers().erase(this);
    }
    // Undo actions point at the objects: they go first. The queue finishes its tasks
    // before the objects are released.
    m_alive.reset();
    m_undoManager.reset();
    m_queue.reset();
    m_observers.clear();
}

Value ManagedObjectContext::valueForKey(std::string_view key) const {
    if (key == "hasChanges") {
        return Value(hasChanges());
    }
    if (key == "storeIdentifier") {
        return Value(m_storeIdentifier);
    }
    return Value();
}

PersistentStore* ManagedObjectContext::persistentStore() const {
    const ManagedObjectContext* root = this;
    while (root->m_parent != nullptr) {
        root = root->m_parent;
    }
    return root->m_store.get();
}

const std::string& ManagedObjectContext::storeIdentifier() const {
    return m_storeIdentifier;
}

void ManagedObjectContext::setUndoManager(std::unique_ptr<UndoManager> undoManager) {
    m_undoManager = std::move(undoManager);
}

// Threads.

bool ManagedObjectContext::isOnContextThread() const {
    return m_queue ? m_queue->isCurrent() : RunLoop::isMainThread();
}

void ManagedObjectContext::performBlock(std::function<void()> block) {
    std::weak_ptr<ManagedObjectContext*> alive = m_alive;
    auto task = [alive, block = std::move(block)] {
        auto context = alive.lock();
        if (!context) {
            return;
        }
        block();
        if (!(*context)->isMainContext()) {
            (*context)->processPendingChanges();
        }
    };
    if (m_queue) {
        m_queue->async(std::move(task));
    } else {
        RunLoop::main().perform(std::move(task));
    }
}

void ManagedObjectContext::schedule(ContextTask task, const ContextSchedule& when) {
    std::weak_ptr<ManagedObjectContext*> alive = m_alive;
    auto run = [alive, task = std::move(task)] {
        if (auto context = alive.lock()) {
            task(**context);
        }
    };
    std::shared_ptr<Scheduled> scheduled = m_scheduled;
    if (!when.onceKey.empty()) {
        // RunLoop keeps the key until the task starts, and forgets it on a reset.
        std::string key = "context." + std::to_string(scheduled->serial) + "." + when.onceKey;
        if (when.delaySeconds <= 0.0) {
            RunLoop::main().performOnce(key, [scheduled, run = std::move(run)] { runScheduled(scheduled, run); });
            return;
        }
        // A delayed once-task: the key is held from the request until the timer fires.
        RunLoop::main().performOnce(key, [scheduled, delay = when.delaySeconds, run = std::move(run)] {
            std::lock_guard lock(scheduled->mutex);
            if (scheduled->context != nullptr) {
                armTimer(scheduled, delay, run);
            }
        });
        return;
    }
    if (when.delaySeconds <= 0.0) {
        performBlock(std::move(run));
        return;
    }
    std::lock_guard lock(scheduled->mutex);
    armTimer(scheduled, when.delaySeconds, std::move(run));
}

// The caller holds the lock, so the timer can neither fire before it is recorded nor be
// recorded after the destructor has cancelled the others.
void ManagedObjectContext::armTimer(const std::shared_ptr<Scheduled>& scheduled, double delaySeconds,
                                    std::function<void()> run) {
    auto timer = std::make_shared<RunLoop::TimerId>(0);
    *timer = RunLoop::main().performAfterDelay(delaySeconds, [scheduled, timer, run = std::move(run)] {
        {
            std::lock_guard lock(scheduled->mutex);
            scheduled->timers.erase(*timer);
        }
        runScheduled(scheduled, run);
    });
    scheduled->timers.insert(*timer);
}

// On the main thread: a main context's task runs here and now; a child context's goes into
// its queue, posted while the lock keeps the context from going.
void ManagedObjectContext::runScheduled(const std::shared_ptr<Scheduled>& scheduled, std::function<void()> run) {
    {
        std::lock_guard lock(scheduled->mutex);
        ManagedObjectContext* context = scheduled->context;
        if (context == nullptr) {
            return;
        }
        if (!context->isMainContext()) {
            context->performBlock(std::move(run));
            return;
        }
    }
    // Unlocked: the task may schedule more work or close its own document.
    run();
}

void ManagedObjectContext::performBlockAndWait(const std::function<void()>& block) {
    if (isOnContextThread()) {
        block();
        return;
    }
    if (!m_queue) {
        dispatchSyncToMain(block);
        return;
    }
    // The block runs here, on the caller's thread, while a task holds the queue: it has
    // the context to itself, and it can still reach the parent's thread (a child's fetch
    // from the main thread would deadlock if the block ran on the queue instead).
    struct Gate {
        std::mutex mutex;
        std::condition_variable changed;
        bool held = false;
        bool done = false;
    };
    auto gate = std::make_shared<Gate>();
    m_queue->async([gate] {
        std::unique_lock lock(gate->mutex);
        gate->held = true;
        gate->changed.notify_all();
        gate->changed.wait(lock, [&] { return gate->done; });
    });
    {
        std::unique_lock lock(gate->mutex);
        gate->changed.wait(lock, [&] { return gate->held; });
    }
    block();
    processPendingChanges();
    std::lock_guard lock(gate->mutex);
    gate->done = true;
    gate->changed.notify_all();
}

// Registry.

int64_t ManagedObjectContext::allocateObjectNumber() {
    ManagedObjectContext* root = this;
    while (root->m_parent != nullptr) {
        root = root->m_parent;
    }
    return root->m_nextNumber.fetch_add(1);
}

void ManagedObjectContext::registerObject(ManagedObject& object) {
    auto& list = m_objectsByEntity[object.m_entity->index()];
    object.m_entityPosition = static_cast<uint32_t>(list.size());
    list.push_back(&object);
    if (const AttributeDescription* uid = object.m_entity->uidAttribute()) {
        if (const std::string* text = object.m_values[uid->slot].string()) {
            indexUid(object, *text);
        }
    }
}

void ManagedObjectContext::unregisterObject(ManagedObject& object) {
    auto& list = m_objectsByEntity[object.m_entity->index()];
    uint32_t position = object.m_entityPosition;
    if (position < list.size() && list[position] == &object) {
        list[position] = list.back();
        list[position]->m_entityPosition = position;
        list.pop_back();
    }
    if (const AttributeDescription* uid = object.m_entity->uidAttribute()) {
        if (const std::string* text = object.m_values[uid->slot].string()) {
            unindexUid(object, *text);
        }
    }
}

void ManagedObjectContext::uidChanged(ManagedObject& object, const Value& oldUid, const Value& newUid) {
    if (const std::string* text = oldUid.string()) {
        unindexUid(object, *text);
    }
    if (const std::string* text = newUid.string()) {
        indexUid(object, *text);
    }
}

void ManagedObjectContext::indexUid(ManagedObject& object, const std::string& uid) {
    m_uidIndex.insert(uidHash(uid), &object);
}

void ManagedObjectContext::unindexUid(const ManagedObject& object, const std::string& uid) {
    // Found by the object, not by its text: the entry is under the hash of the uid it had
    // when indexed, which is the `uid` given here.
    m_uidIndex.erase(uidHash(uid), &object);
}

bool ManagedObjectContext::hasUid(const ManagedObject& object, std::string_view uid) {
    const AttributeDescription* attribute = object.m_entity->uidAttribute();
    if (attribute == nullptr) {
        return false;
    }
    const std::string* text = object.m_values[attribute->slot].string();
    return text != nullptr && *text == uid;
}

void ManagedObjectContext::noteObjectFlag(ManagedObject& object, uint8_t flag) {
    if (object.m_stateFlags == 0) {
        m_pendingObjects.push_back(&object);
    }
    object.m_stateFlags |= flag;
    if (object.m_eventFlags == 0) {
        m_eventObjects.push_back(&object);
    }
    object.m_eventFlags |= flag;
    requestProcessPendingChanges();
}

void ManagedObjectContext::markUpdated(ManagedObject& object) {
    if (m_isLoading) {
        return;
    }
    if (m_isMerging) {
        // Saved already by the other writer: observers hear of it, the next save doesn't.
        if (object.m_eventFlags == 0) {
            m_eventObjects.push_back(&object);
        }
        object.m_eventFlags |= kUpdated;
        requestProcessPendingChanges();
        return;
    }
    if ((object.m_stateFlags & (kInserted | kDeleted)) != 0) {
        // Inserted and deleted objects are reported as such, not as updated; the event
        // still has to close so changedValuesForCurrentEvent starts over.
        if (object.m_eventFlags == 0) {
            m_eventObjects.push_back(&object);
            object.m_eventFlags |= kUpdated;
        }
        requestProcessPendingChanges();
        return;
    }
    noteObjectFlag(object, kUpdated);
}

void ManagedObjectContext::requestProcessPendingChanges() {
    if (m_processRequested || m_queue) {
        // Child contexts process at the end of each block and before saving.
        return;
    }
    m_processRequested = true;
    // One request per context and turn.
    schedule([](ManagedObjectContext& context) { context.processPendingChanges(); }, {0.0, "processPendingChanges"});
}

bool ManagedObjectContext::registersUndo() const {
    return m_undoManager && !m_isLoading && !m_isMerging && m_undoManager->isUndoRegistrationEnabled();
}

void ManagedObjectContext::registerUndo(std::function<void()> action) {
    m_undoManager->registerUndo(std::move(action));
}

// Insert and delete.

ManagedObject* ManagedObjectContext::insertNewObjectForEntityForName(std::string_view entityName) {
    const EntityDescription* entity = m_model.entityNamed(entityName);
    if (entity == nullptr) {
        logMessage("insertNewObjectForEntityForName: no entity named %@ in %@", entityName, m_model.name());
        return nullptr;
    }
    return insertNewObject(*entity);
}

ManagedObject* ManagedObjectContext::insertNewObject(const EntityDescription& entity) {
    std::unique_ptr<ManagedObject> owned = entity.newInstance();
    if (!owned) {
        logMessage("insertNewObject: entity %@ is abstract", entity.name());
        return nullptr;
    }
    ManagedObject* object = owned.get();
    object->attach(entity, *this, allocateObjectNumber());
    m_objectsByNumber.emplace(object->m_number, std::move(owned));
    registerObject(*object);
    noteObjectFlag(*object, kInserted);
    if (registersUndo()) {
        registerUndo([this, object] {
            markDeleted(*object, true);
            object->awakeFromSnapshotEvents(kSnapshotEventUndoInsertion);
        });
    }
    object->awakeFromCreate();
    return object;
}

bool ManagedObjectContext::canDelete(ManagedObject& object, std::vector<ManagedObject*>& visited,
                                     std::string* error) const {
    if (std::find(visited.begin(), visited.end(), &object) != visited.end()) {
        return true;
    }
    visited.push_back(&object);
    for (const RelationshipDescription* relationship : object.m_entity->relationships()) {
        if (relationship->deleteRule == DeleteRule::Deny) {
            bool holds = relationship->isToMany ? !object.toManyObjects(*relationship).empty()
                                                : object.toOneObject(*relationship) != nullptr;
            if (holds) {
                std::string reason =
                    "Cannot delete " + object.entityName() + ": " + relationship->name + " still holds objects";
                logMessage("%@", reason);
                if (error != nullptr) {
                    *error = reason;
                }
                return false;
            }
        } else if (relationship->deleteRule == DeleteRule::Cascade) {
            std::vector<ManagedObject*> targets = relationship->isToMany
                                                      ? object.toManyObjects(*relationship)
                                                      : std::vector<ManagedObject*>{object.toOneObject(*relationship)};
            for (ManagedObject* target : targets) {
                if (target != nullptr && !target->isDeleted() && !canDelete(*target, visited, error)) {
                    return false;
                }
            }
        }
    }
    return true;
}

bool ManagedObjectContext::deleteObject(ManagedObject* object, std::string* error) {
    if (object == nullptr || object->m_context != this) {
        if (error != nullptr) {
            *error = "deleteObject: the object does not belong to this context";
        }
        return false;
    }
    if (object->isDeleted()) {
        return true;
    }
    std::vector<ManagedObject*> visited;
    if (!canDelete(*object, visited, error)) {
        return false;
    }
    deleteWithRules(*object);
    return true;
}

void ManagedObjectContext::deleteWithRules(ManagedObject& object) {
    object.fireFault();
    if (object.m_dataFaults != 0 && registersUndo()) {
        // Once the deletion is saved the row is gone; an undo that brings the object back
        // must have its bytes in hand.
        for (const AttributeDescription* attribute : object.m_entity->attributes()) {
            object.fireDataFault(attribute->slot);
        }
    }
    // Marked first, so that cycles of cascades end here.
    markDeleted(object, true);
    object.prepareForDeletion();
    for (const RelationshipDescription* relationship : object.m_entity->relationships()) {
        if (relationship->deleteRule == DeleteRule::NoAction) {
            continue;
        }
        std::vector<ManagedObject*> targets = relationship->isToMany
                                                  ? object.toManyObjects(*relationship)
                                                  : std::vector<ManagedObject*>{object.toOneObject(*relationship)};
        if (relationship->deleteRule == DeleteRule::Cascade) {
            for (ManagedObject* target : targets) {
                if (target != nullptr && !target->isDeleted()) {
                    deleteWithRules(*target);
                }
            }
        }
        object.setRelationshipObjects(*relationship, {});
    }
}

void ManagedObjectContext::markDeleted(ManagedObject& object, bool registerUndoAction) {
    if (object.isDeleted()) {
        return;
    }
    unregisterObject(object);
    const bool insertedInThisEvent = (object.m_eventFlags & kInserted) != 0;
    noteObjectFlag(object, kDeleted);
    if (insertedInThisEvent) {
        // Inserted and deleted within one event: the notice reports neither.
        object.m_eventFlags = 0;
    }
    if (registerUndoAction && registersUndo()) {
        ManagedObject* target = &object;
        registerUndo([this, target] {
            markUndeleted(*target, true);
            target->awakeFromSnapshotEvents(kSnapshotEventUndoDeletion);
        });
    }
}

void ManagedObjectContext::markUndeleted(ManagedObject& object, bool registerUndoAction) {
    if (!object.isDeleted()) {
        return;
    }
    auto buried =
        std::find_if(m_graveyard.begin(), m_graveyard.end(), [&](const auto& owned) { return owned.get() == &object; });
    if (buried != m_graveyard.end()) {
        // The deletion was saved: the object comes back as a new one.
        m_objectsByNumber.emplace(object.m_number, std::move(*buried));
        m_graveyard.erase(buried);
        object.m_stateFlags = 0;
        noteObjectFlag(object, kInserted);
    }
    object.m_stateFlags &= static_cast<uint8_t>(~kDeleted);
    if ((object.m_eventFlags & kDeleted) != 0) {
        object.m_eventFlags &= static_cast<uint8_t>(~kDeleted);
    } else {
        // A deletion undone in a later event reads as an insertion to observers.
        if (object.m_eventFlags == 0) {
            m_eventObjects.push_back(&object);
        }
        object.m_eventFlags |= kInserted;
    }
    registerObject(object);
    requestProcessPendingChanges();
    if (registerUndoAction && registersUndo()) {
        ManagedObject* target = &object;
        registerUndo([this, target] {
            markDeleted(*target, true);
            target->awakeFromSnapshotEvents(kSnapshotEventUndoInsertion);
        });
    }
}

// Change processing.

void ManagedObjectContext::processPendingChanges() {
    if (m_isProcessing) {
        return;
    }
    m_processRequested = false;
    if (m_eventObjects.empty()) {
        return;
    }
    m_isProcessing = true;
    std::vector<ManagedObject*> batch;
    batch.swap(m_eventObjects);
    std::vector<ManagedObject*> inserted;
    std::vector<ManagedObject*> updated;
    std::vector<ManagedObject*> deleted;
    std::vector<ManagedObject*> refreshed;
    Value::Array changedKeys;
    for (ManagedObject* object : batch) {
        uint8_t flags = object->m_eventFlags;
        object->m_eventFlags = 0;
        if ((flags & kInserted) != 0) {
            inserted.push_back(object);
        } else if ((flags & kDeleted) != 0) {
            deleted.push_back(object);
        } else if ((flags & kUpdated) != 0 && object->m_changes && !object->m_changes->event.empty()) {
            updated.push_back(object);
            Value::Array keys;
            for (const auto& [key, value] : object->m_changes->event) {
                keys.emplace_back(key);
            }
            changedKeys.emplace_back(std::move(keys));
        }
        if ((flags & kRefreshed) != 0) {
            refreshed.push_back(object);
        }
    }
    if (!inserted.empty() || !updated.empty() || !deleted.empty() || !refreshed.empty()) {
        Value::Dictionary userInfo;
        userInfo.emplace(kInsertedObjectsKey, objectArray(inserted));
        userInfo.emplace(kUpdatedObjectsKey, objectArray(updated));
        userInfo.emplace(kDeletedObjectsKey, objectArray(deleted));
        userInfo.emplace(kRefreshedObjectsKey, objectArray(refreshed));
        userInfo.emplace(kChangedKeysKey, Value(std::move(changedKeys)));
        NotificationCenter::defaultCenter().postNotificationName(kObjectsDidChangeNotification, this,
                                                                 std::move(userInfo));
    }
    // Changes made by observers of the notice open the next event; they keep their old
    // values.
    for (ManagedObject* object : batch) {
        if (object->m_eventFlags == 0 && object->m_changes) {
            object->m_changes->event.clear();
        }
    }
    m_isProcessing = false;
    if (!m_eventObjects.empty()) {
        requestProcessPendingChanges();
    }
}

bool ManagedObjectContext::hasChanges() const {
    for (ManagedObject* object : m_pendingObjects) {
        if (object->hasChanges()) {
            return true;
        }
    }
    return false;
}

std::vector<ManagedObject*> ManagedObjectContext::insertedObjects() const {
    std::vector<ManagedObject*> result;
    for (ManagedObject* object : m_pendingObjects) {
        if (object->isInserted()) {
            result.push_back(object);
        }
    }
    return result;
}

std::vector<ManagedObject*> ManagedObjectContext::updatedObjects() const {
    std::vector<ManagedObject*> result;
    for (ManagedObject* object : m_pendingObjects) {
        if (object->isUpdated()) {
            result.push_back(object);
        }
    }
    return result;
}

std::vector<ManagedObject*> ManagedObjectContext::deletedObjects() const {
    std::vector<ManagedObject*> result;
    for (ManagedObject* object : m_pendingObjects) {
        // An object inserted and deleted before any save never reached the store.
        if (object->isDeleted() && (object->m_stateFlags & kInserted) == 0) {
            result.push_back(object);
        }
    }
    return result;
}

void ManagedObjectContext::refreshObject(ManagedObject* object, bool mergeChanges) {
    if (object == nullptr || object->m_context != this) {
        return;
    }
    if (!mergeChanges && object->m_changes && !object->isInserted()) {
        // Back to the committed state, without undo: the platform forgets the changes.
        Value::Dictionary committed = object->m_changes->committed;
        bool wasLoading = m_isLoading;
        m_isLoading = true;
        for (const auto& [key, value] : committed) {
            if (const AttributeDescription* attribute = object->m_entity->attributeNamed(key)) {
                object->willChangeValueForKey(key);
                object->storeAttribute(*attribute, value);
                object->didChangeValueForKey(key);
            } else if (const RelationshipDescription* relationship = object->m_entity->relationshipNamed(key)) {
                object->willChangeValueForKey(key);
                if (relationship->isToMany) {
                    std::vector<ManagedObject*> targets;
                    if (const Value::Array* array = value.array()) {
                        for (const Value& element : *array) {
                            targets.push_back(attributes::toObject(element));
                        }
                    }
                    object->m_toMany[relationship->slot] = targets;
                } else {
                    object->m_toOne[relationship->slot] = attributes::toObject(value);
                }
                object->didChangeValueForKey(key);
            }
        }
        m_isLoading = wasLoading;
        object->m_changes->committed.clear();
        object->m_stateFlags &= static_cast<uint8_t>(~kUpdated);
    }
    turnDataIntoFaults(object);
    object->holdfastResetCacheValues();
    noteObjectFlag(*object, kRefreshed);
    // The refresh is no change to save.
    object->m_stateFlags &= static_cast<uint8_t>(~kRefreshed);
    object->awakeFromSnapshotEvents(kSnapshotEventRefresh);
}

// Saving.

void ManagedObjectContext::releaseObject(ManagedObject* object) {
    m_observers.erase(object);
    auto found = m_objectsByNumber.find(object->m_number);
    if (found == m_objectsByNumber.end()) {
        return;
    }
    if (m_undoManager && (m_undoManager->canUndo() || m_undoManager->canRedo())) {
        // An undo action may still bring it back.
        m_graveyard.push_back(std::move(found->second));
    }
    m_objectsByNumber.erase(found);
}

bool ManagedObjectContext::save(std::string* error) {
    if (m_parent != nullptr) {
        return saveIntoParent(error);
    }
    if (!RunLoop::isMainThread()) {
        logMessage("%@: %@", kThreadFailBreadcrumb, kSaveInWrongThreadMessage);
        if (error != nullptr) {
            *error = kSaveInWrongThreadMessage;
        }
        return false;
    }
    processPendingChanges();
    StoreChanges changes;
    std::vector<ManagedObject*> vanished;
    auto collect = [&] {
        changes = StoreChanges();
        vanished.clear();
        for (ManagedObject* object : m_pendingObjects) {
            uint8_t flags = object->m_stateFlags;
            if ((flags & kDeleted) != 0) {
                ((flags & kInserted) != 0 ? vanished : changes.deleted).push_back(object);
            } else if ((flags & kInserted) != 0) {
                changes.inserted.push_back(object);
            } else if ((flags & kUpdated) != 0) {
                changes.updated.push_back(object);
            }
        }
        return !(changes.inserted.empty() && changes.updated.empty() && changes.deleted.empty() && vanished.empty());
    };
    if (!collect()) {
        if (m_store) {
            m_store->endWriting();
        }
        return true;
    }
    // Under the write lock, with what other writers saved merged in, the changes are
    // gathered again: a merge may have removed objects this save would have written.
    if (!beginWriting(error)) {
        return false;
    }
    processPendingChanges();
    if (!collect()) {
        m_store->endWriting();
        return true;
    }
    NotificationCenter::defaultCenter().postNotificationName(kContextWillSaveNotification, this);
    for (auto* list : {&changes.inserted, &changes.updated, &changes.deleted}) {
        for (ManagedObject* object : *list) {
            object->willSave();
        }
    }
    // willSave may change objects; those changes belong to this save.
    processPendingChanges();
    if (m_store) {
        std::string storeError;
        if (!m_store->saveChanges(changes, &storeError)) {
            logMessage("Save failed: %@", storeError);
            if (error != nullptr) {
                *error = storeError;
            }
            return false;
        }
    }
    std::vector<ManagedObject*> pending;
    pending.swap(m_pendingObjects);
    for (ManagedObject* object : pending) {
        object->m_stateFlags &= static_cast<uint8_t>(kDeleted);
        if (object->m_changes) {
            object->m_changes->committed.clear();
        }
    }
    Value::Dictionary userInfo;
    userInfo.emplace(kInsertedObjectsKey, objectArray(changes.inserted));
    userInfo.emplace(kUpdatedObjectsKey, objectArray(changes.updated));
    userInfo.emplace(kDeletedObjectsKey, objectArray(changes.deleted));
    NotificationCenter::defaultCenter().postNotificationName(kContextDidSaveNotification, this, std::move(userInfo));
    for (auto* list : {&changes.deleted, &vanished}) {
        for (ManagedObject* object : *list) {
            object->didSave();
            releaseObject(object);
        }
    }
    for (auto* list : {&changes.inserted, &changes.updated}) {
        for (ManagedObject* object : *list) {
            object->didSave();
        }
    }
    return true;
}

bool ManagedObjectContext::beginWriting(std::string* error) {
    if (m_parent != nullptr || !m_store) {
        return true;
    }
    std::string storeError;
    if (!m_store->beginWriting(*this, &storeError)) {
        logMessage("Could not begin writing: %@", storeError);
        if (error != nullptr) {
            *error = storeError;
        }
        return false;
    }
    return true;
}

void ManagedObjectContext::renumberInsertedObjects(int64_t largestInUse) {
    if (m_nextNumber <= largestInUse) {
        m_nextNumber = largestInUse + 1;
    }
    for (ManagedObject* object : m_pendingObjects) {
        if ((object->m_stateFlags & kInserted) == 0 || object->m_number > largestInUse) {
            continue;
        }
        auto node = m_objectsByNumber.extract(object->m_number);
        object->m_number = m_nextNumber.fetch_add(1);
        if (!node.empty()) {
            node.key() = object->m_number;
            m_objectsByNumber.insert(std::move(node));
        }
    }
}

ManagedObject* ManagedObjectContext::objectWithNumber(int64_t number) const {
    auto found = m_objectsByNumber.find(number);
    return found == m_objectsByNumber.end() ? nullptr : found->second.get();
}

void ManagedObjectContext::beginMerge() {
    m_isMerging = true;
    m_merge = MergeResult();
}

ManagedObject* ManagedObjectContext::mergeObject(const EntityDescription& entity, int64_t number) {
    if (ManagedObject* existing = objectWithNumber(number)) {
        if (!existing->isDeleted() && &existing->entity() == &entity &&
            std::find(m_merge.updated.begin(), m_merge.updated.end(), existing) == m_merge.updated.end() &&
            std::find(m_merge.inserted.begin(), m_merge.inserted.end(), existing) == m_merge.inserted.end()) {
            existing->fireFault();
            m_merge.updated.push_back(existing);
        }
        return existing->isDeleted() || &existing->entity() != &entity ? nullptr : existing;
    }
    std::unique_ptr<ManagedObject> owned = entity.newInstance();
    if (!owned) {
        return nullptr;
    }
    ManagedObject* object = owned.get();
    object->attach(entity, *this, number);
    m_objectsByNumber.emplace(number, std::move(owned));
    registerObject(*object);
    if (number >= m_nextNumber) {
        m_nextNumber = number + 1;
    }
    if (object->m_eventFlags == 0) {
        m_eventObjects.push_back(object);
    }
    object->m_eventFlags |= kInserted;
    requestProcessPendingChanges();
    m_merge.inserted.push_back(object);
    return object;
}

void ManagedObjectContext::mergeDeletion(ManagedObject& object) {
    object.fireFault();
    for (const RelationshipDescription* relationship : object.m_entity->relationships()) {
        if (relationship->isToMany) {
            if (!object.m_toMany[relationship->slot].empty()) {
                object.setRelationshipObjects(*relationship, {});
            }
        } else if (object.m_toOne[relationship->slot] != nullptr) {
            object.setToOneObject(*relationship, nullptr);
        }
    }
    if (!object.isDeleted()) {
        unregisterObject(object);
    }
    std::erase(m_pendingObjects, &object);
    object.m_stateFlags = kDeleted;
    if (object.m_eventFlags == 0) {
        m_eventObjects.push_back(&object);
    }
    object.m_eventFlags = kDeleted;
    requestProcessPendingChanges();
    m_merge.deleted.push_back(&object);
    // Kept, not freed: the event list and undo actions may still point at it.
    auto found = m_objectsByNumber.find(object.m_number);
    if (found != m_objectsByNumber.end()) {
        m_graveyard.push_back(std::move(found->second));
        m_objectsByNumber.erase(found);
    }
}

ManagedObjectContext::MergeResult ManagedObjectContext::endMerge() {
    m_isMerging = false;
    ++m_mergeCount;
    MergeResult result = std::move(m_merge);
    m_merge = MergeResult();
    for (ManagedObject* object : result.inserted) {
        object->awakeFromFetch();
    }
    for (ManagedObject* object : result.updated) {
        object->holdfastResetCacheValues();
        object->awakeFromSnapshotEvents(kSnapshotEventRefresh);
    }
    return result;
}

// Child contexts: copies of the parent's objects, made on first use.

ManagedObject* ManagedObjectContext::childObjectForParentObject(ManagedObject& parentObject) {
    auto found = m_objectsByNumber.find(parentObject.m_number);
    if (found != m_objectsByNumber.end()) {
        return found->second.get();
    }
    std::unique_ptr<ManagedObject> owned = parentObject.m_entity->newInstance();
    if (!owned) {
        return nullptr;
    }
    ManagedObject* object = owned.get();
    object->attach(*parentObject.m_entity, *this, parentObject.m_number);
    object->m_isFault = true;
    m_objectsByNumber.emplace(object->m_number, std::move(owned));
    auto& list = m_objectsByEntity[object->m_entity->index()];
    object->m_entityPosition = static_cast<uint32_t>(list.size());
    list.push_back(object);
    return object;
}

void ManagedObjectContext::fulfillFault(ManagedObject& object) {
    m_parent->performBlockAndWait([&] {
        auto found = m_parent->m_objectsByNumber.find(object.m_number);
        if (found == m_parent->m_objectsByNumber.end()) {
            return;
        }
        ManagedObject& source = *found->second;
        source.fireFault();
        object.m_values = source.m_values;
        // Values still waiting in the store are read from there by the copy itself, so a
        // background reader never pulls large bytes into the main context.
        object.m_dataFaults = source.m_dataFaults;
        for (size_t i = 0; i < source.m_toOne.size(); ++i) {
            ManagedObject* target = source.m_toOne[i];
            object.m_toOne[i] =
                target != nullptr && !target->isDeleted() ? childObjectForParentObject(*target) : nullptr;
        }
        for (size_t i = 0; i < source.m_toMany.size(); ++i) {
            auto& targets = object.m_toMany[i];
            targets.clear();
            for (ManagedObject* target : source.m_toMany[i]) {
                if (!target->isDeleted()) {
                    if (ManagedObject* copy = childObjectForParentObject(*target)) {
                        targets.push_back(copy);
                    }
                }
            }
        }
    });
    if (const AttributeDescription* uid = object.m_entity->uidAttribute()) {
        if (const std::string* text = object.m_values[uid->slot].string()) {
            indexUid(object, *text);
        }
    }
    object.awakeFromFetch();
}

bool ManagedObjectContext::saveIntoParent(std::string* error) {
    (void)error;
    processPendingChanges();
    std::vector<ManagedObject*> pending;
    pending.swap(m_pendingObjects);
    m_parent->performBlockAndWait([&] {
        ManagedObjectContext& parent = *m_parent;
        bool restoreUndo = parent.m_undoManager && parent.m_undoManager->isUndoRegistrationEnabled();
        // Work done in the background is not the user's to undo step by step.
        if (restoreUndo) {
            parent.m_undoManager->disableUndoRegistration();
        }
        auto counterpart = [&parent](ManagedObject* object) -> ManagedObject* {
            if (object == nullptr) {
                return nullptr;
            }
            auto found = parent.m_objectsByNumber.find(object->m_number);
            return found == parent.m_objectsByNumber.end() ? nullptr : found->second.get();
        };
        for (ManagedObject* object : pending) {
            if (object->isInserted() && counterpart(object) == nullptr) {
                std::unique_ptr<ManagedObject> owned = object->m_entity->newInstance();
                ManagedObject* copy = owned.get();
                copy->attach(*object->m_entity, parent, object->m_number);
                parent.m_objectsByNumber.emplace(copy->m_number, std::move(owned));
                parent.registerObject(*copy);
                parent.noteObjectFlag(*copy, kInserted);
            }
        }
        for (ManagedObject* object : pending) {
            ManagedObject* copy = counterpart(object);
            if (copy == nullptr || object->isDeleted()) {
                continue;
            }
            std::vector<std::string> keys;
            if (object->isInserted()) {
                keys = object->m_entity->attributeNames();
                for (const std::string& name : object->m_entity->relationshipNames()) {
                    keys.push_back(name);
                }
            } else if (object->m_changes) {
                for (const auto& [key, value] : object->m_changes->committed) {
                    keys.push_back(key);
                }
            }
            for (const std::string& key : keys) {
                if (const AttributeDescription* attribute = object->m_entity->attributeNamed(key)) {
                    copy->setValueWithNotices(*attribute, object->primitiveValue(*attribute));
                } else if (const RelationshipDescription* relationship = object->m_entity->relationshipNamed(key)) {
                    std::vector<ManagedObject*> targets;
                    if (relationship->isToMany) {
                        for (ManagedObject* target : object->m_toMany[relationship->slot]) {
                            if (ManagedObject* mapped = counterpart(target)) {
                                targets.push_back(mapped);
                            }
                        }
                    } else if (ManagedObject* mapped = counterpart(object->m_toOne[relationship->slot])) {
                        targets.push_back(mapped);
                    }
                    copy->setRelationshipObjects(*relationship, targets);
                }
            }
        }
        for (ManagedObject* object : pending) {
            if (object->isDeleted()) {
                if (ManagedObject* copy = counterpart(object); copy != nullptr && !copy->isDeleted()) {
                    parent.deleteWithRules(*copy);
                }
            }
        }
        if (restoreUndo) {
            parent.m_undoManager->enableUndoRegistration();
        }
    });
    for (ManagedObject* object : pending) {
        bool deleted = object->isDeleted();
        object->m_stateFlags = 0;
        if (object->m_changes) {
            object->m_changes->committed.clear();
        }
        if (deleted) {
            object->m_stateFlags = kDeleted;
            releaseObject(object);
        }
    }
    return true;
}

// Fetching.

std::optional<std::vector<ManagedObject*>> ManagedObjectContext::executeFetchRequest(const FetchRequest& request,
                                                                                     std::string* error) {
    if (m_parent == nullptr && !RunLoop::isMainThread()) {
        logMessage("%@: %@", kThreadFailSavedBreadcrumb,
                   formatMessage(kRequestInWrongThreadMessage, currentThreadDescription()));
        std::optional<std::vector<ManagedObject*>> result;
        std::string reason;
        dispatchSyncToMain([&] { result = fetchHere(request, &reason); });
        if (!result && error != nullptr) {
            *error = reason;
        }
        return result;
    }
    return fetchHere(request, error);
}

std::optional<size_t> ManagedObjectContext::countForFetchRequest(const FetchRequest& request, std::string* error) {
    FetchRequest unsorted = request;
    unsorted.setSortDescriptors({});
    auto objects = executeFetchRequest(unsorted, error);
    if (!objects) {
        return std::nullopt;
    }
    return objects->size();
}

std::optional<std::vector<ManagedObject*>> ManagedObjectContext::fetchHere(const FetchRequest& request,
                                                                           std::string* error) {
    const EntityDescription* entity = m_model.entityNamed(request.entityName());
    if (entity == nullptr) {
        std::string reason = "executeFetchRequest: no entity named " + request.entityName();
        logMessage("%@", reason);
        if (error != nullptr) {
            *error = reason;
        }
        return std::nullopt;
    }
    if (m_parent != nullptr) {
        // Every object of the entity as the parent has it now; known ones keep their
        // state here.
        FetchRequest all(request.entityName());
        all.setIncludesSubentities(request.includesSubentities());
        m_parent->performBlockAndWait([&] {
            auto objects = m_parent->fetchHere(all, nullptr);
            for (ManagedObject* object : objects.value_or(std::vector<ManagedObject*>{})) {
                childObjectForParentObject(*object);
            }
        });
    }
    std::vector<ManagedObject*> result;
    auto matches = [&](ManagedObject* object) {
        if (object->isDeleted()) {
            return false;
        }
        if (request.includesSubentities() ? !object->m_entity->isKindOfEntity(*entity) : object->m_entity != entity) {
            return false;
        }
        return !request.predicate() || request.predicate()->evaluate(Value(static_cast<Object*>(object)));
    };
    const bool limitEarly = request.sortDescriptors().empty() && request.fetchLimit() != 0;
    if (request.uidEquals() && m_parent == nullptr) {
        const std::string& uid = *request.uidEquals();
        m_uidIndex.forEach(uidHash(uid), [&](ManagedObject* object) {
            if (hasUid(*object, uid) && matches(object)) {
                result.push_back(object);
            }
            return true;
        });
    } else {
        const auto& entities = request.includesSubentities() ? entity->selfAndDescendants()
                                                             : std::vector<const EntityDescription*>{entity};
        for (const EntityDescription* candidate : entities) {
            for (ManagedObject* object : m_objectsByEntity[candidate->index()]) {
                object->fireFault();
                if (matches(object)) {
                    result.push_back(object);
                    if (limitEarly && result.size() == request.fetchLimit()) {
                        return result;
                    }
                }
            }
        }
    }
    if (!request.sortDescriptors().empty()) {
        std::vector<Object*> objects(result.begin(), result.end());
        sortObjects(objects, request.sortDescriptors());
        for (size_t i = 0; i < objects.size(); ++i) {
            result[i] = static_cast<ManagedObject*>(objects[i]);
        }
    }
    if (request.fetchLimit() != 0 && result.size() > request.fetchLimit()) {
        result.resize(request.fetchLimit());
    }
    return result;
}

ManagedObject* ManagedObjectContext::objectWithUid(const EntityDescription& entity, std::string_view uid) const {
    ManagedObject* indexed = nullptr;
    m_uidIndex.forEach(uidHash(uid), [&](ManagedObject* object) {
        if (hasUid(*object, uid) && !object->isDeleted() && object->m_entity->isKindOfEntity(entity)) {
            indexed = object;
        }
        return indexed == nullptr;
    });
    if (indexed != nullptr) {
        return indexed;
    }
    if (m_parent != nullptr) {
        // Not yet copied here: ask the parent and bring the object over.
        ManagedObject* found = nullptr;
        auto* self = const_cast<ManagedObjectContext*>(this);
        m_parent->performBlockAndWait([&] {
            if (ManagedObject* parentObject = m_parent->objectWithUid(entity, uid)) {
                found = self->childObjectForParentObject(*parentObject);
            }
        });
        if (found != nullptr) {
            found->fireFault();
            if (found->isDeleted() || found->primitiveValueForKey("uid") != Value(uid)) {
                return nullptr;
            }
        }
        return found;
    }
    return nullptr;
}

ManagedObject* ManagedObjectContext::objectWithID(const ObjectID& objectID) {
    auto found = m_objectsByNumber.find(objectID.number);
    if (found != m_objectsByNumber.end()) {
        ManagedObject* object = found->second.get();
        return objectID.entity == nullptr || object->m_entity->name() == objectID.entity->name() ? object : nullptr;
    }
    if (m_parent != nullptr) {
        ManagedObject* result = nullptr;
        m_parent->performBlockAndWait([&] {
            if (ManagedObject* parentObject = m_parent->objectWithID(objectID)) {
                result = childObjectForParentObject(*parentObject);
            }
        });
        return result;
    }
    return nullptr;
}

ManagedObject* ManagedObjectContext::objectForURIString(std::string_view uri) {
    constexpr std::string_view scheme = "x-coredata://";
    if (uri.substr(0, scheme.size()) != scheme) {
        return nullptr;
    }
    uri.remove_prefix(scheme.size());
    size_t slash = uri.find('/');
    if (slash == std::string_view::npos || uri.substr(0, slash) != m_storeIdentifier) {
        return nullptr;
    }
    uri.remove_prefix(slash + 1);
    slash = uri.find('/');
    if (slash == std::string_view::npos || slash + 2 >= uri.size() || uri[slash + 1] != 'p') {
        return nullptr;
    }
    const EntityDescription* entity = m_model.entityNamed(uri.substr(0, slash));
    std::string_view digits = uri.substr(slash + 2);
    int64_t number = 0;
    auto [end, status] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (entity == nullptr || status != std::errc() || end != digits.data() + digits.size()) {
        return nullptr;
    }
    ManagedObject* object = objectWithID({entity, number});
    return object != nullptr && !object->isDeleted() ? object : nullptr;
}

std::vector<ManagedObject*> ManagedObjectContext::objectsForURIStrings(const std::vector<std::string>& uris) {
    std::vector<ManagedObject*> objects;
    for (const std::string& uri : uris) {
        if (ManagedObject* object = objectForURIString(uri)) {
            objects.push_back(object);
        }
    }
    return objects;
}

// Observers.

void ManagedObjectContext::notifyObservers(ManagedObject& object, std::string_view key) {
    auto found = m_observers.find(&object);
    if (found == m_observers.end()) {
        return;
    }
    // A copy: observers may add or remove observers while being told.
    std::vector<ObserverEntry> entries = found->second;
    const std::vector<std::string>* affected = object.m_entity->keysAffectedBy(key);
    for (const ObserverEntry& entry : entries) {
        if (entry.key == key) {
            entry.observer(object, key);
        }
    }
    if (affected == nullptr) {
        return;
    }
    for (const std::string& dependent : *affected) {
        for (const ObserverEntry& entry : entries) {
            if (entry.key == dependent) {
                entry.observer(object, dependent);
            }
        }
    }
}

// Loading.

void ManagedObjectContext::reserveObjects(size_t count) {
    m_objectsByNumber.reserve(m_objectsByNumber.size() + count);
    m_uidIndex.reserve(m_uidIndex.size() + count);
    m_loadedObjects.reserve(m_loadedObjects.size() + count);
}

void ManagedObjectContext::reserveObjects(const EntityDescription& entity, size_t count) {
    auto& list = m_objectsByEntity[entity.index()];
    list.reserve(list.size() + count);
}

ManagedObject* ManagedObjectContext::registerLoadedObject(const EntityDescription& entity, int64_t number) {
    // One lookup for the check and the insertion; the empty slot goes if no object fills it.
    auto [slot, inserted] = m_objectsByNumber.try_emplace(number);
    if (!inserted) {
        logMessage("registerLoadedObject: object number %ld loaded twice", number);
        return nullptr;
    }
    slot->second = entity.newInstance();
    if (!slot->second) {
        m_objectsByNumber.erase(slot);
        logMessage("registerLoadedObject: entity %@ is abstract", entity.name());
        return nullptr;
    }
    ManagedObject* object = slot->second.get();
    object->attach(entity, *this, number);
    registerObject(*object);
    m_loadedObjects.push_back(object);
    if (number >= m_nextNumber) {
        m_nextNumber = number + 1;
    }
    return object;
}

size_t ManagedObjectContext::turnDataIntoFaults(ManagedObject* object) {
    // Only the main context knows that an unchanged value equals the stored one: a child's
    // values may come from its parent's unsaved changes.
    if (object == nullptr || object->m_context != this || m_parent != nullptr || !m_store || object->isInserted() ||
        object->isDeleted()) {
        return 0;
    }
    object->fireFault();
    size_t dropped = 0;
    for (const AttributeDescription* attribute : object->m_entity->attributes()) {
        if (attribute->type != AttributeType::Data || attribute->isTransient || attribute->slot >= 64 ||
            object->m_values[attribute->slot].isNull()) {
            continue;
        }
        if (object->m_changes && (object->m_changes->committed.count(attribute->name) != 0 ||
                                  object->m_changes->event.count(attribute->name) != 0)) {
            continue;
        }
        object->m_values[attribute->slot] = Value();
        object->m_dataFaults |= uint64_t{1} << attribute->slot;
        ++dropped;
    }
    return dropped;
}

bool ManagedObjectContext::setLoadedDataFault(ManagedObject& object, const AttributeDescription& attribute) {
    if (attribute.type != AttributeType::Data || attribute.slot >= 64 || m_parent != nullptr) {
        return false;
    }
    object.m_values[attribute.slot] = Value();
    object.m_dataFaults |= uint64_t{1} << attribute.slot;
    return true;
}

void ManagedObjectContext::setLoadedValue(ManagedObject& object, const AttributeDescription& attribute, Value value) {
    if (attribute.slot < 64) {
        object.m_dataFaults &= ~(uint64_t{1} << attribute.slot);
    }
    if (&attribute == object.m_entity->uidAttribute()) {
        uidChanged(object, object.m_values[attribute.slot], value);
    }
    object.m_values[attribute.slot] = std::move(value);
}

void ManagedObjectContext::setLoadedRelationship(ManagedObject& object, const RelationshipDescription& relationship,
                                                 const std::vector<ManagedObject*>& targets) {
    if (relationship.isToMany) {
        object.m_toMany[relationship.slot] = targets;
    } else {
        object.m_toOne[relationship.slot] = targets.empty() ? nullptr : targets.front();
    }
}

void ManagedObjectContext::finishLoading() {
    std::vector<ManagedObject*> loaded;
    loaded.swap(m_loadedObjects);
    for (ManagedObject* object : loaded) {
        object->awakeFromFetch();
    }
}

}  // namespace brassline
