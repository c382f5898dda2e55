#include "model/BLSyncHelper.h"

#include <atomic>
#include <mutex>

namespace brassline {

namespace {
std::atomic<bool> g_isSyncing{false};
std::mutex g_writeLock;
}  // namespace

bool BLSyncHelper::isSyncing() {
    return g_isSyncing.load(std::memory_order_acquire);
}

void BLSyncHelper::setIsSyncing(bool syncing) {
    std::lock_guard lock(g_writeLock);
    g_isSyncing.store(syncing, std::memory_order_release);
}

}  // namespace brassline
