#pragma once

namespace brassline {

// The process-wide flag that is up while objects are cloned at the root, converted, or
// merged from other devices: setters then store and derive nothing. Writes are locked.
class BLSyncHelper {
public:
    static bool isSyncing();
    static void setIsSyncing(bool syncing);
};

// Raises the flag for a scope and restores the previous state.
class SyncingScope {
public:
    SyncingScope() : m_previous(BLSyncHelper::isSyncing()) { BLSyncHelper::setIsSyncing(true); }
    ~SyncingScope() { BLSyncHelper::setIsSyncing(m_previous); }
    SyncingScope(const SyncingScope&) = delete;
    SyncingScope& operator=(const SyncingScope&) = delete;

private:
    bool m_previous;
};

}  // namespace brassline
