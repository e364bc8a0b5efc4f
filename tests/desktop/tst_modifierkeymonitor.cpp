// The X11 key monitor on a real desktop: modifier keys pressed through XTest while a GTK
// application has the focus arrive as the gesture's modifier events, in order, with the key
// codes and flags the gesture expects; every other key is dropped and still reaches the
// application; keyboard mapping changes are followed; held keys are picked up at install;
// Tolkaro's own announced keystrokes are passed over; and a monitor that cannot be installed
// says so.

#include "AtspiProbe.h"
#include "DesktopInput.h"
#include "platform/x11/ModifierKeyMonitor_x11.h"
#include "platform/x11/SyntheticKeyEvents.h"

#include <QProcess>
#include <QtTest>

#include <X11/Xlib.h>

using namespace ModifierKeys;

namespace {

// Key codes of the standard PC keyboard under Xvfb's default (US) mapping.
constexpr int kLeftControl = 37, kRightControl = 105, kLeftAlt = 64, kRightAlt = 108,
              kLeftSuper = 133, kRightShift = 62, kMenuKey = 135;

constexpr quint64 kShift = ModifierKeys::kShiftFlag;
constexpr quint64 kCommand = ModifierKeys::kCommandFlag;
constexpr quint16 kFnCode = ModifierKeys::kFnKeyCode;

// What a test expects of one event: the key code and the flags after the change.
using Reported = QPair<int, quint64>;
using ReportedList = QList<Reported>;

using DesktopInput::inject;

QString down(int keyCode)
{
    return QStringLiteral("%1:down").arg(keyCode);
}
QString up(int keyCode)
{
    return QStringLiteral("%1:up").arg(keyCode);
}
QString tap(int keyCode)
{
    return QStringLiteral("%1:tap").arg(keyCode);
}

// Collects what a monitor reports.
class Recorder
{
public:
    explicit Recorder(ModifierKeyMonitor &monitor)
    {
        QObject::connect(&monitor, &ModifierKeyMonitor::modifierEvent, &monitor,
                         [this](const ModifierEvent &event) {
                             m_events.append({event.keyCode, event.modifierFlags});
                         });
    }

    // Sends the steps, then a tap of the right Shift key as an end mark, and answers what
    // came before the mark once the mark has arrived. Events are delivered in order, so
    // whatever the steps caused has arrived by then: no waiting for things not to happen.
    ReportedList reportedFor(const QStringList &steps)
    {
        m_events.clear();
        if (!inject(steps + QStringList{tap(kRightShift)}))
            return {{-1, 0}};
        // The mark: right Shift down, then up, whatever else is held.
        const auto markArrived = [&] {
            const qsizetype n = m_events.size();
            return n >= 2 && m_events[n - 2].first == ModifierKeys::kRightShiftKeyCode &&
                   (m_events[n - 2].second & kShift) &&
                   m_events[n - 1].first == ModifierKeys::kRightShiftKeyCode &&
                   !(m_events[n - 1].second & kShift);
        };
        if (!QTest::qWaitFor(markArrived, 10000))
            return m_events + ReportedList{{-2, 0}}; // shows what came instead of the mark
        return m_events.mid(0, m_events.size() - 2);
    }

private:
    ReportedList m_events;
};

// Changes one key's keysyms for the length of a test, and puts them back afterwards.
class KeyRemap
{
public:
    KeyRemap(int keyCode, const char *keysymName) : m_keyCode(keyCode)
    {
        m_display = XOpenDisplay(nullptr);
        if (!m_display)
            return;
        m_original = XGetKeyboardMapping(m_display, KeyCode(keyCode), 1, &m_symsPerCode);
        std::vector<KeySym> syms(m_symsPerCode, NoSymbol);
        syms[0] = XStringToKeysym(keysymName);
        XChangeKeyboardMapping(m_display, keyCode, m_symsPerCode, syms.data(), 1);
        XSync(m_display, False);
    }
    ~KeyRemap()
    {
        if (!m_display)
            return;
        if (m_original) {
            XChangeKeyboardMapping(m_display, m_keyCode, m_symsPerCode, m_original, 1);
            XFree(m_original);
        }
        XSync(m_display, False);
        XCloseDisplay(m_display);
    }
    bool isValid() const { return m_display && m_original; }

private:
    Display *m_display = nullptr;
    int m_keyCode = 0;
    int m_symsPerCode = 0;
    KeySym *m_original = nullptr;
};

} // namespace

