// Faults around a capture or a translation, and the one after them: an application stopped
// or killed while its text is being read, the translation server killed while a request is
// out, and the accessibility bus killed and started anew. None may hang the caller, and the
// next capture or translation answers as if nothing had happened.
//
// Captures run in-process through AccessibilityManager (as in the capture test); the
// translation through the client object the tray application uses, against a server process;
// the bus restart through the real tolkaro, driven by key presses.

#include "capture/AccessibilityManager.h"
#include "platform/atspi/UIElementUtilities.h"
#include "translation/GoogleTranslateByURL.h"
#include "DesktopInput.h"
#include "TolkaroUnderTest.h"
#include "UIElementSearch.h"

#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDir>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <thread>

namespace {

using UIElementSearch::findByTitle;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
// On the label of a target of the test's own (its window at 620,40; the label at its top).
const QPoint kOwnTargetLabelPoint(700, 100);

qint64 sharedGtkTargetPid()
{
    return qEnvironmentVariable("TOLKARO_GTK_TARGET_PID").toLongLong();
}

// A GTK target of the test's own, so that a fault does not spoil the desktop's.
class OwnTarget
{
public:
    explicit OwnTarget(const QString &label) : m_label(label)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("GDK_BACKEND"), QStringLiteral("x11"));
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral("/usr/bin/python3"),
                        {qEnvironmentVariable("TOLKARO_GTK_TARGET"), QStringLiteral("--title"),
                         QStringLiteral("Fault target"), QStringLiteral("--label"), label,
                         QStringLiteral("--geometry"), QStringLiteral("620,40,500,300")});
    }
    ~OwnTarget()
    {
        ::kill(pid_t(m_process.processId()), SIGCONT);
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    // Up on the accessibility bus with its label.
    bool waitUntilReadable(int timeoutMs = 20000)
    {
        return QTest::qWaitFor(
            [this] {
                // A call that timed out makes the next ones give up until new work begins.
                AtspiCall::beginWork();
                return !labelElement().isNull();
            },
            timeoutMs);
    }
    UIElement labelElement() const
    {
        return findByTitle(UIElementUtilities::applicationElementForProcess(m_process.processId()),
                           m_label);
    }
    pid_t pid() const { return pid_t(m_process.processId()); }

private:
    QString m_label;
    QProcess m_process;
};

void pointAt(const UIElement &element)
{
    QCursor::setPos(UIElementSearch::frameOfUIElement(element).center().toPoint());
    QTest::qWait(20);
}

// The capture under the pointer, with `signal` sent to `pid` `delayMs` after it started.
std::optional<QString> captureWhileSignalling(pid_t pid, int signal, int delayMs)
{
    std::thread fault([=] {
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
        ::kill(pid, signal);
    });
    const std::optional<QString> text = AccessibilityManager::getStringForCurrentUIElement().text;
    fault.join();
    return text;
}

// The process and every descendant of it.
QList<pid_t> processTree(pid_t root)
{
    QList<pid_t> tree{root};
    for (qsizetype i = 0; i < tree.size(); ++i) {
        for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
            QFile stat(QStringLiteral("/proc/%1/stat").arg(entry));
            if (!stat.open(QIODevice::ReadOnly))
                continue;
            const QByteArray line = stat.readAll();
            // pid (comm) state ppid ...: comm may hold spaces, so read after its ')'.
            const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
            if (fields.size() > 1 && fields[1].toInt() == tree[i])
                tree.append(pid_t(entry.toInt()));
        }
    }
    return tree;
}

// The accessibility bus of this session (not another test desktop's on the same machine):
// its launcher, the bus daemon under it and the registry, found by their session bus address.
QList<pid_t> accessibilityBusProcesses()
{
    const QByteArray session = "DBUS_SESSION_BUS_ADDRESS=" + qgetenv("DBUS_SESSION_BUS_ADDRESS");
    QList<pid_t> found;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile comm(QStringLiteral("/proc/%1/comm").arg(entry));
        QFile environ(QStringLiteral("/proc/%1/environ").arg(entry));
        if (!comm.open(QIODevice::ReadOnly) || !comm.readAll().startsWith("at-spi") ||
            !environ.open(QIODevice::ReadOnly))
            continue;
        if (environ.readAll().split('\0').contains(session)) {
            for (pid_t pid : processTree(pid_t(entry.toInt())))
                if (!found.contains(pid))
                    found.append(pid);
        }
    }
    return found;
}

