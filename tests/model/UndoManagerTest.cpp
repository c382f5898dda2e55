#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/Log.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"

namespace brassline {

// A value whose setter registers its own inverse, as the managed objects' setters do, so
// that undo registers the redo and redo the undo.
class UndoableNumber {
public:
    explicit UndoableNumber(UndoManager& undo) : m_undo(undo) {}

    int value() const { return m_value; }
    void set(int value, std::string actionName = {}) {
        int previous = m_value;
        m_value = value;
        m_undo.registerUndo([this, previous] { set(previous); }, std::move(actionName));
    }

private:
    UndoManager& m_undo;
    int m_value = 0;
};

class UndoManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        RunLoop::main();
    }
    void TearDown() override { RunLoop::resetMainForTesting(); }

    UndoManager undo;
    UndoableNumber number{undo};
};

TEST_F(UndoManagerTest, NestedGroupsUndoAsOneStep) {
    undo.setGroupsByEvent(false);
    undo.beginUndoGrouping();
    number.set(1);
    undo.beginUndoGrouping();
    number.set(2);
    undo.endUndoGrouping();
    // The inner end closed nothing.
    EXPECT_EQ(undo.groupingLevel(), 1);
    EXPECT_FALSE(undo.canUndo());
    number.set(3);
    undo.endUndoGrouping();
    number.set(4);  // A step of its own.
    EXPECT_EQ(undo.groupingLevel(), 0);

    undo.undo();
    EXPECT_EQ(number.value(), 3);
    undo.undo();
    EXPECT_EQ(number.value(), 0);
    EXPECT_FALSE(undo.canUndo());

    // Redo replays the whole group, and its inverse is again one step.
    undo.redo();
    EXPECT_EQ(number.value(), 3);
    undo.undo();
    EXPECT_EQ(number.value(), 0);
    undo.redo();
    undo.redo();
    EXPECT_EQ(number.value(), 4);
    EXPECT_FALSE(undo.canRedo());
}

TEST_F(UndoManagerTest, RedoFollowsUndoUntilANewActionClearsIt) {
    undo.setGroupsByEvent(false);
    number.set(10);
    number.set(20);
    undo.undo();
    EXPECT_EQ(number.value(), 10);
    EXPECT_TRUE(undo.canRedo());
    undo.redo();
    EXPECT_EQ(number.value(), 20);
    EXPECT_FALSE(undo.canRedo());

    undo.undo();
    undo.undo();
    EXPECT_EQ(number.value(), 0);
    EXPECT_TRUE(undo.canRedo());
    number.set(5);
    EXPECT_FALSE(undo.canRedo());
    undo.undo();
    EXPECT_EQ(number.value(), 0);
    EXPECT_FALSE(undo.canUndo());
}

TEST_F(UndoManagerTest, LooseActionsGroupByRunLoopTurn) {
    ASSERT_TRUE(undo.groupsByEvent());
    number.set(1);
    number.set(2);
    EXPECT_EQ(undo.groupingLevel(), 1);
    RunLoop::main().runOnce();
    EXPECT_EQ(undo.groupingLevel(), 0);
    RunLoop::main().perform([&] {
        number.set(3);
        number.set(4);
    });
    RunLoop::main().runUntilIdle();
    // Still inside a turn's automatic group: undo closes it first.
    number.set(5);

    undo.undo();
    EXPECT_EQ(number.value(), 4);
    undo.undo();
    EXPECT_EQ(number.value(), 2);
    undo.undo();
    EXPECT_EQ(number.value(), 0);
    EXPECT_FALSE(undo.canUndo());
}

TEST_F(UndoManagerTest, ExplicitGroupInsideATurnJoinsTheTurnsStep) {
    number.set(1);
    undo.beginUndoGrouping();
    number.set(2);
    undo.endUndoGrouping();
    EXPECT_EQ(undo.groupingLevel(), 1);
    RunLoop::main().runOnce();
    undo.undo();
    EXPECT_EQ(number.value(), 0);
}

TEST_F(UndoManagerTest, WithoutGroupingByEventEachLooseActionIsAStep) {
    undo.setGroupsByEvent(false);
    number.set(1);
    number.set(2);
    EXPECT_EQ(undo.groupingLevel(), 0);
    undo.undo();
    EXPECT_EQ(number.value(), 1);
}

