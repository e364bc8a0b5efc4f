// Memory of the running tray application across many translations: the real tolkaro under
// the test desktop, translating at a loopback server. Its resident size 10 s after start,
// after the first 100 translations (network and popover set up), and after all of them; the
// growth over the run is what a leak per translation would show.
//
// Each translation goes through the test object on the session bus (TranslateText: the
// popover shown at a point, the text sent, the answer cross-faded in), then the popover is
// hidden, as at the end of a gesture. The keyboard gesture itself is the gesture benchmark's.
//
// Run it in the test desktop:
//   scripts/test-desktop.sh --no-targets -- build/bench/tolkaro-bench-memory [TRANSLATIONS]

#include "LoopbackTranslationServer.h"
#include "TolkaroUnderTest.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

namespace {

// VmRSS of a process in KiB, -1 when unreadable.
long residentKiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

bool translate(int index)
{
    const QString text = QStringLiteral("memory check %1 %2").arg(index).arg(QString(index % 40, u'x'));
    QDBusInterface test = TolkaroUnderTest::testInterface();
    test.call(QStringLiteral("TranslateText"), text, 300, 300);
    const QString expected = QStringLiteral("translation of ") + text;
    const bool shown = QTest::qWaitFor(
        [&] { return TolkaroUnderTest::popOverState().value(QStringLiteral("text")).toString() == expected; },
        10000);
    test.call(QStringLiteral("HidePopOver"));
    return shown;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int translations = argc > 1 ? std::max(100, atoi(argv[1])) : 1000;

    LoopbackTranslationServer server;
    QTemporaryDir configHome;
    QProcess tolkaro;
    if (!TolkaroUnderTest::start(tolkaro, QStringLiteral(TOLKARO_BINARY), configHome.path(),
                                 server.baseUrl(), QStringLiteral("de"))) {
        std::fprintf(stderr, "tolkaro did not come up\n");
        TolkaroUnderTest::stop(tolkaro);
        return 1;
    }
    const qint64 pid = tolkaro.processId();
    QTest::qWait(10000);
    const long idle = residentKiB(pid);

    QElapsedTimer timer;
    timer.start();
    long warm = -1;
    int failed = 0;
    for (int i = 0; i < translations; ++i) {
        if (!translate(i))
            ++failed;
        if (i + 1 == 100)
            warm = residentKiB(pid);
    }
    const double seconds = timer.elapsed() / 1000.0;
    // Let deferred deletions and the last cross-fade finish.
    QTest::qWait(2000);
    const long after = residentKiB(pid);
    TolkaroUnderTest::stop(tolkaro);

    std::printf("translations            %d (%d not shown), %.1f s, %.1f ms each\n", translations,
                failed, seconds, seconds * 1000 / translations);
    std::printf("RSS 10 s after start    %ld KiB\n", idle);
    std::printf("RSS after 100           %ld KiB\n", warm);
    std::printf("RSS after %-5d         %ld KiB\n", translations, after);
    std::printf("growth over the run     %+ld KiB (from start), %+ld KiB (after the first 100)\n",
                after - idle, after - warm);
    return failed == 0 ? 0 : 1;
}
