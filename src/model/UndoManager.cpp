#include "model/UndoManager.h"

#include <utility>
#include <vector>

#include "core/Log.h"
#include "model/RunLoop.h"

namespace brassline {

namespace {

struct Group {
    std::vector<UndoManager::Action> actions;
    std::string name;
};

enum class Replay { None, Undoing, Redoing };

}  // namespace

struct UndoManager::Impl {
    std::vector<Group> undoStack;
    std::vector<Group> redoStack;

    // Nested groups are flattened into one: undoing runs the actions newest first either
    // way, so the nesting itself carries nothing.
    Group open;
    int explicitLevel = 0;
    bool automaticOpen = false;
    bool groupsByEvent = true;

    Replay replay = Replay::None;
    Group replayed;  // The inverse step collected while undoing or redoing.
    int replayLevel = 0;

    int disableCount = 0;

    std::vector<std::pair<uint64_t, GroupObserver>> groupObservers;
    uint64_t nextGroupObserverId = 1;

    void tellGroupObservers(bool isOpen) {
        for (const auto& [id, observer] : groupObservers)
            observer(isOpen);
    }

    RunLoop* observedLoop = nullptr;
    RunLoop::ObserverId observerId = 0;

    ~Impl() {
        if (observedLoop != nullptr)
            observedLoop->removeEndOfTurnObserver(observerId);
    }

    void closeOpenGroup() {
        if (!open.actions.empty())
            undoStack.push_back(std::move(open));
        open = Group{};
    }

    void closeAutomaticGroup() {
        if (automaticOpen && explicitLevel == 0) {
            automaticOpen = false;
            closeOpenGroup();
        }
    }

    // Only the main loop's turns can close an automatic group; elsewhere nobody would.
    bool canGroupByEvent() {
        if (!groupsByEvent)
            return false;
        RunLoop& loop = RunLoop::main();
        if (!RunLoop::isMainThread())
            return false;
        if (observedLoop == nullptr) {
            observedLoop = &loop;
            observerId = loop.addEndOfTurnObserver([this] { closeAutomaticGroup(); });
        }
        return true;
    }

    void replayTop(Replay kind) {
        std::vector<Group>& from = kind == Replay::Undoing ? undoStack : redoStack;
        std::vector<Group>& to = kind == Replay::Undoing ? redoStack : undoStack;
        Group step = std::move(from.back());
        from.pop_back();
        replay = kind;
        replayed = Group{{}, step.name};
        replayLevel = 0;
        tellGroupObservers(true);
        for (auto it = step.actions.rbegin(); it != step.actions.rend(); ++it)
            (*it)();
        replay = Replay::None;
        tellGroupObservers(false);
        if (!replayed.actions.empty())
            to.push_back(std::move(replayed));
        replayed = Group{};
    }

