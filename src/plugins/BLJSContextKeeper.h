#pragma once

#include <memory>
#include <mutex>
#include <vector>

namespace brassline {

class BLJSContext;

// Keeps the script contexts that must outlive the call which started them (a download
// that finishes later, a plug-in that waits for an answer). Any thread; the set is locked.
class BLJSContextKeeper {
public:
    static BLJSContextKeeper& sharedKeeper();

    // Takes the context over and answers it, to be handed back by removeContext.
    BLJSContext* addContext(std::unique_ptr<BLJSContext> context);
    // Hands the context back to the caller (null if the keeper does not hold it).
    std::unique_ptr<BLJSContext> removeContext(BLJSContext* context);
    bool containsContext(const BLJSContext* context) const;
    size_t count() const;

private:
    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<BLJSContext>> m_contexts;
};

}  // namespace brassline
