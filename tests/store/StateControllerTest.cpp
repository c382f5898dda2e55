#include <atomic>
#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ObservationTestSupport.h"
#include "StoreTestSupport.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/ModelHooks.h"
#include "store/BLStateController.h"
#include "store/BLUserDefaults.h"
#include "store/ObservationNames.h"

namespace brassline {
namespace {

using observationtest::ObservationFixture;

constexpr double kWaitSeconds = 10.0;

class StateControllerTest : public ObservationFixture {
protected:
    void SetUp() override {
        ObservationFixture::SetUp();
        UserDefaults::setDirectoryForTesting(m_folder / "config");
        m_controller.attach(context(), UserDefaults::standard(), "DOC-1", "/books/Firm.brassline");
    }
    void TearDown() override {
        m_controller.detach();
        UserDefaults::setDirectoryForTesting("");
        ObservationFixture::TearDown();
    }

    // An issued invoice (a draft when `issued` is false) with the given uid.
    BLInvoice* invoice(const std::string& uid, bool issued = true, bool recurring = false, int completeMode = 0) {
        auto* object = insert<BLInvoice>();
        object->setUid(uid);
        if (issued) {
            object->setDateSent(Date::dateWithYear(2026, 3, 1));
        }
        object->setRecurringValue(recurring);
        object->setCompleteModeValue(static_cast<int16_t>(completeMode));
        return object;
    }
    bool waitUntilIdle() {
        return RunLoop::main().runUntil([&] { return !m_controller.running(); }, kWaitSeconds);
    }
    void refresh() {
        m_controller.update();
        ASSERT_TRUE(waitUntilIdle());
    }

