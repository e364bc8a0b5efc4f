// The gesture as a user makes it, against the real tolkaro process: the pointer over a GTK
// application's text (which toolkits capture reads is the capture test's), left Control
// pressed, released and pressed again and held, keys from XTest as from a keyboard. The
// translation endpoint is a loopback server in this process; what the popover shows is read
// through tolkaro's test object on D-Bus (and the translation also from tolkaro's
// accessibility tree, as a screen reader finds it). Last, the accessibility bus is killed:
// tolkaro starts itself again and reads from the new one.

#include "AtspiProbe.h"
#include "DesktopClipboard.h"
#include "DesktopInput.h"
#include "LoopbackTranslationServer.h"
#include "OwnGtkTarget.h"
#include "TolkaroUnderTest.h"
#include "platform/x11/X11WindowQueries.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QtTest>

namespace {

using TolkaroUnderTest::popoverShown;
using TolkaroUnderTest::popoverText;
using Answer = LoopbackTranslationServer::Answer;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
// Long enough for a check of the trust monitor to have happened (it checks every 5 s).
constexpr int kTrustCheckWait = 7000;
// How long a gesture that should do nothing is given to do something after all.
constexpr int kNothingHappensWait = 1200;

QString activeWindowClass()
{
    X11WindowQueries windows;
    return windows.windowClass(windows.activeWindow());
}

bool key(int keyCode, const char *direction)
{
    return DesktopInput::xdotool(
        QStringLiteral("key%1 %2").arg(QLatin1String(direction)).arg(keyCode));
}

// The accessibility bus of this session (not another test desktop's on the same machine):
// its launcher, the bus daemon under it and the registry, found by their session bus address.
QList<pid_t> accessibilityBusProcesses()
{
    const QByteArray session = "DBUS_SESSION_BUS_ADDRESS=" + qgetenv("DBUS_SESSION_BUS_ADDRESS");
    QList<pid_t> found;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile commandLine(QStringLiteral("/proc/%1/cmdline").arg(entry));
        QFile environ(QStringLiteral("/proc/%1/environ").arg(entry));
        if (commandLine.open(QIODevice::ReadOnly) && commandLine.readAll().contains("at-spi") &&
            environ.open(QIODevice::ReadOnly) && environ.readAll().split('\0').contains(session))
            found.append(pid_t(entry.toInt()));
    }
    return found;
}

QString tolkaroBusOwner()
{
    return QDBusConnection::sessionBus().interface()->serviceOwner(
        QStringLiteral("org.tolkaro.Tolkaro"));
}

} // namespace

