// Opens a company file in the desktop shell and writes pictures of its main views:
//   brassline-desktop-screenshots COMPANY.brassline OUTDIR
// The window is grabbed by Qt itself, so any platform plug-in (xcb under Xvfb, offscreen)
// serves. Exit code 0 when every picture was written.
#include <QApplication>
#include <QDir>
#include <QTableView>
#include <QTimer>
#include <QTreeView>
#include <cstdio>

#include "app/desktop/ClientEditor.h"
#include "app/desktop/DesktopShell.h"
#include "app/desktop/DocumentEditor.h"
#include "app/desktop/DocumentWindow.h"
#include "app/desktop/ObjectTableModel.h"
#include "model/ManagedObject.h"
#include "model/entities/BLSendable.h"

namespace {

using brassline::desktop::DocumentWindow;

void settle() {
    for (int turn = 0; turn < 20; ++turn) {
        QApplication::processEvents();
    }
}

bool grab(QWidget& window, const QString& path) {
    settle();
    const bool written = window.grab().save(path);
    std::printf("%s %s\n", written ? "wrote" : "could not write", path.toLocal8Bit().constData());
    return written;
}

// The richest row of the list: the invoice with the most lines shows the editor best.
int richestRow(brassline::desktop::ObjectTableModel& model) {
    int best = 0;
    size_t most = 0;
    for (int row = 0; row < model.rowCount(); ++row) {
        auto* sendable = dynamic_cast<brassline::BLSendable*>(model.objectAt(row));
        if (sendable != nullptr && sendable->childs().size() > most) {
            most = sendable->childs().size();
            best = row;
        }
    }
    return best;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() != 3) {
        std::fprintf(stderr, "usage: brassline-desktop-screenshots COMPANY.brassline OUTDIR\n");
        return 2;
    }
    QDir().mkpath(arguments[2]);
    const QDir out(arguments[2]);
    brassline::desktop::DesktopShell shell;
    QString error;
    DocumentWindow* window = shell.openFile(arguments[1], &error);
    if (window == nullptr) {
        std::fprintf(stderr, "brassline-desktop-screenshots: %s\n", error.toLocal8Bit().constData());
        return 1;
    }
    window->resize(1360, 820);
    window->show();
    bool ok = true;

    window->showSource(brassline::desktop::Source::Invoices);
    window->listView()->selectRow(1);
    ok = grab(*window, out.filePath(QStringLiteral("invoice-list.png"))) && ok;

    window->showObject(window->listModel()->objectAt(richestRow(*window->listModel())));
    if (auto* editor = window->documentEditor()) {
        editor->itemView()->setCurrentIndex(editor->itemView()->model()->index(1, 1));
    }
    ok = grab(*window, out.filePath(QStringLiteral("document-editor.png"))) && ok;

    window->showSource(brassline::desktop::Source::Clients);
    // A client with a bank account shows every part of the editor filled in.
    int client = 0;
    for (int row = 0; row < window->listModel()->rowCount(); ++row) {
        if (!window->listModel()->objectAt(row)->valueForKey("iban").isNull()) {
            client = row;
        }
    }
    window->showObject(window->listModel()->objectAt(client));
    ok = grab(*window, out.filePath(QStringLiteral("client-editor.png"))) && ok;

    window->showSource(brassline::desktop::Source::Estimates);
    ok = grab(*window, out.filePath(QStringLiteral("estimate-list.png"))) && ok;
    return ok ? 0 : 1;
}
