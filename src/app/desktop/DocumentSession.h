#pragma once

#include <QObject>
#include <QString>
#include <cstdint>
#include <functional>

class QTimer;

namespace brassline {
class BLDoc;
class ManagedObjectContext;
class UndoManager;
}  // namespace brassline

namespace brassline::desktop {

// The window's hold on one open company file: every user action runs through perform()
// as one named step of the runtime's undo manager, then the file is saved shortly after.
// Views listen to changed() and read the model again. Main thread; the document belongs
// to the document controller and must outlive the session.
class DocumentSession : public QObject {
    Q_OBJECT
public:
    explicit DocumentSession(BLDoc& document, QObject* parent = nullptr);
    ~DocumentSession() override;

    BLDoc& document() { return m_document; }
    ManagedObjectContext& context();
    UndoManager* undoManager();

    // One user action: an undo group named `name` around `work`, the pending changes
    // posted, changed() told and a save scheduled.
    void perform(const QString& name, const std::function<void()>& work);
    // A step that spans several events (typing into a field): changes made between begin
    // and end are one undo step. end(false) takes them back.
    void beginLongStep(const QString& name);
    void endLongStep(bool keep);
    bool isInLongStep() const { return m_longStepOpen; }
    // Changes made inside a long step, told to the views without closing the step.
    void noteChange();

    bool canUndo() const;
    bool canRedo() const;
    QString undoName() const;
    QString redoName() const;
    void undo();
    void redo();

    // Saves now; false with the store's reason in `error`.
    bool save(QString* error = nullptr);
    // Saves now if a save is pending.
    bool flush(QString* error = nullptr);

Q_SIGNALS:
    void changed();
    void saveFailed(const QString& message);

private:
    void afterChange();
    void scheduleSave();

    BLDoc& m_document;
    QTimer* m_saveTimer;
    uint64_t m_observer = 0;
    bool m_longStepOpen = false;
    bool m_longStepChanged = false;
    bool m_inAction = false;
};

}  // namespace brassline::desktop
