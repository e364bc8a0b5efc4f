// Text capture latency: the time from asking for the text under the pointer to having it,
// per kind of target (GTK 3 and Qt 6; label, entry, text view; the fixtures' other windows:
// a notebook of text views, long documents scrolled to their end, a text view under a hidden
// bar, VTE terminals in a notebook, with the paragraph read), median and 95th percentile,
// and how soon a capture from a stopped (SIGSTOP) application gives up. Also the cost of one
// hop to the AT-SPI thread and back. Run it in the test desktop:
//   scripts/test-desktop.sh -- build/bench/tolkaro-bench-capture [ROUNDS]
// Any other application started in the desktop (a browser, an office suite) gets rows of its
// own, one per screen point given with --at NAME X,Y, with what was read beside them; with
// --no-targets only those are measured. Look at a screenshot first to find the points:
//   scripts/test-desktop.sh --no-targets -- sh -c 'firefox-esr --new-instance --profile DIR
//       file:///PAGE.html & sleep 12; build/bench/tolkaro-bench-capture 60
//       --at "Firefox paragraph" 300,193 --at "Firefox input" 300,320'

#include "CaptureTestHelpers.h"
#include "capture/AccessibilityManager.h"
#include "platform/atspi/AtspiThread.h"
#include "platform/atspi/UIElementUtilities.h"
#include "Percentiles.h"
#include "UIElementSearch.h"

#include <QCursor>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QProcess>
#include <QStringList>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <vector>

