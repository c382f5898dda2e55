#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "core/Log.h"
#include "model/RunLoop.h"

namespace brassline {

// Every test starts with an empty main loop claimed by the test's thread.
class RunLoopTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        RunLoop::main();
    }
    void TearDown() override { RunLoop::resetMainForTesting(); }

    RunLoop& loop() { return RunLoop::main(); }

    static constexpr double kGenerousTimeoutSeconds = 10.0;
};

TEST_F(RunLoopTest, PerformOnceCoalescesUntilItsTaskStarts) {
    std::vector<std::string> ran;
    loop().performOnce("resetCaches", [&] { ran.push_back("first"); });
    loop().performOnce("resetCaches", [&] { ran.push_back("second"); });
    loop().performOnce("other", [&] { ran.push_back("other"); });
    loop().performOnce("resetCaches", [&] { ran.push_back("third"); });
    loop().runUntilIdle();
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "other"}));

    // Once it has run, the key is free again; a request made by the running task itself
    // is queued for a later turn of the same drain.
    ran.clear();
    int remaining = 2;
    std::function<void()> again = [&] {
        ran.push_back("again");
        if (--remaining > 0)
            loop().performOnce("resetCaches", again);
    };
    loop().performOnce("resetCaches", again);
    loop().runUntilIdle();
    EXPECT_EQ(ran, (std::vector<std::string>{"again", "again"}));
    EXPECT_FALSE(loop().hasPendingWork());
}

TEST_F(RunLoopTest, TasksPostedDuringATurnWaitForTheNextTurn) {
    std::vector<int> ran;
    loop().perform([&] {
        ran.push_back(1);
        loop().perform([&] { ran.push_back(3); });
    });
    loop().perform([&] { ran.push_back(2); });

    EXPECT_TRUE(loop().runOnce());
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
    EXPECT_TRUE(loop().hasPendingWork());

    loop().runUntilIdle();
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
    EXPECT_FALSE(loop().runOnce());
}

TEST_F(RunLoopTest, DelayedPerformsRunInDueOrderAndFutureOnesDoNotBlockIdleness) {
    std::vector<std::string> ran;
    // Requested out of order; the two with the same delay keep their request order.
    loop().performAfterDelay(0.06, [&] { ran.push_back("c"); });
    loop().performAfterDelay(0.02, [&] { ran.push_back("a1"); });
    loop().performAfterDelay(0.04, [&] { ran.push_back("b"); });
    RunLoop::TimerId late = loop().performAfterDelay(3600, [&] { ran.push_back("late"); });
    loop().performAfterDelay(0.0, [&] { ran.push_back("now"); });

    loop().runUntilIdle();
    EXPECT_EQ(ran, (std::vector<std::string>{"now"}));

    ASSERT_TRUE(loop().runUntil([&] { return ran.size() == 4; }, kGenerousTimeoutSeconds));
    EXPECT_EQ(ran, (std::vector<std::string>{"now", "a1", "b", "c"}));
    EXPECT_EQ(loop().timerCount(), 1u);
    loop().cancel(late);
    EXPECT_EQ(loop().timerCount(), 0u);
}

