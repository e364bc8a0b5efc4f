// tolkaro-bench-startup: how long `tolkaro` takes from exec to its icon docked in the system
// tray (median over N runs), and what it costs once idle: resident memory 10 s after
// start-up and wake-ups (context switches of all its threads) over the 10 s after that. Run
// inside the test desktop, which has a tray:
//
//   scripts/test-desktop.sh --no-targets -- build/bench/tolkaro-bench-startup [RUNS] [TOLKARO]
//
// Each run starts with a configuration of a second launch (no welcome alert) in a fresh
// directory. "Docked" is the moment the tray reparents the icon's window into itself, seen
// as a ReparentNotify on the root window: no polling, no help from tolkaro.

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <cstdio>
#include <poll.h>

namespace {

constexpr int kDefaultRuns = 15;
constexpr int kDockTimeoutMs = 10000;
constexpr int kIdleSeconds = 10;

int ignoreXErrors(Display *, XErrorEvent *)
{
    return 0;
}

bool hasClass(Display *display, Window window, const char *windowClass)
{
    XClassHint hint{};
    if (!XGetClassHint(display, window, &hint))
        return false;
    const bool match = qstrcmp(hint.res_class, windowClass) == 0;
    XFree(hint.res_name);
    XFree(hint.res_class);
    return match;
}

// Waits for a window of class Tolkaro to be reparented away from the root; answers the
// elapsed milliseconds, or -1.
double waitForDock(Display *display, const QElapsedTimer &clock)
{
    const int fd = ConnectionNumber(display);
    while (clock.elapsed() < kDockTimeoutMs) {
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type == ReparentNotify &&
                event.xreparent.parent != DefaultRootWindow(display) &&
                hasClass(display, event.xreparent.window, "Tolkaro"))
                return clock.nsecsElapsed() / 1e6;
        }
        pollfd wait{fd, POLLIN, 0};
        poll(&wait, 1, 50);
    }
    return -1;
}

QProcessEnvironment secondLaunchEnvironment(const QTemporaryDir &config)
{
    QDir().mkpath(config.filePath(QStringLiteral("Tolkaro")));
    QFile ini(config.filePath(QStringLiteral("Tolkaro/Tolkaro.conf")));
    if (ini.open(QIODevice::WriteOnly))
        ini.write("[General]\nHasBeenLaunchedBefore=true\nHasBeenLaunchedAtLeastOnce=true\n"
                  "previouslyUsedLanguageCode=en\n");
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    return environment;
}

QMap<QString, qint64> procStatus(const QString &path)
{
    QMap<QString, qint64> values;
    QFile status(path);
    if (!status.open(QIODevice::ReadOnly))
        return values;
    for (const QByteArray &line : status.readAll().split('\n')) {
        const int colon = line.indexOf(':');
        if (colon > 0)
            values.insert(QString::fromLatin1(line.left(colon)),
                          line.mid(colon + 1).trimmed().split(' ').value(0).toLongLong());
    }
    return values;
}

QMap<QString, qint64> procStatus(qint64 pid)
{
    return procStatus(QStringLiteral("/proc/%1/status").arg(pid));
}

// Context switches of every thread of the process: each one is a wake-up.
qint64 wakeUps(qint64 pid)
{
    qint64 total = 0;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QMap<QString, qint64> status =
            procStatus(tasks.filePath(task) + QStringLiteral("/status"));
        total += status.value(QStringLiteral("voluntary_ctxt_switches")) +
                 status.value(QStringLiteral("nonvoluntary_ctxt_switches"));
    }
    return total;
}

// CPU time all threads of the process have used so far, in milliseconds (the scheduler's
// nanosecond count): unlike the wall clock, it hardly depends on what else the machine does.
double cpuMilliseconds(qint64 pid)
{
    qint64 nanoseconds = 0;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile schedstat(tasks.filePath(task) + QStringLiteral("/schedstat"));
        if (schedstat.open(QIODevice::ReadOnly))
            nanoseconds += schedstat.readAll().split(' ').value(0).toLongLong();
    }
    return nanoseconds / 1e6;
}

void stop(QProcess &process)
{
    process.terminate();
    if (!process.waitForFinished(5000)) {
        process.kill();
        process.waitForFinished(2000);
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int runs = arguments.size() > 1 ? qMax(1, arguments[1].toInt()) : kDefaultRuns;
    const QString tolkaro = arguments.size() > 2 ? arguments[2] : QStringLiteral(TOLKARO_BINARY);

    Display *display = XOpenDisplay(nullptr);
    if (!display) {
        std::fprintf(stderr, "no X display: run inside scripts/test-desktop.sh\n");
        return 1;
    }
    XSetErrorHandler(ignoreXErrors);
    XSelectInput(display, DefaultRootWindow(display), SubstructureNotifyMask);
    XFlush(display);

    QList<double> startups;
    QList<double> cpuTimes;
    for (int run = 0; run < runs; ++run) {
        QTemporaryDir config;
        QProcess process;
        process.setProcessEnvironment(secondLaunchEnvironment(config));
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        XSync(display, True); // drop what earlier runs left behind
        QElapsedTimer clock;
        clock.start();
        process.start(tolkaro, {});
        const double ms = waitForDock(display, clock);
        if (ms < 0) {
            std::fprintf(stderr, "run %d: the icon never docked\n", run + 1);
            stop(process);
            return 1;
        }
        startups.append(ms);
        cpuTimes.append(cpuMilliseconds(process.processId()));
        stop(process);
    }
    const auto median = [](QList<double> values) {
        std::sort(values.begin(), values.end());
        const qsizetype middle = values.size() / 2;
        return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    };
    std::sort(startups.begin(), startups.end());
    std::printf(
        "startup (exec to tray icon docked), %d runs: median %.1f ms, min %.1f ms, max %.1f ms\n",
        runs, median(startups), startups.first(), startups.last());
    std::printf("CPU time used by then, all threads: median %.1f ms\n", median(cpuTimes));

    // Idle cost: one more start, then 10 s of nothing.
    QTemporaryDir config;
    QProcess process;
    process.setProcessEnvironment(secondLaunchEnvironment(config));
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QElapsedTimer clock;
    clock.start();
    process.start(tolkaro, {});
    if (waitForDock(display, clock) < 0) {
        std::fprintf(stderr, "idle run: the icon never docked\n");
        stop(process);
        return 1;
    }
    QThread::sleep(kIdleSeconds);
    const QMap<QString, qint64> status = procStatus(process.processId());
    std::printf("idle, %d s after start-up: RSS %.1f MB (peak %.1f MB)\n", kIdleSeconds,
                status.value(QStringLiteral("VmRSS")) / 1024.0,
                status.value(QStringLiteral("VmHWM")) / 1024.0);
    const qint64 before = wakeUps(process.processId());
    QThread::sleep(kIdleSeconds);
    std::printf("idle wake-ups, all threads, in the next %d s: %lld\n", kIdleSeconds,
                wakeUps(process.processId()) - before);
    stop(process);
    XCloseDisplay(display);
    return 0;
}