class TestModifierKeyMonitor : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void modifierChangesArriveInOrder_data();
    void modifierChangesArriveInOrder();
    void otherKeysAreDroppedAndStillReachTheApplication();
    void eventsArriveWhileAnotherClientGrabsTheKeyboard();
    void mappingChangesAreFollowed_data();
    void mappingChangesAreFollowed();
    void pressJustAfterAMappingChangeIsKept();
    void keysHeldAtInstallAreCounted_data();
    void keysHeldAtInstallAreCounted();
    void announcedKeystrokesArePassedOver_data();
    void announcedKeystrokesArePassedOver();
    void removedMonitorReportsNothing();
    void monitorThatCannotBeInstalledSaysSo_data();
    void monitorThatCannotBeInstalledSaysSo();

private:
    AtspiElement m_entry;
};

void TestModifierKeyMonitor::initTestCase()
{
    const qint64 gtkPid = qEnvironmentVariableIntValue("TOLKARO_GTK_TARGET_PID");
    if (gtkPid == 0)
        QFAIL("no target applications: run this under scripts/test-desktop.sh");
    QVERIFY2(AtspiProbe::init(), "no accessibility bus");
    const AtspiElement window = AtspiProbe::window(
        AtspiProbe::applicationByPid(gtkPid), qEnvironmentVariable("TOLKARO_GTK_TARGET_TITLE"));
    QVERIFY(QTest::qWaitFor(
        [&] { return !(m_entry = window.find(QStringLiteral("Target entry"))).isNull(); }));
    // The keys go to a real application, as they would at a desktop.
    const QPoint center = m_entry.screenRect().center();
    QVERIFY(DesktopInput::click(center));
    QVERIFY(QTest::qWaitFor([&] { return m_entry.isFocused(); }));
}

void TestModifierKeyMonitor::modifierChangesArriveInOrder_data()
{
    QTest::addColumn<QString>("fnStandIn");
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<ReportedList>("expected");

    const QString super = QStringLiteral("Super_L");
    QTest::newRow("right Control")
        << super << QStringList{down(kRightControl), up(kRightControl)}
        << ReportedList{{kRightControlKeyCode, kControlFlag}, {kRightControlKeyCode, 0}};
    QTest::newRow("left Alt is left Option")
        << super << QStringList{down(kLeftAlt), up(kLeftAlt)}
        << ReportedList{{kLeftOptionKeyCode, kOptionFlag}, {kLeftOptionKeyCode, 0}};
    QTest::newRow("right Alt is right Option")
        << super << QStringList{down(kRightAlt), up(kRightAlt)}
        << ReportedList{{kRightOptionKeyCode, kOptionFlag}, {kRightOptionKeyCode, 0}};
    QTest::newRow("left Super stands in for fn")
        << super << QStringList{down(kLeftSuper), up(kLeftSuper)}
        << ReportedList{{kFnCode, kFnFlag}, {kFnCode, 0}};
    QTest::newRow("the gesture: press, release, press and hold, release")
        << super
        << QStringList{down(kLeftControl), up(kLeftControl), down(kLeftControl), up(kLeftControl)}
        << ReportedList{{kLeftControlKeyCode, kControlFlag},
                        {kLeftControlKeyCode, 0},
                        {kLeftControlKeyCode, kControlFlag},
                        {kLeftControlKeyCode, 0}};
    QTest::newRow("Alt pressed and released while Control is held")
        << super << QStringList{down(kLeftControl), down(kLeftAlt), up(kLeftAlt), up(kLeftControl)}
        << ReportedList{{kLeftControlKeyCode, kControlFlag},
                        {kLeftOptionKeyCode, kControlFlag | kOptionFlag},
                        {kLeftOptionKeyCode, kControlFlag},
                        {kLeftControlKeyCode, 0}};
    QTest::newRow("left Control released while the right one is held")
        << super
        << QStringList{down(kLeftControl), down(kRightControl), up(kLeftControl), up(kRightControl)}
        << ReportedList{{kLeftControlKeyCode, kControlFlag},
                        {kRightControlKeyCode, kControlFlag},
                        {kLeftControlKeyCode, kControlFlag},
                        {kRightControlKeyCode, 0}};
    QTest::newRow("Control pressed and released while fn is held")
        << super
        << QStringList{down(kLeftSuper), down(kLeftControl), up(kLeftControl), up(kLeftSuper)}
        << ReportedList{{kFnCode, kFnFlag},
                        {kLeftControlKeyCode, kFnFlag | kControlFlag},
                        {kLeftControlKeyCode, kFnFlag},
                        {kFnCode, 0}};
    QTest::newRow("fn moved to right Control: left Super is Command again")
        << QStringLiteral("Control_R")
        << QStringList{down(kRightControl), down(kLeftSuper), up(kLeftSuper), up(kRightControl)}
        << ReportedList{{kFnCode, kFnFlag},
                        {ModifierKeys::kLeftCommandKeyCode, kFnFlag | kCommand},
                        {ModifierKeys::kLeftCommandKeyCode, kFnFlag},
                        {kFnCode, 0}};
    QTest::newRow("an unknown fn key name leaves fn without a key")
        << QStringLiteral("NoSuchKey") << QStringList{down(kLeftSuper), up(kLeftSuper)}
        << ReportedList{{ModifierKeys::kLeftCommandKeyCode, kCommand},
                        {ModifierKeys::kLeftCommandKeyCode, 0}};
}

