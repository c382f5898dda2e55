#include "model/RunLoop.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include <pthread.h>

#include "core/Log.h"

namespace brassline {

namespace {

using Clock = std::chrono::steady_clock;

constexpr Clock::duration kMinimumRepeatInterval = std::chrono::milliseconds(1);

Clock::duration durationFromSeconds(double seconds) {
    if (!(seconds > 0.0))
        return Clock::duration::zero();
    // Clamp before converting: a huge delay would overflow the tick count.
    constexpr double kMaxSeconds = 100.0 * 365 * 24 * 3600;
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(std::min(seconds, kMaxSeconds)));
}

// The main thread is whoever claimed RunLoop::main() first; a default id means nobody yet.
std::atomic<std::thread::id> g_mainThread{};

// Built on first use and never destroyed: worker threads may still post to it while static
// destructors run at exit.
RunLoop& mainInstance() {
    static RunLoop* loop = new RunLoop;
    return *loop;
}

// Lets the thread that waits in a sync dispatch go once the task ran, and also when the
// task is destroyed without running, so that a dropped task cannot strand it.
class SyncCompletion {
public:
    SyncCompletion() = default;
    SyncCompletion(const SyncCompletion&) = delete;
    SyncCompletion& operator=(const SyncCompletion&) = delete;

    void finish(bool ran) {
        std::lock_guard guard(m_lock);
        if (m_done)
            return;
        if (!ran)
            logMessage("A task dispatched synchronously was dropped before it ran.");
        m_done = true;
        m_doneChanged.notify_all();
    }

