#include "app/desktop/DocumentSession.h"

#include <QTimer>
#include <string>

#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/Notifications.h"
#include "model/UndoManager.h"
#include "store/BLDoc.h"

namespace brassline::desktop {

namespace {

// Saving after a pause in the work keeps typing fast and a crash from costing more than
// the last second.
constexpr int kSaveDelayMilliseconds = 800;

}  // namespace

DocumentSession::DocumentSession(BLDoc& document, QObject* parent)
    : QObject(parent), m_document(document), m_saveTimer(new QTimer(this)) {
    m_saveTimer->setSingleShot(true);
    m_saveTimer->setInterval(kSaveDelayMilliseconds);
    connect(m_saveTimer, &QTimer::timeout, this, [this] {
        QString error;
        if (!save(&error)) {
            Q_EMIT saveFailed(error);
        }
    });
    // Changes that reach the context outside the window's own actions (run-loop work of
    // the model, a merge from another device) refresh the views too.
    m_observer = NotificationCenter::defaultCenter().addObserver(
        kObjectsDidChangeNotification, &document.managedObjectContext(), [this](const Notification&) {
            if (!m_inAction) {
                Q_EMIT changed();
            }
        });
}

DocumentSession::~DocumentSession() {
    NotificationCenter::defaultCenter().removeObserver(m_observer);
}

ManagedObjectContext& DocumentSession::context() {
    return m_document.managedObjectContext();
}

UndoManager* DocumentSession::undoManager() {
    return context().undoManager();
}

void DocumentSession::perform(const QString& name, const std::function<void()>& work) {
    UndoManager* undo = undoManager();
    m_inAction = true;
    if (undo != nullptr) {
        undo->beginUndoGrouping();
        undo->setActionName(name.toStdString());
    }
    work();
    if (undo != nullptr) {
        undo->endUndoGrouping();
    }
    afterChange();
}

void DocumentSession::beginLongStep(const QString& name) {
    if (m_longStepOpen) {
        return;
    }
    m_longStepOpen = true;
    m_longStepChanged = false;
    if (UndoManager* undo = undoManager()) {
        undo->beginUndoGrouping();
        undo->setActionName(name.toStdString());
    }
}

void DocumentSession::endLongStep(bool keep) {
    if (!m_longStepOpen) {
        return;
    }
    m_longStepOpen = false;
    UndoManager* undo = undoManager();
    m_inAction = true;
    if (undo != nullptr) {
        undo->endUndoGrouping();
        // Only a step that changed something has an entry of its own to take back.
        if (!keep && m_longStepChanged && undo->canUndo()) {
            undo->undo();
        }
    }
    afterChange();
}

void DocumentSession::noteChange() {
    m_longStepChanged = m_longStepChanged || m_longStepOpen;
    m_inAction = true;
    context().processPendingChanges();
    m_inAction = false;
    scheduleSave();
}

bool DocumentSession::canUndo() const {
    const UndoManager* undo = m_document.managedObjectContext().undoManager();
    return undo != nullptr && !m_longStepOpen && undo->canUndo();
}

bool DocumentSession::canRedo() const {
    const UndoManager* undo = m_document.managedObjectContext().undoManager();
    return undo != nullptr && !m_longStepOpen && undo->canRedo();
}

QString DocumentSession::undoName() const {
    const UndoManager* undo = m_document.managedObjectContext().undoManager();
    return undo != nullptr ? QString::fromStdString(undo->undoActionName()) : QString();
}

QString DocumentSession::redoName() const {
    const UndoManager* undo = m_document.managedObjectContext().undoManager();
    return undo != nullptr ? QString::fromStdString(undo->redoActionName()) : QString();
}

void DocumentSession::undo() {
    if (!canUndo()) {
        return;
    }
    m_inAction = true;
    undoManager()->undo();
    afterChange();
}

void DocumentSession::redo() {
    if (!canRedo()) {
        return;
    }
    m_inAction = true;
    undoManager()->redo();
    afterChange();
}

bool DocumentSession::save(QString* error) {
    m_saveTimer->stop();
    std::string reason;
    if (!m_document.save(&reason)) {
        if (error != nullptr) {
            *error = QString::fromStdString(reason);
        }
        return false;
    }
    return true;
}

bool DocumentSession::flush(QString* error) {
    if (!m_saveTimer->isActive() && !context().hasChanges()) {
        return true;
    }
    return save(error);
}

void DocumentSession::afterChange() {
    m_inAction = true;
    context().processPendingChanges();
    m_inAction = false;
    Q_EMIT changed();
    scheduleSave();
}

void DocumentSession::scheduleSave() {
    m_saveTimer->start();
}

}  // namespace brassline::desktop
