#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace brassline {

// Records inverse actions in groups. Changes made while registration is disabled are not
// recorded; disable/enable nest and restore only what was on. Undoing a group registers
// its inverse for redo; registering a new action clears the redo stack. Belongs to one
// thread (normally the main one) and is not thread-safe.
class UndoManager {
public:
    using Action = std::function<void()>;
    // Told true when the outermost explicit group opens or an undo or redo starts, false
    // when that group closes or the replay ends. Automatic event groups are not reported.
    using GroupObserver = std::function<void(bool isOpen)>;

    UndoManager();
    ~UndoManager();
    UndoManager(const UndoManager&) = delete;
    UndoManager& operator=(const UndoManager&) = delete;

    // Groups nest; only the outermost end closes an undoable step, and an empty step is
    // dropped. An end without a begin is logged and ignored.
    void beginUndoGrouping();
    void endUndoGrouping();
    int groupingLevel() const;  // Explicit groups plus the automatic one when open.
    // On (the default): actions registered outside any group collect in one automatic
    // group that closes at the end of the current RunLoop::main() turn, or when undo() is
    // called. Off, or on a thread other than the main one: each such action is a step.
    // The first such registration calls RunLoop::main(), which claims the main thread.
    void setGroupsByEvent(bool groupsByEvent);
    bool groupsByEvent() const;

    // While undoing, the action goes to the redo step being built; while redoing, to the
    // undo step. A name, when given, names the step it joins.
    void registerUndo(Action action, std::string actionName = {});
    // Names the open step, else the step being undone or redone, else the last step.
    void setActionName(std::string name);

    // Whether undo() or redo() would do something now.
    bool canUndo() const;
    bool canRedo() const;
    // Runs the last step's actions newest first. On an empty stack, inside an explicit
    // group or while already undoing or redoing: nothing happens and a line is logged.
    void undo();
    void redo();
    bool isUndoing() const;
    bool isRedoing() const;

    void disableUndoRegistration();
    void enableUndoRegistration();
    bool isUndoRegistrationEnabled() const;
    // Drops both stacks and any open group; the disable count is kept.
    void removeAllActions();

    std::string undoActionName() const;
    std::string redoActionName() const;

    // Observers run synchronously on the manager's thread; ids are never 0. An observer
    // may not add or remove observers while it is being told.
    uint64_t addGroupObserver(GroupObserver observer);
    void removeGroupObserver(uint64_t id);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace brassline