void TestModifierKeyMonitor::modifierChangesArriveInOrder()
{
    QFETCH(QString, fnStandIn);
    QFETCH(QStringList, steps);
    QFETCH(ReportedList, expected);

    ModifierKeyMonitorX11 monitor(QString(), fnStandIn);
    QVERIFY(monitor.install());
    QVERIFY(monitor.isInstalled());
    Recorder recorder(monitor);
    QCOMPARE(recorder.reportedFor(steps), expected);
}

void TestModifierKeyMonitor::otherKeysAreDroppedAndStillReachTheApplication()
{
    QVERIFY(m_entry.setText(QString()));
    QTRY_COMPARE(m_entry.text(), QString());
    ModifierKeyMonitorX11 monitor(QString(), QStringLiteral("Super_L"));
    QVERIFY(monitor.install());
    Recorder recorder(monitor);
    // Right Shift is the end mark; it types nothing.
    QCOMPARE(recorder.reportedFor({QStringLiteral("type:abc 123")}), ReportedList{});
    // Nothing was grabbed: the application got every key.
    QTRY_COMPARE(m_entry.text(), QStringLiteral("abc 123"));
}

// The typing panel holds an active keyboard grab while it is open, and fn changes must
// still reach it through the gesture.
void TestModifierKeyMonitor::eventsArriveWhileAnotherClientGrabsTheKeyboard()
{
    Display *grabber = XOpenDisplay(nullptr);
    QVERIFY(grabber);
    QCOMPARE(XGrabKeyboard(grabber, DefaultRootWindow(grabber), False, GrabModeAsync, GrabModeAsync,
                           CurrentTime),
             GrabSuccess);
    XSync(grabber, False);

    ModifierKeyMonitorX11 monitor(QString(), QStringLiteral("Super_L"));
    QVERIFY(monitor.install());
    Recorder recorder(monitor);
    const ReportedList reported = recorder.reportedFor({tap(kLeftSuper), tap(kLeftControl)});
    XUngrabKeyboard(grabber, CurrentTime);
    XCloseDisplay(grabber);
    QCOMPARE(reported, (ReportedList{{kFnCode, kFnFlag},
                                     {kFnCode, 0},
                                     {kLeftControlKeyCode, kControlFlag},
                                     {kLeftControlKeyCode, 0}}));
}