bool accessibilityBusAnswers()
{
    QDBusInterface bus(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                       QStringLiteral("org.a11y.Bus"));
    bus.setTimeout(2000);
    const QDBusReply<QString> address = bus.call(QStringLiteral("GetAddress"));
    if (!address.isValid() || address.value().isEmpty())
        return false;
    QDBusInterface status(QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                          QStringLiteral("org.freedesktop.DBus.Properties"));
    status.call(QStringLiteral("Set"), QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"),
                QVariant::fromValue(QDBusVariant(true)));
    return true;
}

QString tolkaroBusOwner()
{
    return QDBusConnection::sessionBus().interface()->serviceOwner(QStringLiteral("org.tolkaro.Tolkaro"));
}

void releaseControl()
{
    DesktopInput::inject({QStringLiteral("37:up")});
}

// Points at `point`, presses Control twice and holds it: the popover shows `text` (the
// source text, before any translation), then Control is let go.
bool gestureShows(const QPoint &point, const QString &text)
{
    QTest::qWait(500); // a press never pairs with one of an earlier gesture
    const bool shown =
        DesktopInput::inject({QStringLiteral("move:%1,%2").arg(point.x()).arg(point.y())}) &&
        DesktopInput::inject({QStringLiteral("37:down@0"), QStringLiteral("37:up@60"),
                              QStringLiteral("37:down@160")}) &&
        QTest::qWaitFor([&] {
            const QString shownText = TolkaroUnderTest::popOverState().value(QStringLiteral("text")).toString();
            return shownText == text || shownText == QStringLiteral("translation of ") + text;
        }, 10000);
    releaseControl();
    return shown;
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void captureAnswersAfterTheTargetFails_data();
    void captureAnswersAfterTheTargetFails();
    void translationAnswersAfterTheServerDies();
    // Last: the bus it leaves is a new one.
    void gestureAnswersAfterTheAccessibilityBusRestarts();
};

void TestFaults::initTestCase()
{
    if (sharedGtkTargetPid() == 0)
        QFAIL("no target applications: run this under scripts/test-desktop.sh");
    QVERIFY(QTest::qWaitFor(
        [] {
            return !findByTitle(UIElementUtilities::applicationElementForProcess(sharedGtkTargetPid()),
                                kLabelText)
                        .isNull();
        },
        15000));
}

void TestFaults::captureAnswersAfterTheTargetFails_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<int>("delayMs");

    // The delays land the fault before the first call and among the calls of the capture.
    for (int delay : {0, 30}) {
        QTest::addRow("stopped %d ms into the capture, then continued", delay) << int(SIGSTOP) << delay;
        QTest::addRow("killed %d ms into the capture", delay) << int(SIGKILL) << delay;
    }
}

void TestFaults::captureAnswersAfterTheTargetFails()
{
    QFETCH(int, signal);
    QFETCH(int, delayMs);

    const QString label = QStringLiteral("Words of the target at fault");
    OwnTarget target(label);
    QVERIFY(target.waitUntilReadable());
    pointAt(target.labelElement());
    QCOMPARE(AccessibilityManager::getStringForCurrentUIElement().text, std::optional<QString>(label));

    // It returns (a hang ends the test by its timeout): with nothing or the label from a
    // stopped application, and from a killed one possibly what its window uncovered.
    const std::optional<QString> during = captureWhileSignalling(target.pid(), signal, delayMs);
    QVERIFY2(signal == SIGKILL || !during || *during == label,
             qPrintable(during.value_or(QString())));

    if (signal == SIGSTOP) {
        QCOMPARE(::kill(target.pid(), SIGCONT), 0);
        QVERIFY(QTest::qWaitFor(
            [&] { return AccessibilityManager::getStringForCurrentUIElement().text == label; }));
    } else {
        const UIElement shared =
            findByTitle(UIElementUtilities::applicationElementForProcess(sharedGtkTargetPid()),
                        kLabelText);
        pointAt(shared);
        QVERIFY(QTest::qWaitFor(
            [&] { return AccessibilityManager::getStringForCurrentUIElement().text == kLabelText; }));
    }
}