    void wait() {
        std::unique_lock guard(m_lock);
        m_doneChanged.wait(guard, [this] { return m_done; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_doneChanged;
    bool m_done = false;
};

// Wraps a task for the sync dispatches: the waiter holds one reference to the completion,
// the queued task the other, so the completion outlives whichever goes last.
RunLoop::Task syncTask(RunLoop::Task task, const std::shared_ptr<SyncCompletion>& completion) {
    struct Runner {
        RunLoop::Task task;
        std::shared_ptr<SyncCompletion> completion;
        ~Runner() {
            if (completion)
                completion->finish(false);
        }
    };
    // Filled in place: a temporary Runner would report the drop as it died.
    auto runner = std::make_shared<Runner>();
    runner->task = std::move(task);
    runner->completion = completion;
    return [runner] {
        runner->task();
        runner->completion->finish(true);
    };
}

struct QueuedTask {
    RunLoop::Task task;
    std::string onceKey;  // Empty for plain performs.
};

struct Timer {
    Clock::time_point due;
    Clock::duration interval{};
    bool repeats = false;
    std::shared_ptr<RunLoop::Task> task;
    uint64_t firedInPass = 0;
};

struct TurnObserver {
    RunLoop::ObserverId id = 0;
    RunLoop::Task observer;
    std::atomic<bool> removed{false};
};

}  // namespace

struct RunLoop::Impl {
    mutable std::mutex lock;
    std::condition_variable workArrived;
    // Bumped by everything that can shorten a sleep, so that a sleeper tells a real wake-up
    // from a spurious one.
    uint64_t wakeups = 0;

    std::deque<QueuedTask> tasks;
    std::unordered_set<std::string> pendingOnceKeys;
    std::map<TimerId, Timer> timers;
    TimerId nextTimerId = 1;
    std::vector<std::shared_ptr<TurnObserver>> observers;
    ObserverId nextObserverId = 1;
    // A pass is one runOnce or one whole runUntilIdle; a repeating timer fires once per
    // pass so that a short interval cannot keep runUntilIdle from ever becoming idle.
    std::atomic<uint64_t> nextPass{1};

    void notifyLocked() {
        ++wakeups;
        workArrived.notify_all();
    }

    static bool isDue(const Timer& timer, Clock::time_point now, uint64_t pass) {
        return timer.due <= now && !(timer.repeats && timer.firedInPass == pass);
    }

    bool hasWorkLocked(Clock::time_point now, uint64_t pass) const {
        if (!tasks.empty())
            return true;
        return std::any_of(timers.begin(), timers.end(),
                           [&](const auto& entry) { return isDue(entry.second, now, pass); });
    }

    std::optional<Clock::time_point> earliestDueLocked() const {
        std::optional<Clock::time_point> earliest;
        for (const auto& [id, timer] : timers) {
            if (!earliest || timer.due < *earliest)
                earliest = timer.due;
        }
        return earliest;
    }

    TimerId addTimer(Clock::duration delay, Clock::duration interval, bool repeats, Task task) {
        Timer timer;
        timer.due = Clock::now() + delay;
        timer.interval = interval;
        timer.repeats = repeats;
        timer.task = std::make_shared<Task>(std::move(task));
        std::lock_guard guard(lock);
        TimerId id = nextTimerId++;
        timers.emplace(id, std::move(timer));
        notifyLocked();
        return id;
    }

    bool runTurn(uint64_t pass) {
        std::deque<QueuedTask> batch;
        {
            std::lock_guard guard(lock);
            batch.swap(tasks);
        }
        bool ran = !batch.empty();
        for (auto& queued : batch) {
            if (!queued.onceKey.empty()) {
                std::lock_guard guard(lock);
                pendingOnceKeys.erase(queued.onceKey);
            }
            queued.task();
            // Captured state goes now, not at the end of the batch: a sync dispatcher
            // waiting on it is released as soon as its task ran.
            queued.task = nullptr;
        }

        Clock::time_point now = Clock::now();
        std::vector<std::pair<Clock::time_point, TimerId>> due;
        {
            std::lock_guard guard(lock);
            for (const auto& [id, timer] : timers) {
                if (isDue(timer, now, pass))
                    due.emplace_back(timer.due, id);
            }
        }
        // Same due time: the earlier request first (ids grow with requests).
        std::sort(due.begin(), due.end());
        for (const auto& [when, id] : due) {
            std::shared_ptr<Task> task;
            {
                std::lock_guard guard(lock);
                auto it = timers.find(id);
                // A task earlier in this turn may have cancelled it.
                if (it == timers.end() || !isDue(it->second, now, pass))
                    continue;
                Timer& timer = it->second;
                task = timer.task;
                if (timer.repeats) {
                    // Rescheduled before it runs, so that it can cancel itself.
                    timer.firedInPass = pass;
                    timer.due += timer.interval;
                    if (timer.due <= now)
                        timer.due = now + timer.interval;
                } else {
                    timers.erase(it);
                }
            }
            (*task)();
            ran = true;
        }

        std::vector<std::shared_ptr<TurnObserver>> turnObservers;
        {
            std::lock_guard guard(lock);
            turnObservers = observers;
        }
        for (const auto& observer : turnObservers) {
            if (!observer->removed.load(std::memory_order_acquire))
                observer->observer();
        }
        return ran;
    }

    // Sleeps until work is posted, a timer falls due or the deadline passes.
    void waitForWork(Clock::time_point deadline) {
        std::unique_lock guard(lock);
        uint64_t seen = wakeups;
        if (hasWorkLocked(Clock::now(), 0))
            return;
        Clock::time_point until = deadline;
        if (auto earliest = earliestDueLocked())
            until = std::min(until, *earliest);
        workArrived.wait_until(guard, until, [&] { return wakeups != seen; });
    }

    // Takes everything queued out under the lock; the caller destroys it after unlocking,
    // because captured state may post again while it is destroyed.
    std::pair<std::deque<QueuedTask>, std::map<TimerId, Timer>> takeAllLocked() {
        auto taken = std::make_pair(std::move(tasks), std::move(timers));
        tasks.clear();
        timers.clear();
        pendingOnceKeys.clear();
        notifyLocked();
        return taken;
    }
};

RunLoop& RunLoop::main() {
    std::thread::id nobody;
    g_mainThread.compare_exchange_strong(nobody, std::this_thread::get_id());
    return mainInstance();
}

void RunLoop::resetMainForTesting() {
    RunLoop& loop = mainInstance();
    std::pair<std::deque<QueuedTask>, std::map<TimerId, Timer>> dropped;
    {
        std::lock_guard guard(loop.m_impl->lock);
        dropped = loop.m_impl->takeAllLocked();
    }
    g_mainThread.store(std::thread::id());
}

bool RunLoop::isMainThread() {
    return g_mainThread.load() == std::this_thread::get_id();
}

RunLoop::RunLoop() : m_impl(std::make_unique<Impl>()) {}

RunLoop::~RunLoop() {
    std::pair<std::deque<QueuedTask>, std::map<TimerId, Timer>> dropped;
    {
        std::lock_guard guard(m_impl->lock);
        dropped = m_impl->takeAllLocked();
    }
}

void RunLoop::perform(Task task) {
    std::lock_guard guard(m_impl->lock);
    m_impl->tasks.push_back(QueuedTask{std::move(task), {}});
    m_impl->notifyLocked();
}

RunLoop::TimerId RunLoop::performAfterDelay(double seconds, Task task) {
    return m_impl->addTimer(durationFromSeconds(seconds), Clock::duration::zero(), false, std::move(task));
}

void RunLoop::performOnce(std::string_view key, Task task) {
    std::lock_guard guard(m_impl->lock);
    if (!m_impl->pendingOnceKeys.emplace(key).second)
        return;
    m_impl->tasks.push_back(QueuedTask{std::move(task), std::string(key)});
    m_impl->notifyLocked();
}

RunLoop::TimerId RunLoop::scheduleTimer(double intervalSeconds, bool repeats, Task task) {
    Clock::duration interval = durationFromSeconds(intervalSeconds);
    if (repeats)
        interval = std::max(interval, kMinimumRepeatInterval);
    return m_impl->addTimer(interval, interval, repeats, std::move(task));
}

void RunLoop::cancel(TimerId id) {
    std::shared_ptr<Task> dropped;
    std::lock_guard guard(m_impl->lock);
    auto it = m_impl->timers.find(id);
    if (it == m_impl->timers.end())
        return;
    // Destroyed after the lock is released (declared before the guard).
    dropped = std::move(it->second.task);
    m_impl->timers.erase(it);
    m_impl->notifyLocked();
}

bool RunLoop::runOnce() {
    return m_impl->runTurn(m_impl->nextPass++);
}

void RunLoop::runUntilIdle() {
    uint64_t pass = m_impl->nextPass++;
    for (;;) {
        m_impl->runTurn(pass);
        std::lock_guard guard(m_impl->lock);
        if (!m_impl->hasWorkLocked(Clock::now(), pass))
            return;
    }
}

void RunLoop::runForInterval(double seconds) {
    Clock::time_point deadline = Clock::now() + durationFromSeconds(seconds);
    for (;;) {
        runOnce();
        if (Clock::now() >= deadline)
            return;
        m_impl->waitForWork(deadline);
    }
}

bool RunLoop::runUntil(const std::function<bool()>& condition, double timeoutSeconds) {
    Clock::time_point deadline = Clock::now() + durationFromSeconds(timeoutSeconds);
    for (;;) {
        if (condition())
            return true;
        runOnce();
        if (condition())
            return true;
        if (Clock::now() >= deadline)
            return false;
        m_impl->waitForWork(deadline);
    }
}

bool RunLoop::hasPendingWork() const {
    std::lock_guard guard(m_impl->lock);
    return m_impl->hasWorkLocked(Clock::now(), 0);
}

size_t RunLoop::timerCount() const {
    std::lock_guard guard(m_impl->lock);
    return m_impl->timers.size();
}

RunLoop::ObserverId RunLoop::addEndOfTurnObserver(Task observer) {
    auto entry = std::make_shared<TurnObserver>();
    entry->observer = std::move(observer);
    std::lock_guard guard(m_impl->lock);
    entry->id = m_impl->nextObserverId++;
    m_impl->observers.push_back(std::move(entry));
    return m_impl->observers.back()->id;
}

void RunLoop::removeEndOfTurnObserver(ObserverId id) {
    std::shared_ptr<TurnObserver> removed;
    std::lock_guard guard(m_impl->lock);
    auto& observers = m_impl->observers;
    auto it = std::find_if(observers.begin(), observers.end(), [id](const auto& entry) { return entry->id == id; });
    if (it == observers.end())
        return;
    (*it)->removed.store(true, std::memory_order_release);
    removed = std::move(*it);
    observers.erase(it);
}

namespace {
// Which queue's worker this thread is, for isCurrent and the inline sync.
thread_local const void* t_currentQueue = nullptr;
}  // namespace

struct SerialQueue::Impl {
    std::string name;
    std::mutex lock;
    std::condition_variable changed;
    std::deque<RunLoop::Task> tasks;
    bool stopping = false;
    std::thread worker;

    void run() {
        t_currentQueue = this;
        // The kernel keeps at most 15 characters of a thread name.
        pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
        std::unique_lock guard(lock);
        for (;;) {
            changed.wait(guard, [this] { return stopping || !tasks.empty(); });
            if (tasks.empty())
                return;
            RunLoop::Task task = std::move(tasks.front());
            tasks.pop_front();
            guard.unlock();
            task();
            task = nullptr;
            guard.lock();
        }
    }
};

SerialQueue::SerialQueue(std::string name) : m_impl(std::make_unique<Impl>()) {
    m_impl->name = std::move(name);
    m_impl->worker = std::thread([impl = m_impl.get()] { impl->run(); });
}

SerialQueue::~SerialQueue() {
    assert(!isCurrent() && "a serial queue cannot be destroyed from its own thread");
    {
        std::lock_guard guard(m_impl->lock);
        m_impl->stopping = true;
    }
    m_impl->changed.notify_all();
    if (m_impl->worker.joinable())
        m_impl->worker.join();
}

const std::string& SerialQueue::name() const {
    return m_impl->name;
}

void SerialQueue::async(RunLoop::Task task) {
    {
        std::lock_guard guard(m_impl->lock);
        m_impl->tasks.push_back(std::move(task));
    }
    m_impl->changed.notify_one();
}

void SerialQueue::sync(RunLoop::Task task) {
    if (isCurrent()) {
        task();
        return;
    }
    auto completion = std::make_shared<SyncCompletion>();
    async(syncTask(std::move(task), completion));
    completion->wait();
}

bool SerialQueue::isCurrent() const {
    return t_currentQueue == m_impl.get();
}

void dispatchAsyncToMain(RunLoop::Task task) {
    // mainInstance, not RunLoop::main: a worker that dispatches must not claim the main thread.
    mainInstance().perform(std::move(task));
}

void dispatchSyncToMain(RunLoop::Task task) {
    if (RunLoop::isMainThread()) {
        task();
        return;
    }
    auto completion = std::make_shared<SyncCompletion>();
    mainInstance().perform(syncTask(std::move(task), completion));
    completion->wait();
}

}  // namespace brassline
