#include "app/TrayApplication.h"

#include "app/AppDelegate.h"
#include "app/ApplicationBus.h"
#include "common/Log.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QApplication>
#include <QIcon>
#include <QSocketNotifier>
#include <QTimer>
#include <QWindow>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// SIGTERM (session end, service stop) and SIGINT are turned into an orderly quit: the
// handler only writes a byte; the event loop reads it and quits like the Quit item does.
int signalPipe[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

QSocketNotifier *watchTerminationSignals(AppDelegate &delegate)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return nullptr;
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);

    auto *notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &delegate);
    QObject::connect(notifier, &QSocketNotifier::activated, &delegate, [&delegate] {
        char byte = 0;
        [[maybe_unused]] const ssize_t read = ::read(signalPipe[0], &byte, 1);
        delegate.terminate(nullptr);
    });
    return notifier;
}

// The application's accessibility root as Qt builds it, with every visible popup (an open
// menu) appended to its children. The menus already name the application as their parent;
// this makes the tree agree, so a tree walk from the application reaches their items.
class AccessibleApplicationWithMenus : public QAccessibleApplication
{
public:
    int childCount() const override
    {
        return QAccessibleApplication::childCount() + int(openPopups().size());
    }

    QAccessibleInterface *child(int index) const override
    {
        const int windows = QAccessibleApplication::childCount();
        if (index < windows)
            return QAccessibleApplication::child(index);
        const QList<QAccessibleInterface *> popups = openPopups();
        return index - windows < popups.size() ? popups.at(index - windows) : nullptr;
    }

    int indexOfChild(const QAccessibleInterface *child) const override
    {
        const int index = QAccessibleApplication::indexOfChild(child);
        if (index >= 0)
            return index;
        const int popup = int(openPopups().indexOf(const_cast<QAccessibleInterface *>(child)));
        return popup < 0 ? -1 : QAccessibleApplication::childCount() + popup;
    }

private:
    static QList<QAccessibleInterface *> openPopups()
    {
        QList<QAccessibleInterface *> popups;
        for (QWindow *window : QGuiApplication::topLevelWindows()) {
            if (window->type() != Qt::Popup || !window->isVisible())
                continue;
            if (QAccessibleInterface *root = window->accessibleRoot())
                popups.append(root);
        }
        return popups;
    }
};

QAccessibleInterface *accessibleApplicationFactory(const QString &className, QObject *object)
{
    if (object && object == QCoreApplication::instance() &&
        className == QLatin1String("QApplication"))
        return new AccessibleApplicationWithMenus;
    return nullptr;
}

} // namespace

void installAccessibleApplication()
{
    QAccessible::installFactory(accessibleApplicationFactory);
}

QString missingGraphicalSession(const QStringList &arguments)
{
    // "-platform" or "-display" on the command line, or a platform such as "offscreen" or
    // "vnc" that needs no session: Qt knows better than these variables.
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("-platform") || argument == QLatin1String("--platform") ||
            argument == QLatin1String("-display") || argument == QLatin1String("--display"))
            return {};
    }
    const QString platform = qEnvironmentVariable("QT_QPA_PLATFORM");
    if (!platform.isEmpty() && !platform.startsWith(QLatin1String("xcb")) &&
        !platform.startsWith(QLatin1String("wayland")))
        return {};
    if (!qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return {};
    return QStringLiteral(
        "tolkaro: no graphical session found (DISPLAY and WAYLAND_DISPLAY are not set).\n"
        "Tolkaro lives in the system tray of a desktop session; start it from there.\n"
        "Without a desktop, 'tolkaro --translate <text>' translates on this console.\n");
}

int runTrayApplication(QApplication &app)
{
    // Closing the preferences or the typing panel never ends Tolkaro.
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setApplicationDisplayName(QStringLiteral("Tolkaro"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/LightAndDarkIcon.svg")));

    switch (ApplicationBus::claimSingleInstance(QApplication::arguments())) {
    case ApplicationBus::Claim::AlreadyRunning:
        std::printf("Tolkaro is already running.\n");
        std::fflush(stdout);
        return 0;
    case ApplicationBus::Claim::NoBus:
        tolkaro::logLine(QStringLiteral("No session bus: running without the one-instance check"));
        break;
    case ApplicationBus::Claim::Owner:
        break;
    }

    AppDelegate delegate;
    watchTerminationSignals(delegate);
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate,
                     &AppDelegate::applicationWillTerminate);

    QObject::connect(&delegate, &AppDelegate::aboutToRestart, &delegate,
                     &ApplicationBus::releaseSingleInstance);
    QObject::connect(&delegate, &AppDelegate::restartFailed, &delegate,
                     [] { ApplicationBus::claimSingleInstance({}); });

    ApplicationBusObject busObject(delegate);
    busObject.exportOnSessionBus();

    // Start-up runs inside the event loop, so its modal alerts and a quit during them
    // behave as they do later.
    QTimer::singleShot(0, &delegate, [&delegate] {
        if (!delegate.applicationDidFinishLaunching())
            delegate.terminate(nullptr);
    });
    const int status = app.exec();
    delegate.applicationWillTerminate();
    return status;
}
