#pragma once

#include <QMainWindow>
#include <optional>
#include <vector>

#include "app/desktop/Sources.h"
#include "store/CommandFile.h"

class QAction;
class QLabel;
class QLineEdit;
class QListWidget;
class QMenu;
class QStackedWidget;
class QTableView;
class QTimer;

namespace brassline {
class BLDoc;
class BLSendable;
class ManagedObject;
}  // namespace brassline

namespace brassline::desktop {

class ClientEditor;
class DesktopShell;
class DocumentEditor;
class DocumentSession;
class ObjectTableModel;

// The window of one company file: the source list, the list of the chosen source with
// its search field, and the editor of the chosen client or document. The actions (issue,
// unlock, convert, duplicate, settle, delete, undo and redo) call the model's operations
// and show their answers; each is one undo step.
class DocumentWindow : public QMainWindow {
    Q_OBJECT
public:
    DocumentWindow(DesktopShell& shell, BLDoc& document, QWidget* parent = nullptr);
    ~DocumentWindow() override;

    DocumentSession& session() { return *m_session; }
    // The window keeps the file open while it holds the handle of its opening.
    void holdFile(CommandFile file) { m_file.emplace(std::move(file)); }
    void releaseFile() { m_file.reset(); }
    void showSource(Source source);
    Source currentSource() const { return m_source; }
    // Opens the editor of a client or a sendable; false for other objects.
    bool showObject(ManagedObject* object);
    void showList();

    // The actions, as the menus call them; each reports its failure in a message.
    ManagedObject* newObject(const std::string& entity);
    bool issueCurrent(bool askFirst = true);
    bool unlockCurrent();
    BLSendable* duplicateCurrent();
    BLSendable* convertCurrent(const std::string& target);
    bool settleCurrent(int16_t mode);
    bool deleteCurrent();
    void openPreferences();

    // For tests, the benchmark and screenshots.
    ObjectTableModel* listModel() const { return m_listModel; }
    QTableView* listView() const { return m_listView; }
    QLineEdit* searchField() const { return m_search; }
    DocumentEditor* documentEditor() const;
    ClientEditor* clientEditor() const;
    QAction* action(const QString& name) const;
    // The last message shown to the person (a refusal, a note of the issue).
    const QString& lastMessage() const { return m_lastMessage; }

Q_SIGNALS:
    void closed();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildActions();
    void buildMenus();
    void buildCentre();
    void refresh();
    void updateActions();
    void rebuildRecentMenu();
    void tell(const QString& title, const QString& text);
    // The sendables the actions work on: the one in the editor, else the selected rows.
    std::vector<BLSendable*> selectedSendables() const;
    ManagedObject* currentObject() const;
    QAction* makeAction(const QString& name, const QString& text, Glyph glyph, bool withIcon = true);

    DesktopShell& m_shell;
    std::optional<CommandFile> m_file;
    DocumentSession* m_session;
    Source m_source = Source::Invoices;
    QListWidget* m_sources = nullptr;
    QStackedWidget* m_stack = nullptr;
    QWidget* m_listPage = nullptr;
    QLabel* m_listTitle = nullptr;
    QLabel* m_listCount = nullptr;
    QLineEdit* m_search = nullptr;
    QTableView* m_listView = nullptr;
    ObjectTableModel* m_listModel = nullptr;
    QWidget* m_editorPage = nullptr;
    QWidget* m_editor = nullptr;
    QMenu* m_recentMenu = nullptr;
    QTimer* m_refreshTimer = nullptr;
    QString m_lastMessage;
    bool m_listDirty = false;
    bool m_closed = false;  // The file is let go: nothing may read it any more.
    std::vector<QAction*> m_actions;
};

}  // namespace brassline::desktop
