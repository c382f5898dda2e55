#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace brassline {

// The main thread's run loop: work posted from any thread, delayed performs, once-per-turn
// performs keyed by a name, and repeating timers. The command line drains it until idle;
// the desktop shell drives it from its own event loop by calling runOnce. Posting and
// timer calls are thread-safe; the loop runs its work on whichever thread drives it.
// Nothing runs unless a thread drives the loop: work posted to an undriven loop waits.
class RunLoop {
public:
    using Task = std::function<void()>;
    using TimerId = uint64_t;
    using ObserverId = uint64_t;

    // The run loop of the main thread. The first thread that calls main() becomes the main
    // thread, so the program calls it at start-up before starting workers. The reset (tests
    // only) drops queued tasks and timers and forgets the main thread; the loop object and
    // its end-of-turn observers stay, so references to it remain valid.
    static RunLoop& main();
    static void resetMainForTesting();
    static bool isMainThread();  // False while no thread has claimed main().

    RunLoop();
    ~RunLoop();  // Drops what is still queued without running it.
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    // Thread-safe: queue a task for the next turn. Tasks run in the order posted.
    void perform(Task task);
    // Runs the task once after the delay (seconds of the steady clock; negative counts as
    // 0). Performs due at the same moment run in the order they were requested.
    TimerId performAfterDelay(double seconds, Task task);
    // At most one pending perform per key: a second request before the first has started
    // is dropped (the coalescing that resetCachesDelayed relies on). Once the task has
    // started, a request for the same key queues a new perform for a later turn.
    void performOnce(std::string_view key, Task task);
    // First fire after one interval. A repeating timer that falls behind skips the missed
    // fires; its interval is at least a millisecond.
    TimerId scheduleTimer(double intervalSeconds, bool repeats, Task task);
    // Cancels a timer or delayed perform; unknown ids are ignored. Safe from its own task.
    void cancel(TimerId id);

    // One turn: every task queued before the turn, then due timers, then the end-of-turn
    // observers. Answers whether any task or timer ran.
    bool runOnce();
    // Turns until nothing is queued and no timer is due now (timers in the future stay).
    // Always runs at least one turn; a repeating timer fires at most once per call.
    void runUntilIdle();
    // Turns until the interval has passed, sleeping between them until work is posted or a
    // timer is due.
    void runForInterval(double seconds);
    // Turns, sleeping between them, until the condition holds (checked before and after
    // each turn, on this thread) or the timeout passes. Answers the last check. Whatever
    // makes the condition true should arrive through the loop, or it is seen only at the
    // next wake-up.
    bool runUntil(const std::function<bool()>& condition, double timeoutSeconds);
    // Whether a task is queued or a timer is due now.
    bool hasPendingWork() const;
    size_t timerCount() const;

    // Called after each turn on the thread that drives the loop (the undo manager closes
    // its event group here). Observers are not dropped by resetMainForTesting: their owners
    // remove them.
    ObserverId addEndOfTurnObserver(Task observer);
    void removeEndOfTurnObserver(ObserverId id);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// A named serial queue on a worker thread of its own. Tasks run one at a time in order.
class SerialQueue {
public:
    explicit SerialQueue(std::string name);
    // Finishes the queued tasks, then joins. Must not run on the queue's own thread.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& name() const;
    void async(RunLoop::Task task);
    // Waits until the task has run on the queue; from the queue's own thread it runs at
    // once instead of deadlocking. Two queues syncing into each other still deadlock.
    void sync(RunLoop::Task task);
    bool isCurrent() const;  // Whether the calling thread is this queue's.

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// Runs the task on the main run loop. From the main thread `dispatchSyncToMain` runs it
// at once; from another thread it blocks until a thread driving RunLoop::main() has run
// it. Nobody driving the main loop means it blocks for ever: keeping the loop driven is
// the caller's contract (tests drive it with runUntil). If the task is dropped unrun (loop
// reset or destroyed) the caller is released and a line is logged.
void dispatchAsyncToMain(RunLoop::Task task);
void dispatchSyncToMain(RunLoop::Task task);

}  // namespace brassline
