#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QWidget>
#include <optional>
#include <vector>

#include "store/CommandFile.h"

class QListWidget;

namespace brassline::desktop {

class DocumentWindow;
class RunLoopDriver;
class StartWindow;
struct CompanySetup;

// The application around its windows: the model's hooks and process entry, the run loop
// driven from Qt's event loop, one window per open company file, the recent list and the
// start window shown while no file is open. Main thread; one per process.
class DesktopShell : public QObject {
    Q_OBJECT
public:
    explicit DesktopShell(QObject* parent = nullptr);
    ~DesktopShell() override;

    // After launch: the files of the last session reopen, else the last file; with none
    // open the start window shows. Answers how many windows are open.
    size_t launch();
    // The window of the company file at `path`, opened when needed; null with the reason.
    DocumentWindow* openFile(const QString& path, QString* error = nullptr);
    // A new company file after the set-up; null with the reason.
    DocumentWindow* createCompany(const QString& path, const CompanySetup& setup, QString* error = nullptr);
    // The dialogs behind File > New and File > Open; they report failures themselves.
    void chooseNewCompany(QWidget* parent);
    void chooseFileToOpen(QWidget* parent);
    QStringList recentFiles() const;
    void clearRecentFiles();
    void showStartWindow();
    const std::vector<DocumentWindow*>& windows() const { return m_windows; }
    DocumentWindow* windowForDocument(const BLDoc* document) const;
    // Saves every file and remembers the open ones for the next launch; false when a
    // file can't be saved (the user was told).
    bool quit();

Q_SIGNALS:
    void recentFilesChanged();

private:
    DocumentWindow* showWindow(BLDoc& document, std::optional<CommandFile> file = std::nullopt);
    void windowClosed(DocumentWindow* window);

    RunLoopDriver* m_driver;
    StartWindow* m_start = nullptr;
    std::vector<DocumentWindow*> m_windows;
    bool m_quitting = false;
};

// What shows while no company file is open: make one, open one, or one of the recent.
class StartWindow : public QWidget {
    Q_OBJECT
public:
    explicit StartWindow(DesktopShell& shell, QWidget* parent = nullptr);
    void reload();

private:
    DesktopShell& m_shell;
    QListWidget* m_recent;
};

}  // namespace brassline::desktop
