#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace brassline {

class BLBase;
class ManagedObjectContext;

// A set of objects whose caches are due for renewal: added objects are refreshed together
// on the next run-loop turn, each with undo registration suspended. Main thread only:
// calls from other threads are dropped with a log line. Holds objects borrowed from their
// contexts, so a context going away must be forgotten first.
class BLCacheInvalidator {
public:
    static BLCacheInvalidator& sharedInvalidator();
    // Empties both shared invalidators (this one and the custom field one) without
    // refreshing; tests call it around a fresh run loop.
    static void resetSharedForTesting();

    BLCacheInvalidator() = default;
    virtual ~BLCacheInvalidator();
    BLCacheInvalidator(const BLCacheInvalidator&) = delete;
    BLCacheInvalidator& operator=(const BLCacheInvalidator&) = delete;

    // Adding an object already due does nothing; null is ignored.
    void addObject(BLBase* object);
    // Renews the caches of the due objects (updateCaches) and starts a new, empty set.
    virtual void refreshObjects();
    // Drops the due objects of `context` unrefreshed (the document is closing).
    void forgetContext(const ManagedObjectContext& context);
    const std::vector<BLBase*>& invalidItems() const { return m_items; }

protected:
    // The due objects, leaving the set empty; objects deleted meanwhile are left out.
    std::vector<BLBase*> takeInvalidItems();
    void clear();

private:
    std::vector<BLBase*> m_items;  // In the order added, so refreshes are reproducible.
    std::unordered_set<const BLBase*> m_members;
    uint64_t m_request = 0;
};

}  // namespace brassline