TEST_F(UndoManagerTest, DisableAndEnableNestAndNeverOverEnable) {
    undo.setGroupsByEvent(false);
    LogCapture capture;
    undo.disableUndoRegistration();
    undo.disableUndoRegistration();
    undo.enableUndoRegistration();
    number.set(1);  // Still disabled once.
    EXPECT_FALSE(undo.isUndoRegistrationEnabled());
    undo.enableUndoRegistration();
    EXPECT_TRUE(undo.isUndoRegistrationEnabled());
    number.set(2);

    // An unmatched enable is refused, so one disable still disables.
    undo.enableUndoRegistration();
    EXPECT_TRUE(capture.contains("enableUndoRegistration without"));
    undo.disableUndoRegistration();
    EXPECT_FALSE(undo.isUndoRegistrationEnabled());
    number.set(3);
    undo.enableUndoRegistration();

    undo.undo();
    EXPECT_EQ(number.value(), 1);  // Only the change to 2 was recorded.
    EXPECT_FALSE(undo.canUndo());
}

TEST_F(UndoManagerTest, UndoAndRedoThatCannotRunAreLoggedNoOps) {
    undo.setGroupsByEvent(false);
    struct Row {
        const char* label;
        void (UndoManager::*call)();
        bool insideGroup;
        const char* expectedLine;
    };
    const Row rows[] = {
        {"undo on empty stack", &UndoManager::undo, false, "Nothing to undo"},
        {"redo on empty stack", &UndoManager::redo, false, "Nothing to redo"},
        {"undo inside group", &UndoManager::undo, true, "inside an open undo group"},
        {"redo inside group", &UndoManager::redo, true, "inside an open undo group"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        undo.removeAllActions();
        number.set(0);
        if (row.insideGroup) {
            number.set(7);
            undo.undo();  // Gives the redo case something to refuse.
            undo.beginUndoGrouping();
            number.set(8);
        } else {
            undo.removeAllActions();
        }
        int before = number.value();
        LogCapture capture;
        (undo.*row.call)();
        EXPECT_EQ(number.value(), before);
        EXPECT_TRUE(capture.contains(row.expectedLine)) << testing::PrintToString(capture.lines());
        if (row.insideGroup)
            undo.endUndoGrouping();
    }
}

TEST_F(UndoManagerTest, UnmatchedEndIsIgnored) {
    undo.setGroupsByEvent(false);
    LogCapture capture;
    undo.endUndoGrouping();
    EXPECT_EQ(undo.groupingLevel(), 0);
    EXPECT_TRUE(capture.contains("without a matching beginUndoGrouping"));
    number.set(1);
    undo.undo();
    EXPECT_EQ(number.value(), 0);
}

TEST_F(UndoManagerTest, ActionNamesFollowTheSteps) {
    undo.setGroupsByEvent(false);
    number.set(1, "Set Quantity");
    undo.beginUndoGrouping();
    number.set(2);
    undo.setActionName("Issue Invoice");
    undo.endUndoGrouping();
    EXPECT_EQ(undo.undoActionName(), "Issue Invoice");
    undo.undo();
    EXPECT_EQ(undo.undoActionName(), "Set Quantity");
    EXPECT_EQ(undo.redoActionName(), "Issue Invoice");
    undo.setActionName("Renamed");  // Names the last step when no group is open.
    EXPECT_EQ(undo.undoActionName(), "Renamed");
}

TEST_F(UndoManagerTest, RemoveAllActionsDropsStacksAndOpenGroups) {
    number.set(1);
    undo.beginUndoGrouping();
    number.set(2);
    undo.removeAllActions();
    EXPECT_EQ(undo.groupingLevel(), 0);
    EXPECT_FALSE(undo.canUndo());
    EXPECT_FALSE(undo.canRedo());
    RunLoop::main().runOnce();
    EXPECT_FALSE(undo.canUndo());
}

TEST_F(UndoManagerTest, GroupObserversHearOutermostGroupsAndReplaysOnly) {
    std::vector<bool> heard;
    uint64_t id = undo.addGroupObserver([&](bool isOpen) { heard.push_back(isOpen); });
    number.set(1);  // The automatic group of this turn is not reported.
    RunLoop::main().runOnce();
    EXPECT_TRUE(heard.empty());

    undo.beginUndoGrouping();
    undo.beginUndoGrouping();
    number.set(2);
    undo.endUndoGrouping();
    EXPECT_EQ(heard, (std::vector<bool>{true}));  // Still inside the outer group.
    undo.endUndoGrouping();
    EXPECT_EQ(heard, (std::vector<bool>{true, false}));

    undo.undo();  // Undo and redo are one open-close pair each.
    undo.redo();
    EXPECT_EQ(heard, (std::vector<bool>{true, false, true, false, true, false}));

    undo.beginUndoGrouping();
    undo.removeAllActions();  // Dropping an open group closes it for the observers too.
    EXPECT_EQ(heard.size(), 8u);
    EXPECT_FALSE(heard.back());

    undo.removeGroupObserver(id);
    undo.beginUndoGrouping();
    undo.endUndoGrouping();
    EXPECT_EQ(heard.size(), 8u);
}

}  // namespace brassline
