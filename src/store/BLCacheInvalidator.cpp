#include "store/BLCacheInvalidator.h"

#include "core/Log.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/entities/BLBase.h"
#include "store/BLCustomFieldInvalidator.h"
#include "store/UndoSuspension.h"

namespace brassline {

BLCacheInvalidator& BLCacheInvalidator::sharedInvalidator() {
    static BLCacheInvalidator invalidator;
    return invalidator;
}

void BLCacheInvalidator::resetSharedForTesting() {
    BLCacheInvalidator::sharedInvalidator().clear();
    BLCustomFieldInvalidator::sharedInvalidator().clear();
}

BLCacheInvalidator::~BLCacheInvalidator() {
    clear();
}

void BLCacheInvalidator::clear() {
    if (m_request != 0) {
        RunLoop::main().cancel(m_request);
        m_request = 0;
    }
    m_items.clear();
    m_members.clear();
}

void BLCacheInvalidator::addObject(BLBase* object) {
    if (object == nullptr) {
        return;
    }
    // The set is not locked: a caller off the main thread is dropped, not queued.
    if (!RunLoop::isMainThread()) {
        logMessage("Cache invalidation requested off the main thread for %@; dropped.", object->entityName());
        return;
    }
    if (!m_members.insert(object).second) {
        return;
    }
    m_items.push_back(object);
    // One pending request serves every object added before it runs.
    if (m_request == 0) {
        m_request = RunLoop::main().performAfterDelay(0.0, [this] {
            m_request = 0;
            refreshObjects();
        });
    }
}

std::vector<BLBase*> BLCacheInvalidator::takeInvalidItems() {
    std::vector<BLBase*> items;
    items.swap(m_items);
    m_members.clear();
    std::erase_if(
        items, [](const BLBase* object) { return object->isDeleted() || object->managedObjectContext() == nullptr; });
    return items;
}

void BLCacheInvalidator::refreshObjects() {
    // Taken first: an updateCaches that makes further objects due starts the next set.
    for (BLBase* object : takeInvalidItems()) {
        UndoSuspension suspension(object->managedObjectContext());
        object->updateCaches();
    }
}

void BLCacheInvalidator::forgetContext(const ManagedObjectContext& context) {
    std::erase_if(m_items, [&](const BLBase* object) {
        if (object->managedObjectContext() != &context) {
            return false;
        }
        m_members.erase(object);
        return true;
    });
}

}  // namespace brassline
