#include "CommandLine.h"
#include "TrayApplication.h"

#include <QApplication>
#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication::setOrganizationName(QStringLiteral("Tolkaro"));
    QCoreApplication::setApplicationName(QStringLiteral("Tolkaro"));
    QCoreApplication::setApplicationVersion(QStringLiteral(TOLKARO_VERSION));

    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    CommandLine commandLine(arguments);

    // Everything but the tray runs without a display.
    if (commandLine.action() != CommandLine::Action::RunTray) {
        QCoreApplication application(argc, argv);
        return commandLine.run(application);
    }

    QApplication application(argc, argv);
    return runTrayApplication(application);
}
