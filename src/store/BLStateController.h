#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/Value.h"
#include "store/ObservationHooks.h"

namespace brassline {

class ManagedObject;
class ManagedObjectContext;
class SerialQueue;
class UserDefaults;

// One per document: keeps the figures of issued invoices (recurring, due now, open, due,
// overdue), the dock-tile records in user defaults and the overview badge as data. A
// refresh fetches on the serial queue "OVERVIEW" in a child context of its own and hands
// plain figures back to the main thread; a refresh requested while one runs runs again
// 1.0 seconds later instead of alongside. Main thread, apart from that fetch.
class BLStateController {
public:
    // What the last refresh counted.
    struct Figures {
        size_t issued = 0;
        size_t recurring = 0;
        size_t recurringNow = 0;
        size_t open = 0;
        size_t due = 0;
        size_t overdue = 0;
        bool operator==(const Figures&) const = default;
    };

    BLStateController();
    ~BLStateController();  // Detaches.
    BLStateController(const BLStateController&) = delete;
    BLStateController& operator=(const BLStateController&) = delete;

    // Attaches to an open document: its main context (with its undo manager), the user
    // defaults that hold the dock-tile records, the document's identifier naming them and
    // its file path. Listens for the notices that ask for a refresh.
    void attach(ManagedObjectContext& context, UserDefaults& defaults, std::string documentIdentifier,
                std::string filePath);
    // The document is closing: drops pending work and waits, driving the main run loop,
    // for a refresh already on the queue. Must come before the context goes.
    void detach();
    bool isAttached() const { return m_context != nullptr; }

    // Refreshes the figures; skipped without a document or off the main thread.
    void update();
    // Stores {"open", "recurring", "overDueInterval", "filePath"} under
    // "DockTileInfo.<identifier>", or removes that entry while "dockTile.hide" is on.
    void writeDockTilePreferences(const Value::Array& open, const Value::Array& recurring);
    // Followed from the undo manager's outermost group and replays.
    void openUndo();
    void closeUndo();

    // The invoices shown: ignored during undo, applied 1.0 seconds after the last call.
    // Going from none to some asks for a refresh.
    void setContent(std::vector<ManagedObject*> invoices);
    // Bound values of the shown invoices: setting either asks for a refresh.
    void setBalances(Value::Array balances);
    void setCompleteModes(Value::Array completeModes);

    const std::vector<ManagedObject*>& invoices() const { return m_invoices; }
    const Value::Array& balances() const { return m_balances; }
    const Value::Array& completeModes() const { return m_completeModes; }
    const Value::Array& recurringNows() const { return m_recurringNows; }
    const std::string& overviewBadgeLabel() const { return m_badge.label; }
    BadgeColor overviewBadgeColor() const { return m_badge.color; }
    const OverviewBadge& overviewBadge() const { return m_badge; }
    const Figures& figures() const { return m_figures; }
    bool inUndo() const { return m_inUndo; }
    bool running() const { return m_running; }
    // Refreshes started on the queue since attaching.
    uint64_t refreshCount() const { return m_refreshCount; }

private:
    struct Result;
    void finishUpdate(const Result& result);
    void requestRerun();
    void cancelTimers();

    ManagedObjectContext* m_context = nullptr;
    UserDefaults* m_defaults = nullptr;
    std::string m_identifier;
    std::string m_filePath;
    Value m_overdueInterval;  // Read on the main thread for the queue's records.

    std::unique_ptr<SerialQueue> m_queue;
    std::unique_ptr<ManagedObjectContext> m_child;
    std::shared_ptr<bool> m_alive;          // Closures from the queue check it before touching this.
    std::atomic<int> m_queuedRefreshes{0};  // Queued or running on the queue.

    std::vector<uint64_t> m_notificationTokens;
    uint64_t m_undoObserver = 0;
    uint64_t m_rerunRequest = 0;
    uint64_t m_contentRequest = 0;
    std::vector<ManagedObject*> m_pendingContent;

    std::vector<ManagedObject*> m_invoices;
    Value::Array m_balances;
    Value::Array m_completeModes;
    Value::Array m_recurringNows;
    OverviewBadge m_badge;
    Figures m_figures;
    bool m_inUndo = false;
    bool m_running = false;
    uint64_t m_refreshCount = 0;
};

}  // namespace brassline
