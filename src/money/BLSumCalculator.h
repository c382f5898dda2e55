#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/Decimal.h"

namespace brassline {

class ManagedObject;
class ManagedObjectContext;

// Receives the sums of a BLSumCalculator as display text ("1.234,50 EUR"), on the main
// thread.
class BLSumCalculatorDelegate {
public:
    virtual ~BLSumCalculatorDelegate() = default;
    virtual void setSum(const std::string& text) = 0;
    virtual void setNetSum(const std::string& text) = 0;
    virtual void setTax(const std::string& text) = 0;
};

// Adds up the gross, net and tax amounts of selected documents in the default currency on
// a thread of its own, reading them through a child context of the main context only. The
// object and its context live on the main thread; cancel and the destructor come from
// there too (the destructor cancels and waits, driving the main run loop meanwhile).
class BLSumCalculator {
public:
    struct Sum {
        Decimal gross;
        Decimal net;
        Decimal tax;
    };

    explicit BLSumCalculator(ManagedObjectContext& context);
    ~BLSumCalculator();
    BLSumCalculator(const BLSumCalculator&) = delete;
    BLSumCalculator& operator=(const BLSumCalculator&) = delete;

    // Objects of the main context; only their object IDs travel to the thread.
    void setItems(const std::vector<ManagedObject*>& items);
    void setDelegate(BLSumCalculatorDelegate* delegate);
    // Ends a run still going, makes a fresh child context, takes the items' IDs, empties
    // the sum and starts runThread on a new thread.
    void run();
    // Drops the delegate and stops the thread at its next object; nothing more is handed over.
    void cancel();
    bool cancelled() const { return m_cancelled.load(); }
    // Whether the thread has finished (or never started).
    bool isFinished() const { return m_finished.load(); }
    // The sums so far; complete once isFinished and not cancelled.
    Sum sum() const;
    ManagedObjectContext* sumContext() const { return m_sumContext.get(); }
    const std::vector<std::string>& moIDs() const { return m_moIDs; }
    // Called on the summing thread after each object with the number done (tests).
    void setObjectObserver(std::function<void(size_t done)> observer) { m_objectObserver = std::move(observer); }

private:
    void runThread();
    void finishThread();
    bool hasDelegate() const;
    // Formats the three sums and hands them over on the main thread, waiting for each.
    void deliver(const Sum& total);

    ManagedObjectContext* m_context;
    std::unique_ptr<ManagedObjectContext> m_sumContext;
    std::vector<std::string> m_moIDs;
    std::string m_currencyName;
    std::function<void(size_t)> m_objectObserver;
    std::thread m_thread;
    std::atomic<bool> m_cancelled{false};
    std::atomic<bool> m_finished{true};
    mutable std::mutex m_mutex;  // Guards m_sum and m_delegate.
    Sum m_sum;
    BLSumCalculatorDelegate* m_delegate = nullptr;
};

}  // namespace brassline
