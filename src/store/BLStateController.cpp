#include "store/BLStateController.h"

#include <utility>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPreference.h"
#include "store/BLUserDefaults.h"
#include "store/ObservationNames.h"

namespace brassline {

namespace {

constexpr double kRerunDelaySeconds = 1.0;
constexpr double kContentDebounceSeconds = 1.0;
constexpr double kDetachWaitSeconds = 30.0;

bool invoiceFlag(const std::function<bool(const BLInvoice&)>& hook, const BLInvoice& invoice, std::string_view key) {
    return hook ? hook(invoice) : invoice.valueForKey(key).toBool();
}

Value optionalDate(const std::optional<Date>& date) {
    return date ? Value(*date) : Value();
}

}  // namespace

// Plain values only: the objects of the child context stay on its queue.
struct BLStateController::Result {
    Figures figures;
    Value::Array open;
    Value::Array recurring;
    Value::Array recurringNows;
};

BLStateController::BLStateController() = default;

BLStateController::~BLStateController() {
    detach();
}

void BLStateController::attach(ManagedObjectContext& context, UserDefaults& defaults, std::string documentIdentifier,
                               std::string filePath) {
    detach();
    m_context = &context;
    m_defaults = &defaults;
    m_identifier = std::move(documentIdentifier);
    m_filePath = std::move(filePath);
    m_alive = std::make_shared<bool>(true);
    m_queue = std::make_unique<SerialQueue>(kOverviewQueueName);
    m_refreshCount = 0;

    auto onRefreshNotice = [this](const Notification& notification) {
        // The data observers of all open documents post under the same names; the
        // context in the user info says whose it is.
        auto it = notification.userInfo.find(kContextKey);
        if (it != notification.userInfo.end() && it->second.object() != nullptr &&
            it->second.object() != static_cast<Object*>(m_context)) {
            return;
        }
        update();
    };
    for (const char* name : {kUpdateStateControllerNotification, kDocumentSentNotification, kPayNotification,
                             kUpdateNotificationsNotification}) {
        m_notificationTokens.push_back(NotificationCenter::defaultCenter().addObserver(name, nullptr, onRefreshNotice));
    }
    if (UndoManager* undo = context.undoManager()) {
        m_undoObserver = undo->addGroupObserver([this](bool isOpen) {
            if (isOpen) {
                openUndo();
            } else {
                closeUndo();
            }
        });
    }
}

void BLStateController::detach() {
    if (m_context == nullptr) {
        return;
    }
    for (uint64_t token : m_notificationTokens) {
        NotificationCenter::defaultCenter().removeObserver(token);
    }
    m_notificationTokens.clear();
    if (UndoManager* undo = m_context->undoManager(); undo != nullptr && m_undoObserver != 0) {
        undo->removeGroupObserver(m_undoObserver);
    }
    m_undoObserver = 0;
    cancelTimers();
    *m_alive = false;
    // A refresh on the queue may wait for the main thread to copy objects into its child
    // context; joining the queue without driving the loop would wait for ever.
    if (m_queuedRefreshes.load() > 0 && RunLoop::isMainThread()) {
        if (!RunLoop::main().runUntil([this] { return m_queuedRefreshes.load() == 0; }, kDetachWaitSeconds)) {
            logMessage("State controller: the overview refresh did not finish while closing.");
        }
    }
    m_queue.reset();
    m_child.reset();
    m_context = nullptr;
    m_defaults = nullptr;
    m_running = false;
    m_inUndo = false;
    m_pendingContent.clear();
    m_invoices.clear();
}

void BLStateController::cancelTimers() {
    if (m_rerunRequest != 0) {
        RunLoop::main().cancel(m_rerunRequest);
        m_rerunRequest = 0;
    }
    if (m_contentRequest != 0) {
        RunLoop::main().cancel(m_contentRequest);
        m_contentRequest = 0;
    }
}

void BLStateController::requestRerun() {
    if (m_rerunRequest != 0) {
        return;
    }
    m_rerunRequest = RunLoop::main().performAfterDelay(kRerunDelaySeconds, [this] {
        m_rerunRequest = 0;
        update();
    });
}

void BLStateController::update() {
    if (m_context == nullptr) {
        return;
    }
    if (!RunLoop::isMainThread()) {
        logMessage("State controller update called off the main thread; skipped.");
        return;
    }
    if (m_running) {
        requestRerun();
        return;
    }
    m_running = true;
    ++m_queuedRefreshes;
    ++m_refreshCount;
    // Preferences go through the document's controller, which belongs to the main thread.
    m_overdueInterval = BLPreference::preferenceValue(*m_context, kOverdueIntervalPreference);
    m_child = std::make_unique<ManagedObjectContext>(*m_context, "OVERVIEW.child");
    ManagedObjectContext* child = m_child.get();
    std::shared_ptr<bool> alive = m_alive;
    m_queue->async([this, child, alive] {
        auto result = std::make_shared<Result>();
        child->performBlockAndWait([&] {
            FetchRequest request("Invoice");
            std::string error;
            if (!request.setPredicateFormat("dateSent != nil", {}, &error)) {
                logMessage("State controller: %@", error);
                return;
            }
            std::optional<std::vector<ManagedObject*>> fetched = child->executeFetchRequest(request, &error);
            if (!fetched) {
                logMessage("State controller fetch failed: %@", error);
                return;
            }
            const ObservationHooks& hooks = observationHooks();
            for (ManagedObject* object : *fetched) {
                auto* invoice = dynamic_cast<BLInvoice*>(object);
                if (invoice == nullptr) {
                    continue;
                }
                ++result->figures.issued;
                const std::string uid = invoice->uid().value_or("");
                if (invoice->recurringValue()) {
                    ++result->figures.recurring;
                    bool now = invoiceFlag(hooks.recurringNow, *invoice, "recurringNow");
                    if (now) {
                        ++result->figures.recurringNow;
                    }
                    result->recurringNows.emplace_back(now);
                    result->recurring.emplace_back(
                        Value::Dictionary{{"uid", Value(uid)}, {"recurringNow", Value(now)}});
                }
                if (!invoiceFlag(hooks.balanced, *invoice, "balanced") && invoice->completeModeValue() == 0) {
                    ++result->figures.open;
                    bool due = invoiceFlag(hooks.isDue, *invoice, "isDue");
                    bool overdue = invoiceFlag(hooks.isOverDue, *invoice, "isOverDue");
                    result->figures.due += due ? 1 : 0;
                    result->figures.overdue += overdue ? 1 : 0;
                    result->open.emplace_back(Value::Dictionary{{"uid", Value(uid)},
                                                                {"dateDue", optionalDate(invoice->dateDue())},
                                                                {"isDue", Value(due)},
                                                                {"isOverDue", Value(overdue)}});
                }
            }
        });
        writeDockTilePreferences(result->open, result->recurring);
        // Counted down before the hand-over: the post is what wakes a detach waiting on
        // the main loop for this count, and nothing of this object is touched after it.
        --m_queuedRefreshes;
        dispatchAsyncToMain([this, alive, result] {
            if (*alive) {
                finishUpdate(*result);
            }
        });
    });
}

void BLStateController::writeDockTilePreferences(const Value::Array& open, const Value::Array& recurring) {
    if (m_defaults == nullptr) {
        return;
    }
    const std::string key = formatMessage(kDockTileInfoFormat, m_identifier);
    if (m_defaults->boolForKey(kDockTileHideKey)) {
        m_defaults->removeObject(key);
        return;
    }
    m_defaults->setObject(Value(Value::Dictionary{{kDockTileOpenKey, Value(open)},
                                                  {kDockTileRecurringKey, Value(recurring)},
                                                  {kDockTileOverDueIntervalKey, m_overdueInterval},
                                                  {kDockTileFilePathKey, Value(m_filePath)}}),
                          key);
}

void BLStateController::finishUpdate(const Result& result) {
    m_child.reset();
    m_figures = result.figures;
    m_recurringNows = result.recurringNows;
    NotificationCenter::defaultCenter().postNotificationName(
        kUpdateOverviewNotification, nullptr, Value::Dictionary{{kContextKey, Value(static_cast<Object*>(m_context))}});
    // The first matching reason decides: direct debits waiting, then recurring invoices
    // due now, then overdue, then due invoices.
    m_badge = OverviewBadge{};
    std::optional<OverviewBadge> sepa;
    if (observationHooks().sepaBadge) {
        sepa = observationHooks().sepaBadge(*m_context);
    }
    auto counted = [](size_t count, BadgeColor color) {
        return OverviewBadge{formatMessage("%ld", static_cast<long>(count)), color};
    };
    if (sepa) {
        m_badge = *sepa;
    } else if (m_figures.recurringNow > 0) {
        m_badge = counted(m_figures.recurringNow, BadgeColor::Blue);
    } else if (m_figures.overdue > 0) {
        m_badge = counted(m_figures.overdue, BadgeColor::Red);
    } else if (m_figures.due > 0) {
        m_badge = counted(m_figures.due, BadgeColor::Orange);
    }
    m_running = false;
}

void BLStateController::openUndo() {
    m_inUndo = true;
}

void BLStateController::closeUndo() {
    m_inUndo = false;
}

void BLStateController::setContent(std::vector<ManagedObject*> invoices) {
    if (m_inUndo || m_context == nullptr) {
        return;
    }
    // Debounced: a burst of content changes (an import, a sync merge) lands once, with
    // the last content, a second after it ends.
    m_pendingContent = std::move(invoices);
    if (m_contentRequest != 0) {
        RunLoop::main().cancel(m_contentRequest);
    }
    m_contentRequest = RunLoop::main().performAfterDelay(kContentDebounceSeconds, [this] {
        m_contentRequest = 0;
        bool wasEmpty = m_invoices.empty();
        m_invoices = std::move(m_pendingContent);
        m_pendingContent.clear();
        if (wasEmpty && !m_invoices.empty()) {
            update();
        }
    });
}

void BLStateController::setBalances(Value::Array balances) {
    m_balances = std::move(balances);
    update();
}

void BLStateController::setCompleteModes(Value::Array completeModes) {
    m_completeModes = std::move(completeModes);
    update();
}

}  // namespace brassline