void TestModifierKeyMonitor::mappingChangesAreFollowed_data()
{
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<QString>("newKeysym");
    QTest::addColumn<ReportedList>("expected");

    QTest::newRow("left Control's key made a left Alt")
        << kLeftControl << "Alt_L"
        << ReportedList{{kLeftOptionKeyCode, kOptionFlag}, {kLeftOptionKeyCode, 0}};
    QTest::newRow("the Menu key made the fn stand-in")
        << kMenuKey << "Super_L" << ReportedList{{kFnCode, kFnFlag}, {kFnCode, 0}};
    QTest::newRow("left Alt's key made a letter") << kLeftAlt << "q" << ReportedList{};
}

void TestModifierKeyMonitor::mappingChangesAreFollowed()
{
    QFETCH(int, keyCode);
    QFETCH(QString, newKeysym);
    QFETCH(ReportedList, expected);

    ModifierKeyMonitorX11 monitor(QString(), QStringLiteral("Super_L"));
    QVERIFY(monitor.install());
    Recorder recorder(monitor);
    {
        KeyRemap remap(keyCode, qPrintable(newKeysym));
        QVERIFY(remap.isValid());
        QCOMPARE(recorder.reportedFor({down(keyCode), up(keyCode)}), expected);
    }
    // And back.
    QCOMPARE(recorder.reportedFor({down(kLeftControl), up(kLeftControl)}),
             (ReportedList{{kLeftControlKeyCode, kControlFlag}, {kLeftControlKeyCode, 0}}));
}

// The server also announces a mapping change when typing moves to another keyboard, just
// before the raw event of the key that moved it: that key, still held when the notice is
// read, must not count as held already.
void TestModifierKeyMonitor::pressJustAfterAMappingChangeIsKept()
{
    ModifierKeyMonitorX11 monitor(QString(), QStringLiteral("Super_L"));
    QVERIFY(monitor.install());
    Recorder recorder(monitor);
    ReportedList reported;
    {
        KeyRemap remap(kMenuKey, "F13");
        QVERIFY(remap.isValid());
        reported = recorder.reportedFor({down(kLeftControl)});
    }
    reported += recorder.reportedFor({up(kLeftControl)});
    QCOMPARE(reported,
             (ReportedList{{kLeftControlKeyCode, kControlFlag}, {kLeftControlKeyCode, 0}}));
}

void TestModifierKeyMonitor::keysHeldAtInstallAreCounted_data()
{
    QTest::addColumn<int>("heldKey");
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<ReportedList>("expected");

    QTest::newRow("Control held, right Alt tapped")
        << kLeftControl << QStringList{tap(kRightAlt), up(kLeftControl)}
        << ReportedList{{kRightOptionKeyCode, kControlFlag | kOptionFlag},
                        {kRightOptionKeyCode, kControlFlag},
                        {kLeftControlKeyCode, 0}};
    QTest::newRow("fn held, Control tapped")
        << kLeftSuper << QStringList{tap(kLeftControl), up(kLeftSuper)}
        << ReportedList{{kLeftControlKeyCode, kFnFlag | kControlFlag},
                        {kLeftControlKeyCode, kFnFlag},
                        {kFnCode, 0}};
}

void TestModifierKeyMonitor::keysHeldAtInstallAreCounted()
{
    QFETCH(int, heldKey);
    QFETCH(QStringList, steps);
    QFETCH(ReportedList, expected);

    QVERIFY(inject({down(heldKey)}));
    ModifierKeyMonitorX11 monitor(QString(), QStringLiteral("Super_L"));
    const bool installed = monitor.install();
    Recorder recorder(monitor);
    const ReportedList reported = recorder.reportedFor(steps);
    QVERIFY(inject({up(heldKey)})); // whatever happened, release it
    QVERIFY(installed);
    QCOMPARE(reported, expected);
}

void TestModifierKeyMonitor::announcedKeystrokesArePassedOver_data()
{
    QTest::addColumn<int>("announced");
    QTest::addColumn<int>("waitMs");
    QTest::addColumn<ReportedList>("expected");

    const ReportedList controlTap{{kLeftControlKeyCode, kControlFlag}, {kLeftControlKeyCode, 0}};
    QTest::newRow("both events of a tap announced") << 2 << 0 << ReportedList{};
    QTest::newRow("only the press announced") << 1 << 0 << ReportedList{{kLeftControlKeyCode, 0}};
    QTest::newRow("nothing announced") << 0 << 0 << controlTap;
    QTest::newRow("announcement lapsed before the keys came")
        << 2 << SyntheticKeyEvents::kAnnouncementLifetimeMs + 200 << controlTap;
}

