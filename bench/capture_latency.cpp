// Text capture latency: the time from asking for the text under the pointer to having it,
// per kind of target (GTK 3 and Qt 6; label, entry, text view), median and 95th percentile,
// and how soon a capture from a stopped (SIGSTOP) application gives up. Also the cost of one
// hop to the AT-SPI thread and back. Run it in the test desktop:
//   scripts/test-desktop.sh -- build/bench/tolkaro-bench-capture [ROUNDS]

#include "capture/AccessibilityManager.h"
#include "platform/atspi/AtspiThread.h"
#include "platform/atspi/UIElementUtilities.h"
#include "Percentiles.h"
#include "UIElementSearch.h"

#include <QCursor>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QThread>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <vector>

namespace {

using UIElementSearch::findByTitle;
using UIElementSearch::stringOf;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");

double captureMilliseconds(bool *gotText)
{
    QElapsedTimer timer;
    timer.start();
    const std::optional<QString> text = AccessibilityManager::getStringForCurrentUIElement();
    const double ms = double(timer.nsecsElapsed()) / 1e6;
    if (gotText)
        *gotText = text.has_value();
    return ms;
}

void pointAt(const UIElement &element)
{
    QCursor::setPos(UIElementUtilities::frameOfUIElement(element).center().toPoint());
    QThread::msleep(20);
    QCoreApplication::processEvents();
}

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(5, atoi(argv[1])) : 60;

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
            if (title != kLabelText)
                UIElementUtilities::setStringValue(
                    QStringLiteral("Some words to capture in the %1").arg(QLatin1String(kind)),
                    QStringLiteral("AXValue"), element);
            pointAt(element);
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
            std::printf("%-22s %4d/%-3d %10.2f %10.2f\n",
                        qPrintable(QStringLiteral("%1 %2").arg(QLatin1String(which), QLatin1String(kind))),
                        captured, rounds, result.median, result.p95);
        }
    }

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