    // Shared checks of undo and redo; answers whether the replay may go ahead.
    bool mayReplay(const char* what) {
        if (replay != Replay::None) {
            logMessage("Cannot %s while an undo or redo is running.", what);
            return false;
        }
        if (explicitLevel > 0) {
            logMessage("Cannot %s inside an open undo group (level %d).", what, explicitLevel);
            return false;
        }
        closeAutomaticGroup();
        return true;
    }
};

UndoManager::UndoManager() : m_impl(std::make_unique<Impl>()) {}

UndoManager::~UndoManager() = default;

void UndoManager::beginUndoGrouping() {
    if (m_impl->replay != Replay::None) {
        ++m_impl->replayLevel;
        return;
    }
    if (++m_impl->explicitLevel == 1)
        m_impl->tellGroupObservers(true);
}

void UndoManager::endUndoGrouping() {
    Impl& d = *m_impl;
    if (d.replay != Replay::None) {
        if (d.replayLevel == 0)
            logMessage("endUndoGrouping without a matching beginUndoGrouping during undo or redo.");
        else
            --d.replayLevel;
        return;
    }
    if (d.explicitLevel == 0) {
        logMessage("endUndoGrouping without a matching beginUndoGrouping.");
        return;
    }
    --d.explicitLevel;
    // With the automatic group around it, the explicit group is part of the event's step.
    if (d.explicitLevel == 0 && !d.automaticOpen)
        d.closeOpenGroup();
    if (d.explicitLevel == 0)
        d.tellGroupObservers(false);
}

int UndoManager::groupingLevel() const {
    return m_impl->explicitLevel + (m_impl->automaticOpen ? 1 : 0);
}

void UndoManager::setGroupsByEvent(bool groupsByEvent) {
    m_impl->groupsByEvent = groupsByEvent;
}

bool UndoManager::groupsByEvent() const {
    return m_impl->groupsByEvent;
}

void UndoManager::registerUndo(Action action, std::string actionName) {
    Impl& d = *m_impl;
    if (d.disableCount > 0)
        return;
    if (d.replay != Replay::None) {
        d.replayed.actions.push_back(std::move(action));
        if (!actionName.empty())
            d.replayed.name = std::move(actionName);
        return;
    }
    d.redoStack.clear();
    if (d.explicitLevel == 0 && !d.automaticOpen) {
        if (!d.canGroupByEvent()) {
            d.undoStack.push_back(Group{{std::move(action)}, std::move(actionName)});
            return;
        }
        d.automaticOpen = true;
    }
    d.open.actions.push_back(std::move(action));
    if (!actionName.empty())
        d.open.name = std::move(actionName);
}

void UndoManager::setActionName(std::string name) {
    Impl& d = *m_impl;
    if (d.replay != Replay::None)
        d.replayed.name = std::move(name);
    else if (d.explicitLevel > 0 || d.automaticOpen)
        d.open.name = std::move(name);
    else if (!d.undoStack.empty())
        d.undoStack.back().name = std::move(name);
}

bool UndoManager::canUndo() const {
    const Impl& d = *m_impl;
    if (d.replay != Replay::None || d.explicitLevel > 0)
        return false;
    return !d.undoStack.empty() || (d.automaticOpen && !d.open.actions.empty());
}

bool UndoManager::canRedo() const {
    const Impl& d = *m_impl;
    // An open automatic group holds a new action, which already emptied the redo stack.
    return d.replay == Replay::None && d.explicitLevel == 0 && !d.redoStack.empty();
}

void UndoManager::undo() {
    Impl& d = *m_impl;
    if (!d.mayReplay("undo"))
        return;
    if (d.undoStack.empty()) {
        logMessage("Nothing to undo.");
        return;
    }
    d.replayTop(Replay::Undoing);
}

void UndoManager::redo() {
    Impl& d = *m_impl;
    if (!d.mayReplay("redo"))
        return;
    if (d.redoStack.empty()) {
        logMessage("Nothing to redo.");
        return;
    }
    d.replayTop(Replay::Redoing);
}

bool UndoManager::isUndoing() const {
    return m_impl->replay == Replay::Undoing;
}

bool UndoManager::isRedoing() const {
    return m_impl->replay == Replay::Redoing;
}

void UndoManager::disableUndoRegistration() {
    ++m_impl->disableCount;
}

void UndoManager::enableUndoRegistration() {
    if (m_impl->disableCount == 0) {
        logMessage("enableUndoRegistration without a matching disableUndoRegistration.");
        return;
    }
    --m_impl->disableCount;
}

bool UndoManager::isUndoRegistrationEnabled() const {
    return m_impl->disableCount == 0;
}

void UndoManager::removeAllActions() {
    Impl& d = *m_impl;
    d.undoStack.clear();
    d.redoStack.clear();
    d.open = Group{};
    bool wasOpen = d.explicitLevel > 0;
    d.explicitLevel = 0;
    d.automaticOpen = false;
    if (wasOpen)
        d.tellGroupObservers(false);
}

std::string UndoManager::undoActionName() const {
    const Impl& d = *m_impl;
    if (d.automaticOpen && !d.open.actions.empty())
        return d.open.name;
    return d.undoStack.empty() ? std::string() : d.undoStack.back().name;
}

uint64_t UndoManager::addGroupObserver(GroupObserver observer) {
    uint64_t id = m_impl->nextGroupObserverId++;
    m_impl->groupObservers.emplace_back(id, std::move(observer));
    return id;
}

void UndoManager::removeGroupObserver(uint64_t id) {
    auto& observers = m_impl->groupObservers;
    for (auto it = observers.begin(); it != observers.end(); ++it) {
        if (it->first == id) {
            observers.erase(it);
            return;
        }
    }
}

std::string UndoManager::redoActionName() const {
    const Impl& d = *m_impl;
    return d.redoStack.empty() ? std::string() : d.redoStack.back().name;
}

}  // namespace brassline