namespace {

using UIElementSearch::findByTitle;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");

double captureMilliseconds(bool *gotText)
{
    QElapsedTimer timer;
    timer.start();
    const std::optional<QString> text = AccessibilityManager::getStringForCurrentUIElement().text;
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    if (gotText)
        *gotText = text.has_value();
    return ms;
}

void pointAt(const QPoint &point)
{
    // A Wayland test desktop moves the pointer through the compositor; the compositor's
    // report of it reaches this process as an event.
    const QString input = qEnvironmentVariable("TOLKARO_DESKTOP_INPUT");
    if (input.isEmpty())
        QCursor::setPos(point);
    else
        QProcess::execute(input, {QStringLiteral("mousemove"), QString::number(point.x()),
                                  QString::number(point.y())});
    QThread::msleep(20);
    QCoreApplication::processEvents();
    QTest::qWait(input.isEmpty() ? 0 : 100);
}

// Native Wayland windows give positions within themselves: `origin` is where the window is.
void pointAt(const UIElement &element, const QPoint &origin = QPoint())
{
    pointAt(UIElementSearch::frameOfUIElement(element).center().toPoint() + origin);
}

// Captures at the pointer: a few unmeasured first, then one table row.
void measureRow(const QString &name, int rounds, bool showText)
{
    for (int i = 0; i < 3; ++i)
        captureMilliseconds(nullptr);
    std::vector<double> samples;
    int captured = 0;
    for (int i = 0; i < rounds; ++i) {
        bool gotText = false;
        samples.push_back(captureMilliseconds(&gotText));
        captured += gotText ? 1 : 0;
    }
    const Percentiles result = percentiles(samples);
    std::printf("%-22s %4d/%-3d %10.2f %10.2f", qPrintable(name), captured, rounds, result.median,
                result.p95);
    if (showText) {
        const QString text = AccessibilityManager::getStringForCurrentUIElement().text.value_or(
            QStringLiteral("(nothing)"));
        std::printf("   %s", qPrintable(text.left(50).simplified()));
    }
    std::printf("\n");
}

// One of the fixtures' --mode windows over the desktop: its chosen paragraph's row.
void measurePointedWindow(const CaptureTestHelpers::PointedWindow &window, int rounds)
{
    const QString &name = window.name;
    QProcess target;
    CaptureTestHelpers::startPointedWindow(target, window);
    const QStringList point = target.waitForReadyRead(15000)
                                  ? QString::fromUtf8(target.readLine()).trimmed().split(u' ')
                                  : QStringList();
    if (point.value(0) == QLatin1String("POINT")) {
        // Time for the window to reach the accessibility bus.
        QThread::msleep(1500);
        pointAt(QPoint(point[1].toInt(), point[2].toInt()));
        measureRow(name, rounds, true);
    } else {
        std::printf("%-22s (did not start)\n", qPrintable(name));
    }
    target.kill();
    target.waitForFinished(5000);
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int rounds = args.size() > 1 && !args[1].startsWith(u'-') ? std::max(5, args[1].toInt())
                                                                     : 60;
    // --at NAME X,Y: a row for whatever lies at that screen point.
    QList<QPair<QString, QPoint>> extraPoints;
    for (qsizetype i = args.indexOf(QStringLiteral("--at")); i >= 0 && i + 2 < args.size();
         i = args.indexOf(QStringLiteral("--at"), i + 3)) {
        const QStringList xy = args[i + 2].split(u',');
        if (xy.size() == 2)
            extraPoints.append({args[i + 1], QPoint(xy[0].toInt(), xy[1].toInt())});
    }
    const bool withTargets = !qEnvironmentVariableIsEmpty("TOLKARO_GTK_TARGET_PID");
    if (!withTargets && extraPoints.isEmpty()) {
        std::fprintf(stderr, "no GTK target: run this in scripts/test-desktop.sh\n");
        return 1;
    }

    std::vector<double> hops;
    for (int i = 0; i < 2000; ++i) {
        QElapsedTimer timer;
        timer.start();
        AtspiThread::instance().call<bool>([] { return true; });
        hops.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    const Percentiles hop = percentiles(hops);
    std::printf("AT-SPI thread hop: median %.3f ms, p95 %.3f ms\n", hop.median, hop.p95);

    std::printf("%-22s %8s %10s %10s\n", "target", "captures", "median ms", "p95 ms");
    for (const auto &[name, point] : extraPoints) {
        pointAt(point);
        measureRow(name, rounds, true);
    }
    if (!withTargets)
        return 0;
    for (const char *which : {"GTK", "QT"}) {
        const qint64 pid = qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_PID")
                                                               .arg(QLatin1String(which))))
                               .toLongLong();
        const UIElement application = UIElementUtilities::applicationElementForProcess(pid);
        if (!application) {
            std::fprintf(stderr, "no %s target: run this in scripts/test-desktop.sh\n", which);
            return 1;
        }
        const QList<QPair<const char *, QString>> widgets{
            {"label", kLabelText},
            {"entry", QStringLiteral("Target entry")},
            {"text view", QStringLiteral("Target text view")}};
        for (const auto &[kind, title] : widgets) {
            const UIElement element = findByTitle(application, title);
            const QString words =
                QStringLiteral("Some words to capture in the %1").arg(QLatin1String(kind));
            if (title != kLabelText)
                UIElementSearch::withProbe<bool>(
                    element, [&](const AtspiElement &probe) { return probe.setText(words); });
            const QStringList origin =
                qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_ORIGIN")
                                                    .arg(QLatin1String(which))))
                    .split(u',');
            pointAt(element, origin.size() == 2 ? QPoint(origin[0].toInt(), origin[1].toInt())
                                                : QPoint());
            measureRow(QStringLiteral("%1 %2").arg(QLatin1String(which), QLatin1String(kind)),
                       rounds, false);
        }
    }

    for (const CaptureTestHelpers::PointedWindow &window : CaptureTestHelpers::pointedWindows())
        measurePointedWindow(window, rounds);

    // A stopped application: each capture should give up after about one method-call timeout.
    const pid_t pid = pid_t(qEnvironmentVariable("TOLKARO_GTK_TARGET_PID").toLongLong());
    const UIElement application = UIElementUtilities::applicationElementForProcess(pid);
    pointAt(findByTitle(application, kLabelText));
    ::kill(pid, SIGSTOP);
    std::vector<double> stopped;
    int captured = 0;
    for (int i = 0; i < 5; ++i) {
        bool gotText = false;
        stopped.push_back(captureMilliseconds(&gotText));
        captured += gotText ? 1 : 0;
        // Past the one-second give-up mark, so that every capture meets the stop afresh.
        QThread::msleep(1100);
    }
    ::kill(pid, SIGCONT);
    const Percentiles result = percentiles(stopped);
    std::printf("%-22s %4d/%-3d %10.2f %10.2f   (captures that got text / tries)\n",
                "GTK label, SIGSTOPped", captured, 5, result.median, result.p95);
    return 0;
}
