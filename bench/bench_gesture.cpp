// The gesture against the real tolkaro process, N times over the GTK target's label and N
// times over the Qt target's: the time from the second left Control press (XTest, sent from
// here) to the popover's window being mapped, text captured and all, and the time from the
// loopback server sending the translation to the popover's field holding it (this includes
// the 300 ms fade-out of the old text: the new text is set when it ends). Median and 95th
// percentile. Run it in the test desktop (X11, or kde-wayland, whose input program takes
// its commands on stdin: keys then go through the compositor):
//   scripts/test-desktop.sh --qt-target build/tests/fixtures/tolkaro-qt-target
//       -- build/bench/tolkaro-bench-gesture [ROUNDS]

#include "AtspiProbe.h"
#include "LoopbackTranslationServer.h"
#include "Percentiles.h"
#include "TolkaroUnderTest.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <poll.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
constexpr unsigned kLeftControl = 37;

double msBetween(Clock::time_point from, Clock::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

int ignoreXErrors(Display *, XErrorEvent *)
{
    return 0;
}

class Desktop
{
public:
    Desktop() : m_display(XOpenDisplay(nullptr))
    {
        if (!m_display)
            return;
        XSetErrorHandler(ignoreXErrors);
        XSelectInput(m_display, DefaultRootWindow(m_display), SubstructureNotifyMask);
        XSync(m_display, False);
    }
    ~Desktop()
    {
        m_input.closeWriteChannel();
        m_input.waitForFinished(2000);
        if (m_display)
            XCloseDisplay(m_display);
    }
    bool isOpen() const { return m_display != nullptr; }

    void movePointer(const QPoint &point)
    {
        if (compositorInput(QStringLiteral("mousemove %1 %2").arg(point.x()).arg(point.y())))
            return;
        XTestFakeMotionEvent(m_display, -1, point.x(), point.y(), CurrentTime);
        XSync(m_display, False);
    }
    void key(unsigned keyCode, bool down)
    {
        if (compositorInput(QStringLiteral("key%1 %2").arg(down ? "down" : "up").arg(keyCode)))
            return;
        XTestFakeKeyEvent(m_display, keyCode, down ? True : False, CurrentTime);
        XFlush(m_display);
    }
    // A Wayland test desktop's input program, kept running and fed a command per line.
    bool compositorInput(const QString &command)
    {
        const QString program = qEnvironmentVariable("TOLKARO_DESKTOP_INPUT");
        if (program.isEmpty())
            return false;
        if (m_input.state() == QProcess::NotRunning) {
            m_input.setProcessChannelMode(QProcess::ForwardedChannels);
            m_input.start(program, {});
            m_input.waitForStarted();
        }
        m_input.write((command + u'\n').toUtf8());
        m_input.waitForBytesWritten();
        return true;
    }
    // Drops the window events seen so far.
    void drain()
    {
        XSync(m_display, False);
        while (XPending(m_display)) {
            XEvent event;
            XNextEvent(m_display, &event);
        }
    }
    // Waits for one of tolkaro's windows to be mapped (or unmapped) on the root; the time
    // it was seen, or nothing after the timeout.
    std::optional<Clock::time_point> waitForTolkaroWindow(int type, int timeoutMs)
    {
        const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        while (Clock::now() < deadline) {
            while (XPending(m_display)) {
                XEvent event;
                XNextEvent(m_display, &event);
                const Clock::time_point seen = Clock::now();
                const Window window = type == MapNotify     ? event.xmap.window
                                      : type == UnmapNotify ? event.xunmap.window
                                                            : None;
                if (event.type == type && isTolkaro(window))
                    return seen;
            }
            pollfd descriptor{ConnectionNumber(m_display), POLLIN, 0};
            poll(&descriptor, 1, 5);
        }
        return std::nullopt;
    }

private:
    bool isTolkaro(Window window) const
    {
        XClassHint hint{};
        if (!XGetClassHint(m_display, window, &hint))
            return false;
        const bool ours = qstrcmp(hint.res_class, "Tolkaro") == 0;
        XFree(hint.res_name);
        XFree(hint.res_class);
        return ours;
    }

    Display *m_display;
    QProcess m_input;
};

struct Round
{
    double popupMs = -1;
    double answerToTextMs = -1;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 20;

    Desktop desktop;
    if (!desktop.isOpen() || !AtspiProbe::init()) {
        std::fprintf(stderr, "needs the test desktop (X display and accessibility bus)\n");
        return 2;
    }

    LoopbackTranslationServer server;
    std::atomic<Clock::rep> answeredAt{0};
    // Echo answers are written right after the request is recorded.
    server.setRequestObserver([&](const LoopbackTranslationServer::RecordedRequest &) {
        answeredAt = Clock::now().time_since_epoch().count();
    });

    QTemporaryDir configHome;
    QProcess tolkaro;
    if (!TolkaroUnderTest::start(tolkaro, QStringLiteral(TOLKARO_BINARY), configHome.path(),
                                 server.baseUrl(), QStringLiteral("de"))) {
        std::fprintf(stderr, "tolkaro did not come up\n");
        return 1;
    }
    QThread::msleep(500);

    const QString translation = LoopbackTranslationServer::echoTranslation(kLabelText);
    std::printf("gesture over the label, %d rounds per target (ms):\n", rounds);
    std::printf("%-6s %28s %28s %9s\n", "", "2nd press -> popover mapped", "answer -> text in field",
                "failed");
    for (const char *which : {"GTK", "QT"}) {
        const qint64 pid =
            qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_PID").arg(
                                     QString::fromLatin1(which))))
                .toLongLong();
        const AtspiElement label =
            AtspiProbe::applicationByPid(pid).find(kLabelText, QStringLiteral("label"));
        if (label.isNull()) {
            std::printf("%-6s no label found\n", which);
            continue;
        }
        // Native Wayland windows give positions within themselves; the desktop says where
        // it put them.
        const QStringList origin =
            qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_ORIGIN").arg(
                                     QString::fromLatin1(which))))
                .split(u',');
        const QPoint offset =
            origin.size() == 2 ? QPoint(origin[0].toInt(), origin[1].toInt()) : QPoint();
        desktop.movePointer(label.screenRect().center() + offset);
        std::vector<double> popup, answer;
        int failed = 0;
        for (int round = 0; round < rounds; ++round) {
            desktop.drain();
            answeredAt = 0;
            desktop.key(kLeftControl, true);
            QThread::msleep(40);
            desktop.key(kLeftControl, false);
            QThread::msleep(60);
            const Clock::time_point pressed = Clock::now();
            desktop.key(kLeftControl, true);
            const std::optional<Clock::time_point> mapped =
                desktop.waitForTolkaroWindow(MapNotify, 5000);
            bool translated = false;
            Clock::time_point shown;
            if (mapped && QTest::qWaitFor(
                              [&] {
                                  if (TolkaroUnderTest::popOverState().value(QStringLiteral("text")).toString() !=
                                      translation)
                                      return false;
                                  shown = Clock::now();
                                  return true;
                              },
                              5000))
                translated = answeredAt != 0;
            desktop.key(kLeftControl, false);
            if (mapped && translated) {
                popup.push_back(msBetween(pressed, *mapped));
                answer.push_back(
                    msBetween(Clock::time_point(Clock::duration(answeredAt.load())), shown));
            } else {
                ++failed;
            }
            desktop.waitForTolkaroWindow(UnmapNotify, 3000);
            // Clear of the double-press window before the next gesture's first press.
            QThread::msleep(600);
        }
        const Percentiles p = percentiles(popup), a = percentiles(answer);
        std::printf("%-6s %14s %5.1f p95 %5.1f %14s %5.1f p95 %5.1f %9d\n", which, "median",
                    p.median, p.p95, "median", a.median, a.p95, failed);
        std::fflush(stdout);
    }

    TolkaroUnderTest::stop(tolkaro);
    return 0;
}