TEST_F(RunLoopTest, SameDueTimeKeepsRequestOrder) {
    std::vector<int> ran;
    for (int i = 0; i < 5; ++i)
        loop().performAfterDelay(0.0, [&ran, i] { ran.push_back(i); });
    loop().runUntilIdle();
    EXPECT_EQ(ran, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(RunLoopTest, RepeatingTimerFiresUntilItCancelsItself) {
    int fires = 0;
    RunLoop::TimerId id = 0;
    id = loop().scheduleTimer(0.002, true, [&] {
        if (++fires == 3)
            loop().cancel(id);
    });
    ASSERT_TRUE(loop().runUntil([&] { return fires == 3; }, kGenerousTimeoutSeconds));
    EXPECT_EQ(loop().timerCount(), 0u);
    loop().runForInterval(0.02);
    EXPECT_EQ(fires, 3);
}

TEST_F(RunLoopTest, CancelledTimersNeverFire) {
    int oneShot = 0;
    int cancelledEarly = 0;
    int cancelledInTurn = 0;
    loop().scheduleTimer(0.001, false, [&] { ++oneShot; });
    RunLoop::TimerId early = loop().scheduleTimer(0.001, true, [&] { ++cancelledEarly; });
    loop().cancel(early);
    // Both due in the same turn; the first cancels the second before its turn comes.
    RunLoop::TimerId second = 0;
    loop().performAfterDelay(0.0, [&] { loop().cancel(second); });
    second = loop().performAfterDelay(0.0, [&] { ++cancelledInTurn; });
    loop().runForInterval(0.03);
    EXPECT_EQ(oneShot, 1);
    EXPECT_EQ(cancelledEarly, 0);
    EXPECT_EQ(cancelledInTurn, 0);
    EXPECT_EQ(loop().timerCount(), 0u);
}

TEST_F(RunLoopTest, RunUntilIdleEndsDespiteAFastRepeatingTimer) {
    int fires = 0;
    // Every fire takes longer than the interval, so the timer is always due again.
    RunLoop::TimerId id = loop().scheduleTimer(0.001, true, [&] {
        ++fires;
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
    });
    ASSERT_TRUE(loop().runUntil([&] { return fires >= 1; }, kGenerousTimeoutSeconds));
    int before = fires;
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
    loop().runUntilIdle();
    EXPECT_EQ(fires, before + 1);
    loop().cancel(id);
}

TEST_F(RunLoopTest, EndOfTurnObserversRunAfterEveryTurnUntilRemoved) {
    std::vector<std::string> events;
    RunLoop::ObserverId id = loop().addEndOfTurnObserver([&] { events.push_back("end"); });
    loop().perform([&] { events.push_back("task"); });
    loop().runOnce();
    loop().runOnce();  // An empty turn is still a turn.
    loop().removeEndOfTurnObserver(id);
    loop().runOnce();
    EXPECT_EQ(events, (std::vector<std::string>{"task", "end", "end"}));
}

TEST_F(RunLoopTest, MainThreadIsTheFirstClaimant) {
    RunLoop::resetMainForTesting();
    EXPECT_FALSE(RunLoop::isMainThread());
    bool workerSawMain = true;
    std::thread([&] { workerSawMain = RunLoop::isMainThread(); }).join();
    EXPECT_FALSE(workerSawMain);

    RunLoop::main();
    EXPECT_TRUE(RunLoop::isMainThread());
    std::thread([&] {
        RunLoop::main();  // A later caller does not take the claim over.
        workerSawMain = RunLoop::isMainThread();
    }).join();
    EXPECT_FALSE(workerSawMain);
    EXPECT_TRUE(RunLoop::isMainThread());
}

TEST_F(RunLoopTest, PerformFromAWorkerWakesTheSleepingLoop) {
    bool ranOnMain = false;
    bool done = false;
    std::thread worker([&] {
        dispatchAsyncToMain([&] {
            ranOnMain = RunLoop::isMainThread();
            done = true;
        });
    });
    auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(loop().runUntil([&] { return done; }, kGenerousTimeoutSeconds));
    worker.join();
    EXPECT_TRUE(ranOnMain);
    // Woken by the post, not by the timeout.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(RunLoopTest, DispatchSyncToMainWaitsForTheMainLoopToRunIt) {
    std::vector<std::string> log;  // Touched only on the main thread.
    int value = 0;
    int valueSeenByWorker = -1;
    bool ranOnMain = false;
    bool done = false;
    std::thread worker([&] {
        dispatchSyncToMain([&] {
            ranOnMain = RunLoop::isMainThread();
            value = 42;
            log.push_back("sync");
        });
        // The sync dispatch returned, so the write is complete and visible.
        valueSeenByWorker = value;
        dispatchAsyncToMain([&] {
            log.push_back("async");
            done = true;
        });
    });
    ASSERT_TRUE(loop().runUntil([&] { return done; }, kGenerousTimeoutSeconds));
    worker.join();
    EXPECT_TRUE(ranOnMain);
    EXPECT_EQ(valueSeenByWorker, 42);
    EXPECT_EQ(log, (std::vector<std::string>{"sync", "async"}));

    // On the main thread it runs at once, without a turn.
    bool inline_ = false;
    dispatchSyncToMain([&] { inline_ = true; });
    EXPECT_TRUE(inline_);
    EXPECT_FALSE(loop().hasPendingWork());
}

TEST_F(RunLoopTest, DispatchSyncIsReleasedWhenItsTaskIsDropped) {
    LogCapture capture;
    std::atomic<bool> ran{false};
    std::atomic<bool> returned{false};
    std::thread worker([&] {
        dispatchSyncToMain([&] { ran = true; });
        returned = true;
    });
    // The worker is blocked once its task is queued; dropping the queue must free it.
    while (!loop().hasPendingWork())
        std::this_thread::yield();
    RunLoop::resetMainForTesting();
    worker.join();
    EXPECT_TRUE(returned);
    EXPECT_FALSE(ran);
    EXPECT_TRUE(capture.contains("dropped"));
}

TEST(SerialQueueTest, RunsTasksInPostingOrderUnderConcurrentPosters) {
    constexpr int kPosters = 4;
    constexpr int kTasksEach = 500;
    SerialQueue queue("INVOICE_ITEMS");
    std::vector<std::pair<int, int>> order;  // Touched only on the queue's thread.
    std::atomic<int> offQueue{0};
    std::vector<std::thread> posters;
    for (int poster = 0; poster < kPosters; ++poster) {
        posters.emplace_back([&, poster] {
            for (int i = 0; i < kTasksEach; ++i) {
                queue.async([&, poster, i] {
                    if (!queue.isCurrent())
                        ++offQueue;
                    order.emplace_back(poster, i);
                });
            }
        });
    }
    for (auto& poster : posters)
        poster.join();

    std::vector<std::pair<int, int>> seen;
    queue.sync([&] { seen = order; });
    ASSERT_EQ(seen.size(), size_t{kPosters * kTasksEach});
    EXPECT_EQ(offQueue, 0);
    // Interleaving across posters is free; each poster's own tasks keep their order.
    std::map<int, int> next;
    for (const auto& [poster, i] : seen) {
        EXPECT_EQ(i, next[poster]) << "poster " << poster;
        next[poster] = i + 1;
    }
    EXPECT_FALSE(queue.isCurrent());
}

TEST(SerialQueueTest, SyncFromItsOwnThreadRunsInline) {
    SerialQueue queue("WriteDocs");
    std::vector<std::string> steps;
    queue.sync([&] {
        steps.push_back("outer");
        queue.sync([&] { steps.push_back("inner"); });
        steps.push_back("after");
    });
    EXPECT_EQ(steps, (std::vector<std::string>{"outer", "inner", "after"}));
    EXPECT_EQ(queue.name(), "WriteDocs");
}

TEST(SerialQueueTest, DestructorFinishesQueuedTasks) {
    std::atomic<int> count{0};
    std::vector<int> order;
    {
        SerialQueue queue("UNZIP");
        for (int i = 0; i < 200; ++i) {
            queue.async([&, i] {
                order.push_back(i);
                ++count;
            });
        }
    }
    ASSERT_EQ(count, 200);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(order[i], i);
}

}  // namespace brassline
