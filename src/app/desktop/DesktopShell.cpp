#include "app/desktop/DesktopShell.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>
#include <sstream>

#include "app/desktop/CompanySetup.h"
#include "app/desktop/DesktopText.h"
#include "app/desktop/DocumentSession.h"
#include "app/desktop/DocumentWindow.h"
#include "app/desktop/RunLoopDriver.h"
#include "app/desktop/SetupDialog.h"
#include "app/desktop/Sources.h"
#include "layout/LayoutHooks.h"
#include "layout/ZPPaymentCodeNumberTransformers.h"
#include "lifecycle/LifecycleHooks.h"
#include "lifecycle/SendableIssue.h"
#include "money/ItemHooks.h"
#include "money/MoneyHooks.h"
#include "store/BLApplication.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"

namespace brassline::desktop {

DesktopShell::DesktopShell(QObject* parent) : QObject(parent), m_driver(new RunLoopDriver(this)) {
    // Every subsystem answers the model's calls upward before any file opens.
    installMoneyHooks();
    installItemHooks();
    installLifecycleHooks();
    installLayoutHooks();
    installPaymentCodeHooks();
    BLApplication::processEntry();
    // The model's messages during an issue show as a sheet that does not stop the loop.
    issueHooks().showAlert = [](const IssueAlert& alert) {
        auto* box = new QMessageBox(QMessageBox::Information, qs(alert.title), qs(alert.text), QMessageBox::Ok,
                                    QApplication::activeWindow());
        if (!alert.table.empty()) {
            QStringList lines;
            for (const std::string& line : alert.table) {
                lines << qs(line);
            }
            box->setDetailedText(lines.join(QLatin1Char('\n')));
        }
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->open();
    };
}

DesktopShell::~DesktopShell() {
    for (DocumentWindow* window : m_windows) {
        window->disconnect(this);
        delete window;
    }
    delete m_start;
    issueHooks().showAlert = nullptr;
}

size_t DesktopShell::launch() {
    BLApplication::applicationDidFinishLaunching();
    BLDocumentController& controller = BLDocumentController::shared();
    for (size_t index = 0; index < controller.documentCount(); ++index) {
        showWindow(*controller.documentAt(index));
    }
    if (m_windows.empty()) {
        showStartWindow();
    }
    return m_windows.size();
}

DocumentWindow* DesktopShell::windowForDocument(const BLDoc* document) const {
    for (DocumentWindow* window : m_windows) {
        if (&window->session().document() == document) {
            return window;
        }
    }
    return nullptr;
}

DocumentWindow* DesktopShell::showWindow(BLDoc& document, std::optional<CommandFile> file) {
    if (DocumentWindow* open = windowForDocument(&document)) {
        open->show();
        open->raise();
        open->activateWindow();
        return open;
    }
    auto* window = new DocumentWindow(*this, document);
    if (file) {
        window->holdFile(std::move(*file));
    }
    window->setAttribute(Qt::WA_DeleteOnClose);
    connect(window, &DocumentWindow::closed, this, [this, window] { windowClosed(window); });
    m_windows.push_back(window);
    window->show();
    if (m_start != nullptr) {
        m_start->hide();
    }
    Q_EMIT recentFilesChanged();
    return window;
}

void DesktopShell::windowClosed(DocumentWindow* window) {
    std::erase(m_windows, window);
    // A file the window opened closes with its handle; one the launch reopened, here.
    const std::string path = window->session().document().fileURL();
    window->releaseFile();
    BLDocumentController& controller = BLDocumentController::shared();
    if (BLDoc* still = controller.documentForURL(path)) {
        controller.closeDocument(still);
    }
    if (m_windows.empty() && !m_quitting) {
        showStartWindow();
    }
}

DocumentWindow* DesktopShell::openFile(const QString& path, QString* error) {
    const std::string cleaned = QDir::cleanPath(QFileInfo(path).absoluteFilePath()).toStdString();
    std::ostringstream messages;
    std::optional<CommandFile> file = CommandFile::open(cleaned, messages);
    if (!file) {
        if (error != nullptr) {
            *error = commandMessage(messages.str());
        }
        return nullptr;
    }
    BLDoc& document = file->document();
    return showWindow(document, std::move(file));
}

DocumentWindow* DesktopShell::createCompany(const QString& path, const CompanySetup& setup, QString* error) {
    QString file = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    if (!file.endsWith(QStringLiteral(".brassline"))) {
        file += QStringLiteral(".brassline");
    }
    if (QFileInfo::exists(file)) {
        if (error != nullptr) {
            *error = loc("%1 exists already.", file);
        }
        return nullptr;
    }
    std::string reason;
    std::optional<CommandFile> made = desktop::createCompany(file.toStdString(), setup, &reason);
    if (!made) {
        if (error != nullptr) {
            *error = qs(reason);
        }
        return nullptr;
    }
    BLDoc& document = made->document();
    return showWindow(document, std::move(made));
}

void DesktopShell::chooseNewCompany(QWidget* parent) {
    SetupDialog dialog(parent);
    while (dialog.exec() == QDialog::Accepted) {
        QString error;
        if (createCompany(dialog.path(), dialog.setup(), &error) != nullptr) {
            return;
        }
        QMessageBox::warning(&dialog, loc("The company file can't be made"), error);
    }
}

void DesktopShell::chooseFileToOpen(QWidget* parent) {
    // A company file is a folder: it is chosen as a directory.
    const QString path = QFileDialog::getExistingDirectory(parent, loc("Open a company file"), QDir::homePath());
    if (path.isEmpty()) {
        return;
    }
    QString error;
    if (openFile(path, &error) == nullptr) {
        QMessageBox::warning(parent, loc("The company file can't be opened"), error);
    }
}

QStringList DesktopShell::recentFiles() const {
    QStringList files;
    for (const std::string& path : BLDocumentController::shared().recentDocumentURLs()) {
        files << qs(path);
    }
    return files;
}

void DesktopShell::clearRecentFiles() {
    BLDocumentController::shared().clearRecentDocuments();
    Q_EMIT recentFilesChanged();
}

void DesktopShell::showStartWindow() {
    if (m_start == nullptr) {
        m_start = new StartWindow(*this);
    }
    m_start->reload();
    m_start->show();
    m_start->raise();
}

bool DesktopShell::quit() {
    for (DocumentWindow* window : m_windows) {
        QString error;
        if (!window->session().flush(&error)) {
            QMessageBox::critical(window, loc("The company file can't be saved"), error);
            return false;
        }
    }
    BLApplication::applicationWillTerminate();
    m_quitting = true;
    for (DocumentWindow* window : std::vector<DocumentWindow*>(m_windows)) {
        window->close();
    }
    if (m_start != nullptr) {
        m_start->close();
    }
    QApplication::quit();
    return true;
}

StartWindow::StartWindow(DesktopShell& shell, QWidget* parent) : QWidget(parent), m_shell(shell) {
    setWindowTitle(QStringLiteral("Brassline"));
    resize(560, 400);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(28, 24, 28, 24);
    auto* title = new QLabel(QStringLiteral("Brassline"), this);
    QFont font = title->font();
    font.setPointSizeF(font.pointSizeF() * 2);
    font.setBold(true);
    title->setFont(font);
    layout->addWidget(title);
    layout->addWidget(new QLabel(loc("Your clients, estimates and invoices in one company file."), this));
    layout->addSpacing(12);
    auto* buttons = new QHBoxLayout;
    auto* create = new QPushButton(glyphIcon(Glyph::Add), loc("New company…"), this);
    auto* open = new QPushButton(loc("Open…"), this);
    create->setDefault(true);
    buttons->addWidget(create);
    buttons->addWidget(open);
    buttons->addStretch();
    layout->addLayout(buttons);
    layout->addSpacing(12);
    layout->addWidget(new QLabel(loc("Recent company files"), this));
    m_recent = new QListWidget(this);
    layout->addWidget(m_recent, 1);
    connect(create, &QPushButton::clicked, this, [this] { m_shell.chooseNewCompany(this); });
    connect(open, &QPushButton::clicked, this, [this] { m_shell.chooseFileToOpen(this); });
    connect(m_recent, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        QString error;
        if (m_shell.openFile(item->data(Qt::UserRole).toString(), &error) == nullptr) {
            QMessageBox::warning(this, loc("The company file can't be opened"), error);
        }
    });
}

void StartWindow::reload() {
    m_recent->clear();
    for (const QString& path : m_shell.recentFiles()) {
        const QFileInfo info(path);
        auto* item = new QListWidgetItem(glyphIcon(Glyph::Layout),
                                         QStringLiteral("%1\n%2").arg(info.completeBaseName(), info.absolutePath()));
        item->setData(Qt::UserRole, path);
        if (!info.exists()) {
            item->setFlags(item->flags() & ~Qt::ItemIsEnabled);
        }
        m_recent->addItem(item);
    }
}

}  // namespace brassline::desktop
