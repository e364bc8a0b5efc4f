#include "CommandLine.h"
#include "TrayApplication.h"

#include "common/Log.h"
#include "platform/Platform.h"

#include <QApplication>
#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Tolkaro"));
    QCoreApplication::setApplicationName(QStringLiteral("Tolkaro"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TOLKARO_VERSION));

    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    CommandLine commandLine(arguments);
    if (commandLine.verbose())
        tolkaro::setVerbose(true);

    // Everything but the tray runs without a display.
    if (commandLine.action() != CommandLine::Action::RunTray) {
        QCoreApplication application(argc, argv);
        return commandLine.run(application);
    }

    // Qt's own message would blame the installation.
    if (const QString missing = missingGraphicalSession(arguments); !missing.isEmpty()) {
        std::fputs(qPrintable(missing), stderr);
        return 1;
    }
    Platform::preferXWaylandForOwnWindows();
    // Qt's accessibility bridge otherwise looks only once, at start, at whether a screen
    // reader runs; Tolkaro often switches accessibility on itself after that (the permission
    // dialog), and its menus and windows must be readable whenever it is on.
    if (!qEnvironmentVariableIsSet("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"))
        qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
    installAccessibleApplication();
    QApplication application(argc, argv);
    return runTrayApplication(application);
}
