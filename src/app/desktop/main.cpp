#include <QApplication>
#include <QStringList>
#include <cstdlib>

#include "app/desktop/DesktopShell.h"
#include "core/Log.h"

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Brassline"));
    QApplication::setOrganizationName(QStringLiteral("Brassline"));
    brassline::setLogEchoesToStandardError(std::getenv("BRASSLINE_VERBOSE") != nullptr);
    brassline::desktop::DesktopShell shell;
    // Files named on the command line open besides the ones of the last session.
    const QStringList arguments = QApplication::arguments().mid(1);
    shell.launch();
    for (const QString& path : arguments) {
        shell.openFile(path);
    }
    QApplication::setQuitOnLastWindowClosed(true);
    return QApplication::exec();
}