    storetest::TemporaryFolder m_folder;
    BLStateController m_controller;
};

// Invoice states answered by uid, as the money and life cycle subsystems would.
void installStates(std::set<std::string> balanced, std::set<std::string> due, std::set<std::string> overdue,
                   std::set<std::string> recurringNow) {
    auto member = [](std::set<std::string> uids) {
        return [uids = std::move(uids)](const BLInvoice& invoice) { return uids.contains(invoice.uid().value_or("")); };
    };
    observationHooks().balanced = member(std::move(balanced));
    observationHooks().isDue = member(std::move(due));
    observationHooks().isOverDue = member(std::move(overdue));
    observationHooks().recurringNow = member(std::move(recurringNow));
}

// Issued: a b c d e r1 r2 (plus a draft and a settled invoice). Open are those neither
// balanced nor completeMode > 0. The badge takes the first reason: recurring due now
// (blue), else overdue (red), else due (orange).
TEST_F(StateControllerTest, FiguresAndBadgeFollowTheFirstReason) {
    invoice("draft", false);
    invoice("a");
    invoice("b");
    invoice("c");
    invoice("d");
    invoice("e", true, false, 1);  // Settled: not open whatever else holds.
    invoice("r1", true, true);
    invoice("r2", true, true);
    settle();

    struct Row {
        const char* name;
        std::set<std::string> balanced, due, overdue, recurringNow;
        BLStateController::Figures expected;  // issued, recurring, now, open, due, overdue
        OverviewBadge badge;
    } rows[] = {
        {"recurring now wins", {"a"}, {"b", "c", "e"}, {"c"}, {"r2"}, {7, 2, 1, 5, 2, 1}, {"1", BadgeColor::Blue}},
        {"overdue before due", {}, {"a", "b", "c"}, {"a", "b"}, {}, {7, 2, 0, 6, 3, 2}, {"2", BadgeColor::Red}},
        {"due only", {"d"}, {"a", "d"}, {}, {}, {7, 2, 0, 5, 1, 0}, {"1", BadgeColor::Orange}},
        {"nothing waiting", {"a", "b", "c", "d", "r1", "r2"}, {"e"}, {"e"}, {}, {7, 2, 0, 0, 0, 0}, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        installStates(row.balanced, row.due, row.overdue, row.recurringNow);
        log().clear();
        refresh();
        EXPECT_EQ(m_controller.figures(), row.expected);
        EXPECT_EQ(m_controller.overviewBadge(), row.badge);
        ASSERT_EQ(log().count(kUpdateOverviewNotification), 1u);
        EXPECT_EQ(log().entries().back().context, static_cast<Object*>(&context()));
    }

    // Direct debits waiting decide before everything else.
    installStates({}, {"a"}, {"a"}, {"r1"});
    observationHooks().sepaBadge = [](ManagedObjectContext&) {
        return std::optional<OverviewBadge>(OverviewBadge{"SEPA", BadgeColor::Custom});
    };
    refresh();
    EXPECT_EQ(m_controller.overviewBadge(), (OverviewBadge{"SEPA", BadgeColor::Custom}));
}

TEST_F(StateControllerTest, DockTileRecordsAreWrittenOrRemovedWhenHidden) {
    modelHooks().preferenceValue = [](ManagedObjectContext&, std::string_view key) {
        return key == kOverdueIntervalPreference ? Value(10) : Value();
    };
    invoice("a");
    invoice("r", true, true);
    installStates({"r"}, {}, {}, {});
    settle();
    refresh();
    Value info = UserDefaults::standard().objectForKey("DockTileInfo.DOC-1");
    ASSERT_NE(info.dictionary(), nullptr);
    const Value::Dictionary& record = *info.dictionary();
    EXPECT_EQ(record.at(kDockTileFilePathKey).toString(), "/books/Firm.brassline");
    EXPECT_EQ(record.at(kDockTileOverDueIntervalKey).toDouble(), 10.0);
    ASSERT_NE(record.at(kDockTileOpenKey).array(), nullptr);
    ASSERT_EQ(record.at(kDockTileOpenKey).array()->size(), 1u);
    EXPECT_EQ(record.at(kDockTileOpenKey).array()->front().dictionary()->at("uid").toString(), "a");
    ASSERT_EQ(record.at(kDockTileRecurringKey).array()->size(), 1u);

    UserDefaults::standard().setObject(Value(true), kDockTileHideKey);
    refresh();
    EXPECT_TRUE(UserDefaults::standard().objectForKey("DockTileInfo.DOC-1").isNull());
}

TEST_F(StateControllerTest, UpdateDuringARefreshRunsAgainLaterNotAlongside) {
    invoice("a");
    invoice("b");
    settle();
    std::atomic<int> inside{0};
    std::atomic<int> mostInside{0};
    // The invoices have no lines, so by their own figures they are balanced and never due.
    observationHooks().balanced = [](const BLInvoice&) { return false; };
    observationHooks().isDue = [&](const BLInvoice&) {
        int now = ++inside;
        mostInside = std::max(mostInside.load(), now);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        --inside;
        return false;
    };
    m_controller.update();
    EXPECT_TRUE(m_controller.running());
    m_controller.update();
    m_controller.update();
    EXPECT_EQ(m_controller.refreshCount(), 1u);
    ASSERT_TRUE(waitUntilIdle());
    EXPECT_EQ(m_controller.refreshCount(), 1u);  // The re-run waits its second.
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return m_controller.refreshCount() == 2 && !m_controller.running(); },
                                         kWaitSeconds));
    RunLoop::main().runForInterval(1.2);
    EXPECT_EQ(m_controller.refreshCount(), 2u);  // Both extra requests folded into one.
    EXPECT_EQ(mostInside.load(), 1);
}

