#pragma once

#include <functional>
#include <memory>
#include <string>

namespace brassline {

// Records inverse actions in groups. Changes made while registration is disabled are not
// recorded; disable/enable nest and restore only what was on. Undoing a group registers
// its inverse for redo; registering a new action clears the redo stack.
class UndoManager {
public:
    using Action = std::function<void()>;

    UndoManager();
    ~UndoManager();
    UndoManager(const UndoManager&) = delete;
    UndoManager& operator=(const UndoManager&) = delete;

    // Groups nest; only the outermost end closes an undoable step. Actions registered
    // outside any group open and close a group of their own on the next run-loop turn
    // (groupsByEvent) or immediately when no run loop drives it.
    void beginUndoGrouping();
    void endUndoGrouping();
    int groupingLevel() const;
    void setGroupsByEvent(bool groupsByEvent);

    void registerUndo(Action action, std::string actionName = {});
    void setActionName(std::string name);

    bool canUndo() const;
    bool canRedo() const;
    void undo();
    void redo();
    bool isUndoing() const;
    bool isRedoing() const;

    void disableUndoRegistration();
    void enableUndoRegistration();
    bool isUndoRegistrationEnabled() const;
    void removeAllActions();

    std::string undoActionName() const;
    std::string redoActionName() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace brassline