void TestFaults::translationAnswersAfterTheServerDies()
{
    // A server that never answers; killed while it holds the request.
    QProcess server;
    server.start(QStringLiteral(TOLKARO_TEST_SERVER),
                 {QStringLiteral("--answer"), QStringLiteral("silent"), QStringLiteral("--log-requests")});
    QVERIFY(QTest::qWaitFor([&] { return server.canReadLine(); }, 15000));
    const QString port = QString::fromLatin1(server.readLine().trimmed());
    QVERIFY(port.toUInt() > 0);

    GoogleTranslateByURL client(QStringLiteral("http://127.0.0.1:") + port);
    std::optional<std::pair<bool, QString>> outcome;
    const auto record = [&outcome](bool success, const QString &text, const QString &,
                                   const QString &error) {
        outcome = {success, success ? text : error};
    };
    client.translateText(QStringLiteral("first words"), QStringLiteral("de"), record);
    QByteArray requests;
    QVERIFY(QTest::qWaitFor([&] {
        requests += server.readAllStandardError();
        return requests.contains("GET ");
    }, 15000));
    server.kill();
    QVERIFY(server.waitForFinished(10000));
    QVERIFY(QTest::qWaitFor([&] { return outcome.has_value(); }, 20000));
    QVERIFY(!outcome->first);

    // The same client, the server back on its port.
    QProcess again;
    again.start(QStringLiteral(TOLKARO_TEST_SERVER), {QStringLiteral("--port"), port});
    QVERIFY(QTest::qWaitFor([&] { return again.canReadLine(); }, 15000));
    outcome.reset();
    client.translateText(QStringLiteral("second words"), QStringLiteral("de"), record);
    QVERIFY(QTest::qWaitFor([&] { return outcome.has_value(); }, 20000));
    QCOMPARE(*outcome, std::make_pair(true, QStringLiteral("translation of second words")));
    again.terminate();
    again.waitForFinished(5000);
}

void TestFaults::gestureAnswersAfterTheAccessibilityBusRestarts()
{
    QProcess server;
    server.start(QStringLiteral(TOLKARO_TEST_SERVER), QStringList());
    QVERIFY(QTest::qWaitFor([&] { return server.canReadLine(); }, 15000));
    const QString serverUrl = QStringLiteral("http://127.0.0.1:") + QString::fromLatin1(server.readLine().trimmed());
    QTemporaryDir configHome;
    QProcess tolkaro;
    tolkaro.setProcessChannelMode(QProcess::ForwardedChannels);
    QVERIFY(TolkaroUnderTest::start(tolkaro, QStringLiteral(TOLKARO_BINARY), configHome.path(),
                                    serverUrl, QStringLiteral("de")));
    const auto cleanUp = qScopeGuard([&] {
        releaseControl();
        TolkaroUnderTest::stop(tolkaro);
        server.kill();
        server.waitForFinished(5000);
    });
    // Tolkaro reads through the bus that is about to go.
    const UIElement shared = findByTitle(UIElementUtilities::applicationElementForProcess(sharedGtkTargetPid()),
                                         kLabelText);
    QVERIFY(gestureShows(UIElementSearch::frameOfUIElement(shared).center().toPoint(), kLabelText));

    const QString before = tolkaroBusOwner();
    const QList<pid_t> tree = accessibilityBusProcesses();
    // The launcher, its bus and the registry on it.
    QVERIFY2(tree.size() >= 3, qPrintable(QString::number(tree.size())));
    for (pid_t pid : tree)
        ::kill(pid, SIGKILL);
    QVERIFY(QTest::qWaitFor([&] {
        return std::all_of(tree.cbegin(), tree.cend(),
                           [](pid_t pid) { return !QFile::exists(QStringLiteral("/proc/%1").arg(pid)); });
    }, 10000));

    // Asking the session bus for it starts it anew (so would any application starting).
    QVERIFY(QTest::qWaitFor(accessibilityBusAnswers, 20000));
    // Tolkaro starts itself again in the same process, its tray and name back.
    QVERIFY(QTest::qWaitFor([&] {
        const QString owner = tolkaroBusOwner();
        return !owner.isEmpty() && owner != before && TolkaroUnderTest::statusMenuItemCount() > 2;
    }, 20000));
    QCOMPARE(tolkaro.state(), QProcess::Running);

    // An application started from then on registers on the new bus, and the next gesture
    // over it reads its text. (A fresh process confirms it is readable at all.)
    const QString label = QStringLiteral("Words after the bus came back");
    OwnTarget target(label);
    QProcess probe;
    QVERIFY(QTest::qWaitFor(
        [&] {
            probe.start(QStringLiteral(TOLKARO_CAPTURE_PROBE),
                        {QStringLiteral("--capture-at"), QStringLiteral("%1,%2").arg(kOwnTargetLabelPoint.x()).arg(kOwnTargetLabelPoint.y())});
            return probe.waitForFinished(10000) &&
                   probe.readAllStandardOutput().startsWith(("TEXT " + label).toUtf8());
        },
        20000));
    QVERIFY(gestureShows(kOwnTargetLabelPoint, label));
}

QTEST_MAIN(TestFaults)
#include "tst_faults.moc"
