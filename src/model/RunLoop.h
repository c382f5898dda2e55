#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace brassline {

// The main thread's run loop: work posted from any thread, delayed performs, once-per-turn
// performs keyed by a name, and repeating timers. The command line drains it until idle;
// the desktop shell drives it from its own event loop by calling runOnce.
class RunLoop {
public:
    using Task = std::function<void()>;
    using TimerId = uint64_t;

    // The run loop of the main thread (the thread that first asked for it); resettable in tests.
    static RunLoop& main();
    static void resetMainForTesting();
    static bool isMainThread();

    RunLoop();
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    // Thread-safe: queue a task for the next turn.
    void perform(Task task);
    // Runs the task after the delay (in seconds of the steady clock).
    TimerId performAfterDelay(double seconds, Task task);
    // At most one pending perform per key: a second request before the turn runs is
    // dropped (the coalescing that resetCachesDelayed relies on).
    void performOnce(std::string_view key, Task task);
    TimerId scheduleTimer(double intervalSeconds, bool repeats, Task task);
    void cancel(TimerId id);

    // One turn: every task queued before the turn, then due timers. Answers whether
    // anything ran.
    bool runOnce();
    // Turns until nothing is queued and no timer is due now (timers in the future stay).
    void runUntilIdle();
    // Turns, sleeping between them, until the interval has passed.
    void runForInterval(double seconds);
    bool hasPendingWork() const;

    // Called after each turn (the undo manager closes its event group here).
    void addEndOfTurnObserver(Task observer);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// A named serial queue on a worker thread of its own. Tasks run one at a time in order.
class SerialQueue {
public:
    explicit SerialQueue(std::string name);
    ~SerialQueue();  // Finishes the queued tasks, then joins.
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& name() const;
    void async(RunLoop::Task task);
    void sync(RunLoop::Task task);
    bool isCurrent() const;  // Whether the calling thread is this queue's.

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// Runs the task on the main run loop; from the main thread `dispatchSyncToMain` runs it
// at once, from another thread it waits until the main loop has run it.
void dispatchAsyncToMain(RunLoop::Task task);
void dispatchSyncToMain(RunLoop::Task task);

}  // namespace brassline
