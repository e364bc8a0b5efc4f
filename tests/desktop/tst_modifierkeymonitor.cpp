// The X11 key monitor on a real desktop, keys sent through XTest to a focused GTK window:
// modifiers arrive in order with the keys held after each, other keys only reach the window,
// mapping changes are followed, and a server without XInput 2 is found out before install.

#include "DataRows.h"

#include "AtspiProbe.h"
#include "DesktopInput.h"
#include "common/Log.h"
#include "platform/x11/ModifierKeyMonitor_x11.h"
#include "platform/x11/XTestKeySender.h"

#include <QtTest>

#include <X11/Xlib.h>
#include <X11/keysym.h>

namespace {

// Key codes of the standard PC keyboard under Xvfb's default (US) mapping.
constexpr int kLeftControl = 37, kRightControl = 105, kLeftAlt = 64, kRightAlt = 108,
              kLeftSuper = 133, kMenuKey = 135;

// Per event: the key and the keys held after the change.
using ReportedList = QList<QPair<int, int>>;

// xdotool's "keydown 37", "keyup 37" or "key 37" (a tap).
QStringList key(int keyCode, const char *what)
{
    const QLatin1String how(what);
    return {how == QLatin1String("tap") ? QStringLiteral("key") : QStringLiteral("key") + how,
            QString::number(keyCode)};
}

constexpr int LC = int(GestureKey::LeftControl), RC = int(GestureKey::RightControl),
              LA = int(GestureKey::LeftAlt), RA = int(GestureKey::RightAlt),
              AL = int(GestureKey::AlternativeLanguage);

// A monitor of the desktop's X server and what it reports.
class Recorder
{
public:
    explicit Recorder(const QString &alternativeKey = QStringLiteral("Super_L"))
        : monitor(QString(), alternativeKey)
    {
        QObject::connect(&monitor, &ModifierKeyMonitor::keyEvent, &monitor,
                         [this](const GestureKeyEvent &event) {
                             m_events.append({int(event.key), int(event.held)});
                         });
    }

    // Sends the steps, then a tap of the right Alt key as an end mark, and answers what
    // came before the mark once the mark has arrived. Events are delivered in order, so
    // whatever the steps caused has arrived by then: no waiting for things not to happen.
    ReportedList reportedFor(const QStringList &steps, bool keepEarlier = false)
    {
        if (!keepEarlier)
            m_events.clear();
        // (A run of its own: xdotool's "type" takes every argument after it as text.)
        if (!DesktopInput::xdotool(steps) || !DesktopInput::xdotool(key(kRightAlt, "tap")))
            return {{-1, 0}};
        // The mark: right Alt down, then up, whatever else is held.
        const auto markArrived = [&] {
            if (m_events.size() < 2)
                return false;
            const ReportedList last = m_events.mid(m_events.size() - 2);
            return last[0].first == RA && (last[0].second & RA) && last[1].first == RA &&
                   !(last[1].second & RA);
        };
        if (!QTest::qWaitFor(markArrived, 10000))
            return m_events + ReportedList{{-2, 0}}; // shows what came instead of the mark
        return m_events.mid(0, m_events.size() - 2);
    }

    ModifierKeyMonitorX11 monitor;

private:
    ReportedList m_events;
};

// Gives one key another keysym until the returned guard goes, then its own back.
auto remapKey(int keyCode, const char *keysymName)
{
    Display *display = XOpenDisplay(nullptr);
    int symsPerCode = 0;
    KeySym *original = XGetKeyboardMapping(display, KeyCode(keyCode), 1, &symsPerCode);
    std::vector<KeySym> syms(symsPerCode, NoSymbol);
    syms[0] = XStringToKeysym(keysymName);
    XChangeKeyboardMapping(display, keyCode, symsPerCode, syms.data(), 1);
    XSync(display, False);
    return qScopeGuard([=] {
        XChangeKeyboardMapping(display, keyCode, symsPerCode, original, 1);
        XFree(original);
        XCloseDisplay(display); // syncs first: the server has the mapping back
    });
}

ReportedList tapOf(int key)
{
    return {{key, key}, {key, 0}};
}

const ReportedList kControlTap = tapOf(LC);

} // namespace

