// How quickly the key monitor delivers a modifier change, and what it costs while nothing
// happens. Run inside an X session with XTest (scripts/test-desktop.sh --no-targets -- ...):
//
//   tolkaro-bench-keymonitor [--presses N] [--idle-seconds S]
//
// Latency: the time from an XTest key event leaving this process to the GestureKeyEvent being
// delivered by the monitor, for N presses and N releases of left Control (median, p95, max).
// Idle: context switches of this process over S seconds with the monitor installed and the
// keyboard untouched (getrusage and /proc/self/status), next to the same without it.

#include "platform/x11/ModifierKeyMonitor_x11.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr unsigned kLeftControlKeyCode = 37; // Xvfb's default (US) mapping

struct Switches
{
    long voluntary = 0;
    long involuntary = 0;
};

Switches switchesNow()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return {usage.ru_nvcsw, usage.ru_nivcsw};
}

long procStatusSwitches()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    long total = 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.endsWith("ctxt_switches") || line.contains("ctxt_switches:"))
            total += line.mid(line.indexOf(':') + 1).trimmed().toLong();
    }
    return total;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, size_t(p * (values.size() - 1) + 0.5));
    return values[index];
}

void idleFor(int seconds, const char *what)
{
    const Switches before = switchesNow();
    const long statusBefore = procStatusSwitches();
    QEventLoop loop;
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    const Switches after = switchesNow();
    std::printf("idle %d s, %s: %ld voluntary + %ld involuntary context switches "
                "(/proc/self/status: %ld)\n",
                seconds, what, after.voluntary - before.voluntary,
                after.involuntary - before.involuntary, procStatusSwitches() - statusBefore);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int presses = 200;
    int idleSeconds = 30;
    const QStringList arguments = app.arguments();
    for (int i = 1; i + 1 < arguments.size(); i += 2) {
        if (arguments[i] == QLatin1String("--presses"))
            presses = arguments[i + 1].toInt();
        else if (arguments[i] == QLatin1String("--idle-seconds"))
            idleSeconds = arguments[i + 1].toInt();
    }

    Display *display = XOpenDisplay(nullptr);
    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    if (!display || !XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor)) {
        std::fprintf(stderr, "needs an X display with XTest\n");
        return 1;
    }

    ModifierKeyMonitorX11 monitor(QString(), QStringLiteral("Super_L"));
    if (!monitor.install()) {
        std::fprintf(stderr, "the key monitor did not install\n");
        return 1;
    }

    QElapsedTimer clock;
    QEventLoop waitForEvent;
    qint64 deliveredAtNs = 0;
    QObject::connect(&monitor, &ModifierKeyMonitor::keyEvent, &monitor, [&] {
        deliveredAtNs = clock.nsecsElapsed();
        waitForEvent.quit();
    });
    // One guard timer, stopped after every event: leftover timers would fire during the idle
    // measurement and count as the monitor's wake-ups.
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &waitForEvent, &QEventLoop::quit);
    clock.start();
    std::vector<double> pressMs, releaseMs;
    int lost = 0;
    for (int i = 0; i < presses * 2; ++i) {
        const bool press = i % 2 == 0;
        deliveredAtNs = -1;
        const qint64 sentAtNs = clock.nsecsElapsed();
        XTestFakeKeyEvent(display, kLeftControlKeyCode, press, CurrentTime);
        XFlush(display);
        if (deliveredAtNs < 0) {
            guard.start(2000);
            waitForEvent.exec();
            guard.stop();
        }
        if (deliveredAtNs < 0) {
            std::fprintf(stderr, "event %d (%s) not delivered within 2 s\n", i,
                         press ? "press" : "release");
            ++lost;
            continue;
        }
        (press ? pressMs : releaseMs).push_back((deliveredAtNs - sentAtNs) / 1e6);
    }
    std::vector<double> all = pressMs;
    all.insert(all.end(), releaseMs.begin(), releaseMs.end());
    std::printf("key event latency, XTest event sent -> key event delivered (%zu events, "
                "%d lost):\n",
                all.size(), lost);
    std::printf("  all:      median %.3f ms, p95 %.3f ms, max %.3f ms\n", percentile(all, 0.5),
                percentile(all, 0.95), percentile(all, 1.0));
    std::printf("  presses:  median %.3f ms, p95 %.3f ms\n", percentile(pressMs, 0.5),
                percentile(pressMs, 0.95));
    std::printf("  releases: median %.3f ms, p95 %.3f ms\n", percentile(releaseMs, 0.5),
                percentile(releaseMs, 0.95));

    if (idleSeconds > 0) {
        idleFor(idleSeconds, "monitor installed");
        monitor.remove();
        idleFor(idleSeconds, "no monitor");
    }
    XCloseDisplay(display);
    return lost == 0 ? 0 : 1;
}
