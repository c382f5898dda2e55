#include "lifecycle/SubstitutionCache.h"

#include "model/ManagedObjectContext.h"
#include "model/entities/BLSendable.h"

namespace brassline {

BLSubstitutionCache& BLSubstitutionCache::sharedCache() {
    static BLSubstitutionCache cache;
    return cache;
}

void BLSubstitutionCache::resetForTesting() {
    BLSubstitutionCache& cache = sharedCache();
    for (const auto& [uid, entry] : cache.m_cache) {
        RunLoop::main().cancel(entry.expiry);
    }
    cache.m_cache.clear();
}

std::optional<SubstitutionDictionary> BLSubstitutionCache::substitionsForDocument(const BLSendable& document) const {
    std::optional<std::string> uid = document.uid();
    if (!uid) {
        return std::nullopt;
    }
    auto found = m_cache.find(*uid);
    if (found == m_cache.end()) {
        return std::nullopt;
    }
    std::shared_ptr<ManagedObjectContext*> context = found->second.context.lock();
    if (!context || *context != document.managedObjectContext()) {
        return std::nullopt;
    }
    return found->second.dictionary;
}

void BLSubstitutionCache::setSubstitions(const SubstitutionDictionary& dictionary, const BLSendable& document) {
    std::optional<std::string> uid = document.uid();
    if (!uid || document.managedObjectContext() == nullptr) {
        return;
    }
    // A rebuilt entry lives its own 50 ms: the removal armed for the previous one would
    // otherwise cut it short.
    auto found = m_cache.find(*uid);
    if (found != m_cache.end()) {
        RunLoop::main().cancel(found->second.expiry);
    }
    RunLoop::TimerId expiry =
        RunLoop::main().performAfterDelay(kExpirySeconds, [key = *uid]() { sharedCache().m_cache.erase(key); });
    m_cache.insert_or_assign(*uid, Entry{dictionary, document.managedObjectContext()->livenessToken(), expiry});
}

}  // namespace brassline