class TestModifierKeyMonitor : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(AtspiProbe::init(),
                 "no accessibility bus: run this under scripts/test-desktop.sh");
        QVERIFY(QTest::qWaitFor([&] {
            m_entry = AtspiProbe::targetApplication(QStringLiteral("GTK"))
                          .find(QStringLiteral("Target entry"));
            return !m_entry.isNull();
        }));
        // The keys go to a real application, as they would at a desktop.
        QVERIFY(DesktopInput::click(m_entry.screenRect().center()));
        QVERIFY(QTest::qWaitFor([&] { return m_entry.isFocused(); }));
    }

    void modifierChangesArriveInOrder_data()
    {
        DataRows::addColumns<QString, QStringList, ReportedList>("fnStandIn", "steps", "expected");

        const QString super = QStringLiteral("Super_L");
        const auto pressAround = [](int outer, int inner) {
            return key(outer, "down") + key(inner, "down") + key(inner, "up") + key(outer, "up");
        };
        // Each gesture key on its own is in a row below, or in the keyboard grab's test.
        QTest::newRow("the gesture: press, release, press and hold, release")
            << super << key(kLeftControl, "tap") + key(kLeftControl, "tap")
            << kControlTap + kControlTap;
        QTest::newRow("Alt pressed and released while Control is held")
            << super << pressAround(kLeftControl, kLeftAlt)
            << ReportedList{{LC, LC}, {LA, LC | LA}, {LA, LC}, {LC, 0}};
        QTest::newRow("left Control released while the right one is held")
            << super
            << key(kLeftControl, "down") + key(kRightControl, "down") + key(kLeftControl, "up") +
                   key(kRightControl, "up")
            << ReportedList{{LC, LC}, {RC, LC | RC}, {LC, RC}, {RC, 0}};
        QTest::newRow("alternative key moved to right Control: left Super is dropped")
            << QStringLiteral("Control_R") << pressAround(kRightControl, kLeftSuper) << tapOf(AL);
        QTest::newRow("an unknown alternative key name leaves it without a key")
            << QStringLiteral("NoSuchKey") << key(kLeftSuper, "tap") << ReportedList{};
    }

    void modifierChangesArriveInOrder()
    {
        auto [fnStandIn, steps, expected] =
            DataRows::fetch<QString, QStringList, ReportedList>("fnStandIn", "steps", "expected");

        Recorder recorder(fnStandIn);
        QVERIFY(recorder.monitor.install());
        QVERIFY(recorder.monitor.isInstalled());
        QCOMPARE(recorder.reportedFor(steps), expected);
    }

    void otherKeysAreDroppedAndStillReachTheApplication()
    {
        QVERIFY(m_entry.setText(QString()));
        QTRY_COMPARE(m_entry.text(), QString());
        Recorder recorder;
        QVERIFY(recorder.monitor.install());
        // Right Alt is the end mark; it types nothing.
        QCOMPARE(recorder.reportedFor({QStringLiteral("type"), QStringLiteral("abc 123")}),
                 ReportedList{});
        // Nothing was grabbed: the application got every key.
        QTRY_COMPARE(m_entry.text(), QStringLiteral("abc 123"));
    }

    // The typing panel holds an active keyboard grab while it is open, and gesture keys must
    // still arrive.
    void eventsArriveWhileAnotherClientGrabsTheKeyboard()
    {
        Display *grabber = XOpenDisplay(nullptr);
        QVERIFY(grabber);
        QCOMPARE(XGrabKeyboard(grabber, DefaultRootWindow(grabber), False, GrabModeAsync,
                               GrabModeAsync, CurrentTime),
                 GrabSuccess);
        XSync(grabber, False);

        Recorder recorder;
        QVERIFY(recorder.monitor.install());
        const ReportedList reported =
            recorder.reportedFor(key(kLeftSuper, "tap") + key(kLeftControl, "tap"));
        XUngrabKeyboard(grabber, CurrentTime);
        XCloseDisplay(grabber);
        QCOMPARE(reported, (tapOf(AL) + kControlTap));
    }

    void mappingChangesAreFollowed_data()
    {
        DataRows::addColumns<int, QString, ReportedList>("keyCode", "newKeysym", "expected");

        QTest::newRow("left Control's key made a left Alt") << kLeftControl << "Alt_L" << tapOf(LA);
        QTest::newRow("the Menu key made the alternative-language key")
            << kMenuKey << "Super_L" << tapOf(AL);
        QTest::newRow("left Alt's key made a letter") << kLeftAlt << "q" << ReportedList{};
    }

    void mappingChangesAreFollowed()
    {
        auto [keyCode, newKeysym, expected] =
            DataRows::fetch<int, QString, ReportedList>("keyCode", "newKeysym", "expected");

        Recorder recorder;
        QVERIFY(recorder.monitor.install());
        {
            const auto remapped = remapKey(keyCode, qPrintable(newKeysym));
            QCOMPARE(recorder.reportedFor(key(keyCode, "tap")), expected);
        }
        // And back.
        QCOMPARE(recorder.reportedFor(key(kLeftControl, "tap")), kControlTap);
    }

    // The server also announces a mapping change when typing moves to another keyboard, just
    // before the raw event of the key that moved it: that key, still held when the notice is
    // read, must not count as held already.
    void pressJustAfterAMappingChangeIsKept()
    {
        Recorder recorder;
        QVERIFY(recorder.monitor.install());
        ReportedList reported;
        {
            const auto remapped = remapKey(kMenuKey, "F13");
            reported = recorder.reportedFor(key(kLeftControl, "down"));
        }
        reported += recorder.reportedFor(key(kLeftControl, "up"));
        QCOMPARE(reported, kControlTap);
    }

    void keysHeldAtInstallAreCounted()
    {
        QVERIFY(DesktopInput::xdotool(key(kLeftControl, "down")));
        Recorder recorder;
        const bool installed = recorder.monitor.install();
        const ReportedList reported =
            recorder.reportedFor(key(kRightControl, "tap") + key(kLeftControl, "up"));
        QVERIFY(DesktopInput::xdotool(key(kLeftControl, "up"))); // whatever happened, release it
        QVERIFY(installed);
        QCOMPARE(reported, (ReportedList{{RC, LC | RC}, {RC, LC}, {LC, 0}}));
    }

    // Tolkaro's own keystrokes (announced, then expired once sent) are passed over; a remote
    // desktop or on-screen keyboard typing through the same XTest device meanwhile loses no key.
    void anotherXTestClientLosesNoKey()
    {
        Recorder recorder;
        QVERIFY(recorder.monitor.install());
        constexpr int kTaps = 25;
        QProcess other;
        other.start(
            QStringLiteral("xdotool"),
            QStringList{QStringLiteral("key"), QStringLiteral("--delay"), QStringLiteral("15")} +
                QStringList(kTaps, QString::number(kRightControl)));
        XTestKeySender own;
        QVERIFY(other.waitForStarted());
        // Tolkaro's keystrokes while the other client types: a bounded number, so that a slow
        // server (sanitizer builds) is not kept busy with ours until the other gives up.
        for (int sent = 0; sent < 40 && other.state() != QProcess::NotRunning; ++sent) {
            QVERIFY(own.tapKeysym(XK_j, {XK_Control_L}));
            own.sync();
            QTest::qWait(7);
        }
        QVERIFY(other.waitForFinished(20000));
        ReportedList expected;
        while (expected.size() < 2 * kTaps)
            expected += tapOf(RC);
        QCOMPARE(recorder.reportedFor({QStringLiteral("sleep"), QStringLiteral("0")}, true),
                 expected);
    }

    void removedMonitorReportsNothing()
    {
        Recorder removed;
        QVERIFY(removed.monitor.install());
        removed.monitor.remove();
        QVERIFY(!removed.monitor.isInstalled());
        int reportedByRemoved = 0;
        connect(&removed.monitor, &ModifierKeyMonitor::keyEvent, this,
                [&] { ++reportedByRemoved; });

        // A second monitor tells when the keys have gone by.
        Recorder witness;
        QVERIFY(witness.monitor.install());
        QCOMPARE(witness.reportedFor(key(kLeftControl, "tap")), kControlTap);
        QCOMPARE(reportedByRemoved, 0);

        // And it comes back when installed again.
        QVERIFY(removed.monitor.install());
        QCOMPARE(removed.reportedFor(key(kLeftControl, "tap")), kControlTap);
    }

    // Without the generic events that carry them there are no XInput 2 events; without a display,
    // nothing at all.
    void serverWithoutXInput2CannotBeMonitored()
    {
        QStringList log;
        tolkaro::setLogSink([&log](const QString &line) { log << line; });
        QVERIFY(!ModifierKeyMonitorX11(QStringLiteral(":4711"), QStringLiteral("Super_L"))
                     .canInstall());
        tolkaro::setLogSink({});
        QCOMPARE(log, QStringList{QStringLiteral("Key monitor: cannot open the X display")});

        QProcess server;
        QTemporaryFile displayFile;
        QVERIFY(displayFile.open());
        server.setStandardOutputFile(QProcess::nullDevice());
        server.setStandardErrorFile(QProcess::nullDevice());
        server.start(
            QStringLiteral("sh"),
            {QStringLiteral("-c"), QStringLiteral("exec Xvfb -displayfd 3 -nolisten tcp -extension "
                                                  "\"Generic Event Extension\" 3>%1")
                                       .arg(displayFile.fileName())});
        QVERIFY(QTest::qWaitFor([&] { return displayFile.size() > 0; }, 15000));
        ModifierKeyMonitorX11 monitor(QLatin1Char(':') +
                                          QString::fromLatin1(displayFile.readAll()).trimmed(),
                                      QStringLiteral("Super_L"));
        QVERIFY(!monitor.canInstall());
        QVERIFY(!monitor.install());
        QVERIFY(!monitor.isInstalled());
        server.terminate();
        server.waitForFinished(10000);
    }

private:
    AtspiElement m_entry;
};

QTEST_GUILESS_MAIN(TestModifierKeyMonitor)
#include "tst_modifierkeymonitor.moc"
