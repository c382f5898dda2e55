#include "plugins/BLJSContextKeeper.h"

#include <algorithm>

#include "plugins/BLJSContext.h"

namespace brassline {

BLJSContextKeeper& BLJSContextKeeper::sharedKeeper() {
    static BLJSContextKeeper keeper;
    return keeper;
}

BLJSContext* BLJSContextKeeper::addContext(std::unique_ptr<BLJSContext> context) {
    BLJSContext* kept = context.get();
    if (kept != nullptr) {
        std::lock_guard lock(m_mutex);
        m_contexts.push_back(std::move(context));
    }
    return kept;
}

std::unique_ptr<BLJSContext> BLJSContextKeeper::removeContext(BLJSContext* context) {
    std::lock_guard lock(m_mutex);
    auto found = std::find_if(m_contexts.begin(), m_contexts.end(),
                              [context](const std::unique_ptr<BLJSContext>& kept) { return kept.get() == context; });
    if (found == m_contexts.end()) {
        return nullptr;
    }
    std::unique_ptr<BLJSContext> result = std::move(*found);
    m_contexts.erase(found);
    return result;
}

bool BLJSContextKeeper::containsContext(const BLJSContext* context) const {
    std::lock_guard lock(m_mutex);
    return std::any_of(m_contexts.begin(), m_contexts.end(),
                       [context](const std::unique_ptr<BLJSContext>& kept) { return kept.get() == context; });
}

size_t BLJSContextKeeper::count() const {
    std::lock_guard lock(m_mutex);
    return m_contexts.size();
}

}  // namespace brassline
