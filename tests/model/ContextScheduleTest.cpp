#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/BLContextState.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLThread.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/gen/BrasslineModel.h"

namespace brassline {
// Named: the test sources are compiled together.
namespace contextscheduletest {

// Two contexts, as two open company files; either may close while work for it waits.
class ContextScheduleTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        m_first = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
        m_second = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    }
    void TearDown() override {
        close(m_first);
        close(m_second);
        RunLoop::main().runUntilIdle();
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }
    static void close(std::unique_ptr<ManagedObjectContext>& context) {
        if (context) {
            BLContextState::forgetContext(*context);
            context.reset();
        }
    }

    std::unique_ptr<ManagedObjectContext> m_first;
    std::unique_ptr<ManagedObjectContext> m_second;
};

TEST_F(ContextScheduleTest, WorkForAClosedContextNeverRunsAndItsTimersAreCancelled) {
    struct Row {
        const char* label;
        ContextSchedule when;
    };
    const std::vector<Row> rows = {
        {"next turn", {}},
        {"delayed", {0.01, {}}},
        {"once", {0.0, "key"}},
        {"once, delayed", {0.01, "key"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        close(m_second);
        RunLoop::resetMainForTesting();
        m_first = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
        m_second = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
        std::vector<const ManagedObjectContext*> ran;
        ManagedObjectContext* survivor = m_second.get();
        m_first->schedule([&](ManagedObjectContext& context) { ran.push_back(&context); }, row.when);
        m_second->schedule([&](ManagedObjectContext& context) { ran.push_back(&context); }, row.when);
        close(m_first);
        // After the first turn (which arms a delayed once-task) only the open context's
        // timer is left.
        RunLoop::main().runUntilIdle();
        EXPECT_EQ(RunLoop::main().timerCount(), row.when.delaySeconds > 0.0 ? 1u : 0u);
        RunLoop::main().runForInterval(0.03);
        EXPECT_EQ(ran, std::vector<const ManagedObjectContext*>{survivor}) << "only the open context's task";
        EXPECT_EQ(RunLoop::main().timerCount(), 0u);
    }
}

TEST_F(ContextScheduleTest, OnceKeysBelongToTheirContext) {
    int first = 0;
    int second = 0;
    for (int request = 0; request < 3; ++request) {
        m_first->schedule([&](ManagedObjectContext&) { ++first; }, {0.0, "reset"});
        m_second->schedule([&](ManagedObjectContext&) { ++second; }, {0.0, "reset"});
    }
    RunLoop::main().runUntilIdle();
    // Coalesced within a context, never across two.
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    m_first->schedule([&](ManagedObjectContext&) { ++first; }, {0.0, "reset"});
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(first, 2) << "a request after the task started queues a new one";
}

TEST_F(ContextScheduleTest, AChildContextsWorkRunsOnItsQueue) {
    auto child = std::make_unique<ManagedObjectContext>(*m_first, "ScheduleChild");
    std::atomic<bool> onQueue{false};
    std::atomic<int> runs{0};
    child->schedule(
        [&](ManagedObjectContext& context) {
            onQueue = context.isOnContextThread() && !RunLoop::isMainThread();
            ++runs;
            RunLoop::main().perform([] {});  // Wakes the waiting main loop.
        },
        {0.01, {}});
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return runs.load() == 1; }, 2.0));
    child->performBlockAndWait([] {});
    EXPECT_TRUE(onQueue);
    child->schedule([&](ManagedObjectContext&) { ++runs; }, {0.01, {}});
    child.reset();
    RunLoop::main().runForInterval(0.03);
    EXPECT_EQ(runs.load(), 1) << "the closed child's timer was cancelled";
}

// The fault behind closing one of two open files: a thread's delayed invoice, or a delayed
// cache reset, read the closed file's context.
TEST_F(ContextScheduleTest, DelayedModelWorkDiesWithTheClosedFile) {
    auto* closing = BLThread::insertInManagedObjectContext(*m_first);
    closing->addDocument();
    BLInvoice::insertInManagedObjectContext(*m_first)->resetCaches();
    auto* staying = BLThread::insertInManagedObjectContext(*m_second);
    staying->addDocument();
    RunLoop::main().runUntilIdle();
    close(m_first);
    EXPECT_EQ(RunLoop::main().timerCount(), 1u) << "the closed file's timer is cancelled";
    RunLoop::main().runForInterval(0.3);
    ASSERT_EQ(staying->childs().size(), 1u);
    EXPECT_NE(dynamic_cast<BLInvoice*>(staying->childs()[0]), nullptr);
}

}  // namespace contextscheduletest
}  // namespace brassline