class TestGestureE2E : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run inside scripts/test-desktop.sh");
        QVERIFY(AtspiProbe::init());
        QVERIFY(m_server.isListening());
        const AtspiElement gtk = AtspiProbe::targetApplication(QStringLiteral("GTK"));
        m_label = gtk.find(kLabelText, QStringLiteral("label"));
        m_entry = gtk.find(QStringLiteral("Target entry"));
        QVERIFY(!m_label.screenRect().isEmpty() && !m_entry.isNull());

        // The alternative language is English at every launch.
        m_tolkaro.setProcessChannelMode(QProcess::ForwardedChannels);
        QVERIFY(TolkaroUnderTest::start(m_tolkaro, QStringLiteral(TOLKARO_BINARY),
                                        m_configHome.path(), m_server.baseUrl(),
                                        QStringLiteral("de")));
    }

    void init()
    {
        QVERIFY(m_tolkaro.state() == QProcess::Running);
        m_server.setDefaultAnswer(Answer::echo());
        m_server.clearRequests();
        // A gesture's first press never pairs with the last press of the row before.
        QTest::qWait(500);
    }

    void cleanup()
    {
        // No key stays down for the next row, whatever failed.
        DesktopInput::xdotool(QStringLiteral("keyup 64 37"));
        TolkaroUnderTest::testInterface().call(QStringLiteral("HidePopOver"));
        (void)QTest::qWaitFor([] { return !popoverShown(); }, 3000);
    }

    void cleanupTestCase()
    {
        AtspiProbe::setAccessibilityEnabled(true);
        TolkaroUnderTest::stop(m_tolkaro);
    }

    void heldGestureShowsTheTextThenItsTranslation()
    {
        // Answered late enough to see what the popover shows before.
        m_server.enqueueAnswer(
            Answer::slowly(LoopbackTranslationServer::echoBody("Der schnelle braune Fuchs"), 1500));
        const QString translation =
            LoopbackTranslationServer::echoTranslation(QStringLiteral("Der schnelle braune Fuchs"));
        const QPoint pointer = labelPoint();
        QVERIFY(gestureShows(pointer, kLabelText));

        // At the pointer: over or under it, its arrow's length away, never covering it.
        const int gap = TolkaroUnderTest::popoverGapFromPointer(pointer);
        QVERIFY2(gap >= 0 && gap <= 48, qPrintable(QString::number(gap)));

        QTRY_COMPARE_WITH_TIMEOUT(popoverText(), translation, 10000);
        // What a screen reader finds in tolkaro's own tree agrees.
        const AtspiElement tolkaro = AtspiProbe::applicationByPid(m_tolkaro.processId());
        QTRY_VERIFY(!tolkaro.find(translation, QStringLiteral("label")).isNull());
        QCOMPARE(m_server.requestCount(), 1);
        QCOMPARE(m_server.requests().constFirst().queryText(), kLabelText);

        QVERIFY(key(37, "up"));
        QTRY_VERIFY(!popoverShown());
    }

    void optionReplacesTheSelectionAndKeepsTheClipboard()
    {
        QVERIFY(DesktopInput::click(m_entry.screenRect().center()));
        QTRY_VERIFY(m_entry.isFocused());
        QVERIFY(m_entry.setText(QStringLiteral("Hello world")));
        QVERIFY(m_entry.selectText(6, 11));
        QTRY_COMPARE(m_entry.selectedText(), QStringLiteral("world"));
        const QByteArray before = "What the user copied before";
        QVERIFY(DesktopClipboard::setText(before));

        m_server.enqueueAnswer(
            Answer::well(QByteArrayLiteral(R"([[["Welt","world",null,null,10]],null,"en"])")));
        QVERIFY(DesktopInput::moveTo(m_entry.screenRect().center()));
        QVERIFY(DesktopInput::doublePressAndHold(37));
        QTRY_COMPARE(popoverText(), QStringLiteral("Welt"));
        QCOMPARE(m_server.requests().constFirst().queryText(), QStringLiteral("world"));

        QVERIFY(DesktopInput::xdotool(QStringLiteral("keydown 64 sleep 0.08 keyup 64")));
        QTRY_COMPARE_WITH_TIMEOUT(m_entry.text(), QStringLiteral("Hello Welt"), 10000);
        QVERIFY(key(37, "up"));
        QTRY_VERIFY(!popoverShown());
        QTRY_COMPARE_WITH_TIMEOUT(DesktopClipboard::bytes(), std::optional<QByteArray>(before),
                                  10000);
    }

    void withoutAccessibilityTheMonitorsGoAndComeBack()
    {
        QVERIFY(AtspiProbe::setAccessibilityEnabled(false));
        // The next check: the short menu, and the permission dialog in front.
        QTRY_COMPARE_WITH_TIMEOUT(TolkaroUnderTest::statusMenuItemCount(), 2, kTrustCheckWait);
        QTRY_COMPARE_WITH_TIMEOUT(activeWindowClass(), QStringLiteral("Tolkaro"), kTrustCheckWait);

        // The keys are no one's business now.
        QVERIFY(!gestureShows(labelPoint(), kLabelText, kNothingHappensWait));
        QVERIFY(!popoverShown());
        QCOMPARE(m_server.requestCount(), 0);
        QVERIFY(key(37, "up"));

        // Switched on from outside, and the dialog answered with its default button.
        QVERIFY(AtspiProbe::setAccessibilityEnabled(true));
        QVERIFY(DesktopInput::xdotool(QStringLiteral("key Return")));
        QTRY_VERIFY_WITH_TIMEOUT(activeWindowClass() != QStringLiteral("Tolkaro"), 5000);
        // Within one check period (5 s) of the dialog closing, with a second's slack for a busy
        // machine.
        QTRY_VERIFY_WITH_TIMEOUT(TolkaroUnderTest::statusMenuItemCount() > 2, 6000);

        QTest::qWait(500);
        QVERIFY(gestureShows(labelPoint(), LoopbackTranslationServer::echoTranslation(kLabelText)));
    }

    // Last: the bus it leaves is a new one.
    void gestureAnswersAfterTheAccessibilityBusRestarts()
    {
        const QString before = tolkaroBusOwner();
        const QList<pid_t> bus = accessibilityBusProcesses();
        // The launcher, its bus and the registry on it.
        QVERIFY2(bus.size() >= 3, qPrintable(QString::number(bus.size())));
        for (pid_t pid : bus)
            ::kill(pid, SIGKILL);
        QVERIFY(QTest::qWaitFor(
            [&] {
                return std::none_of(bus.cbegin(), bus.cend(), [](pid_t pid) {
                    return QFile::exists(QStringLiteral("/proc/%1").arg(pid));
                });
            },
            10000));

        // Asking the session bus for it starts it anew (as any application starting would).
        QVERIFY(QTest::qWaitFor([] { return AtspiProbe::setAccessibilityEnabled(true); }, 20000));
        // Tolkaro starts itself again in the same process, its tray and name back.
        QVERIFY(QTest::qWaitFor(
            [&] {
                const QString owner = tolkaroBusOwner();
                return !owner.isEmpty() && owner != before &&
                       TolkaroUnderTest::statusMenuItemCount() > 2;
            },
            20000));
        QCOMPARE(m_tolkaro.state(), QProcess::Running);

        // An application started from then on registers on the new bus, and a gesture over it
        // reads its text.
        const QString label = QStringLiteral("Words after the bus came back");
        OwnGtkTarget target(label);
        QVERIFY(QTest::qWaitFor(
            [&] {
                const bool shown = gestureShows(OwnGtkTarget::kLabelPoint, label, 3000);
                key(37, "up");
                QTest::qWait(500);
                return shown;
            },
            30000));
    }

private:
    // The label's middle, where a user points to read it.
    QPoint labelPoint() const { return m_label.screenRect().center(); }
    // Points at `point` and makes the gesture; true once the popover shows `text` (the
    // source, or its translation), with left Control still held.
    bool gestureShows(const QPoint &point, const QString &text, int timeoutMs = 5000)
    {
        return DesktopInput::moveTo(point) && DesktopInput::doublePressAndHold(37) &&
               QTest::qWaitFor(
                   [&] {
                       return popoverText() == text ||
                              popoverText() == LoopbackTranslationServer::echoTranslation(text);
                   },
                   timeoutMs);
    }

    LoopbackTranslationServer m_server;
    QTemporaryDir m_configHome;
    QProcess m_tolkaro;
    AtspiElement m_label;
    AtspiElement m_entry;
};

QTEST_GUILESS_MAIN(TestGestureE2E)
#include "tst_gesture_e2e.moc"