TEST_F(StateControllerTest, RefreshNoticesOfThisDocumentTriggerAnUpdate) {
    ManagedObjectContext other(gen::brasslineModel());
    struct Row {
        const char* name;
        Object* context;
        uint64_t expectedRefreshes;
    } rows[] = {
        {kUpdateStateControllerNotification, &context(), 1},
        {kUpdateStateControllerNotification, &other, 0},
        {kDocumentSentNotification, nullptr, 1},
        {kPayNotification, &context(), 1},
        {kUpdateNotificationsNotification, nullptr, 1},
        {kUpdateOverviewNotification, &context(), 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const uint64_t before = m_controller.refreshCount();
        Value::Dictionary userInfo;
        if (row.context != nullptr) {
            userInfo.emplace(kContextKey, Value(row.context));
        }
        NotificationCenter::defaultCenter().postNotificationName(row.name, nullptr, userInfo);
        ASSERT_TRUE(waitUntilIdle());
        EXPECT_EQ(m_controller.refreshCount() - before, row.expectedRefreshes);
    }
    BLContextState::forgetContext(other);
}

TEST_F(StateControllerTest, ContentIsDebouncedAndFillingItRefreshes) {
    auto* a = invoice("a");
    auto* b = invoice("b");
    settle();
    m_controller.setContent({a});
    m_controller.setContent({a, b});
    settle();
    EXPECT_TRUE(m_controller.invoices().empty());  // Not before the second has passed.
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return !m_controller.invoices().empty(); }, kWaitSeconds));
    EXPECT_EQ(m_controller.invoices().size(), 2u);
    EXPECT_EQ(m_controller.refreshCount(), 1u);
    ASSERT_TRUE(waitUntilIdle());

    // Filled to filled asks for nothing; bound balances and modes do.
    m_controller.setContent({b});
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return m_controller.invoices().size() == 1; }, kWaitSeconds));
    EXPECT_EQ(m_controller.refreshCount(), 1u);
    m_controller.setBalances({Value(Decimal(3))});
    ASSERT_TRUE(waitUntilIdle());
    m_controller.setCompleteModes({Value(0)});
    ASSERT_TRUE(waitUntilIdle());
    EXPECT_EQ(m_controller.refreshCount(), 3u);
}

TEST_F(StateControllerTest, ContentDoesNotChangeDuringUndo) {
    auto* a = invoice("a");
    settle();
    UndoManager& undo = *context().undoManager();

    undo.beginUndoGrouping();
    EXPECT_TRUE(m_controller.inUndo());
    m_controller.setContent({a});
    undo.endUndoGrouping();
    EXPECT_FALSE(m_controller.inUndo());
    RunLoop::main().runForInterval(1.2);
    EXPECT_TRUE(m_controller.invoices().empty());

    // An undo step that would set the content is a replay: ignored as well.
    undo.setGroupsByEvent(false);
    bool ranDuringUndo = false;
    undo.registerUndo([&] {
        ranDuringUndo = m_controller.inUndo();
        m_controller.setContent({a});
    });
    undo.undo();
    EXPECT_TRUE(ranDuringUndo);
    RunLoop::main().runForInterval(1.2);
    EXPECT_TRUE(m_controller.invoices().empty());

    m_controller.setContent({a});
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return !m_controller.invoices().empty(); }, kWaitSeconds));
}

TEST_F(StateControllerTest, UpdateIsSkippedWithoutDocumentOrOffTheMainThread) {
    BLStateController unattached;
    unattached.update();
    EXPECT_FALSE(unattached.running());
    EXPECT_EQ(unattached.refreshCount(), 0u);

    std::thread worker([&] { m_controller.update(); });
    worker.join();
    EXPECT_FALSE(m_controller.running());
    EXPECT_EQ(m_controller.refreshCount(), 0u);

    m_controller.detach();  // A closed document.
    m_controller.update();
    EXPECT_EQ(m_controller.refreshCount(), 0u);
}

TEST_F(StateControllerTest, DetachDuringARefreshWaitsAndAppliesNothing) {
    invoice("a");
    invoice("r", true, true);
    installStates({}, {"a"}, {}, {"r"});
    settle();
    log().clear();
    m_controller.update();
    m_controller.detach();
    EXPECT_FALSE(m_controller.running());
    settle();
    EXPECT_EQ(log().count(kUpdateOverviewNotification), 0u);
    EXPECT_EQ(m_controller.overviewBadge(), OverviewBadge{});
}

}  // namespace
}  // namespace brassline