void TestModifierKeyMonitor::announcedKeystrokesArePassedOver()
{
    QFETCH(int, announced);
    QFETCH(int, waitMs);
    QFETCH(ReportedList, expected);

    ModifierKeyMonitorX11 monitor(QString(), QStringLiteral("Super_L"));
    QVERIFY(monitor.install());
    Recorder recorder(monitor);
    SyntheticKeyEvents::announce(announced);
    if (waitMs > 0)
        QTest::qWait(waitMs);
    QCOMPARE(recorder.reportedFor({down(kLeftControl), up(kLeftControl)}), expected);
    QCOMPARE(SyntheticKeyEvents::pending(), 0);
}

void TestModifierKeyMonitor::removedMonitorReportsNothing()
{
    ModifierKeyMonitorX11 removed(QString(), QStringLiteral("Super_L"));
    QVERIFY(removed.install());
    removed.remove();
    QVERIFY(!removed.isInstalled());
    int reportedByRemoved = 0;
    connect(&removed, &ModifierKeyMonitor::modifierEvent, this, [&] { ++reportedByRemoved; });

    // A second monitor tells when the keys have gone by.
    ModifierKeyMonitorX11 witness(QString(), QStringLiteral("Super_L"));
    QVERIFY(witness.install());
    Recorder recorder(witness);
    QCOMPARE(recorder.reportedFor({tap(kLeftControl)}).size(), 2);
    QCOMPARE(reportedByRemoved, 0);

    // And it comes back when installed again.
    QVERIFY(removed.install());
    Recorder again(removed);
    QCOMPARE(again.reportedFor({tap(kLeftAlt)}),
             (ReportedList{{kLeftOptionKeyCode, kOptionFlag}, {kLeftOptionKeyCode, 0}}));
}

void TestModifierKeyMonitor::monitorThatCannotBeInstalledSaysSo_data()
{
    QTest::addColumn<QString>("displayName");
    QTest::addColumn<QStringList>("serverArguments");

    QTest::newRow("no X server at that display") << QStringLiteral(":4711") << QStringList{};
    QTest::newRow("not a display name") << QStringLiteral("no display here") << QStringList{};
    // Without the generic events that carry them there are no XInput 2 events.
    QTest::newRow("X server without XInput 2")
        << QString()
        << QStringList{QStringLiteral("-extension"), QStringLiteral("\"Generic Event Extension\"")};
}

void TestModifierKeyMonitor::monitorThatCannotBeInstalledSaysSo()
{
    QFETCH(QString, displayName);
    QFETCH(QStringList, serverArguments);

    QProcess server;
    QTemporaryFile displayFile;
    if (!serverArguments.isEmpty()) {
        QVERIFY(displayFile.open());
        server.setStandardOutputFile(QProcess::nullDevice());
        server.setStandardErrorFile(QProcess::nullDevice());
        server.start(QStringLiteral("sh"),
                     {QStringLiteral("-c"),
                      QStringLiteral("exec Xvfb -displayfd 3 -nolisten tcp %1 3>%2")
                          .arg(serverArguments.join(QLatin1Char(' ')), displayFile.fileName())});
        QVERIFY(server.waitForStarted());
        QVERIFY(QTest::qWaitFor([&] { return displayFile.size() > 0; }, 15000));
        displayName = QLatin1Char(':') + QString::fromLatin1(displayFile.readAll()).trimmed();
    }

    ModifierKeyMonitorX11 monitor(displayName, QStringLiteral("Super_L"));
    QVERIFY(!monitor.canInstall());
    QVERIFY(!monitor.install());
    QVERIFY(!monitor.isInstalled());

    if (server.state() != QProcess::NotRunning) {
        server.terminate();
        QVERIFY(server.waitForFinished(10000));
    }
}

QTEST_GUILESS_MAIN(TestModifierKeyMonitor)
#include "tst_modifierkeymonitor.moc"
