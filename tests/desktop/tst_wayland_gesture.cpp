// The gesture, the replace and the typing panel over native applications on the Wayland test desktops, against
// the real tolkaro, input through the compositor ($TOLKARO_DESKTOP_INPUT). Extents are
// window-relative there: a screen point is TOLKARO_<TARGET>_TARGET_ORIGIN plus them.

#include "AtspiProbe.h"
#include "DataRows.h"
#include "DesktopClipboard.h"
#include "DesktopInput.h"
#include "LoopbackTranslationServer.h"
#include "TolkaroUnderTest.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QtTest>

namespace {

using TolkaroUnderTest::popoverShown;
using TolkaroUnderTest::popoverText;
using Answer = LoopbackTranslationServer::Answer;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
const QString kEntry = QStringLiteral("Target entry");
constexpr int kNothingHappensWait = 1200;

// Qt applications may register twice (Qt's bridge, and GTK's through a platform theme).
AtspiElement element(const QString &target, const QString &name, const QString &role = {})
{
    const qint64 pid =
        qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_PID").arg(target)))
            .toLongLong();
    for (const AtspiElement &application : AtspiProbe::applications()) {
        if (application.processId() != pid)
            continue;
        if (const AtspiElement found = application.find(name, role); !found.isNull())
            return found;
    }
    return AtspiElement();
}

// Where a user points at the element: its middle, on the screen.
QPoint pointAt(const QString &target, const AtspiElement &element)
{
    const QStringList origin =
        qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_ORIGIN").arg(target)))
            .split(u',');
    return QPoint(origin.value(0).toInt(), origin.value(1).toInt()) +
           element.screenRect().center();
}

QPoint labelPoint(const QString &target)
{
    return pointAt(target, element(target, kLabelText, QStringLiteral("label")));
}

// The helper switched on or off through GNOME Shell, as the Extensions application does.
bool setHelperEnabled(bool enabled)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.gnome.Shell"), QStringLiteral("/org/gnome/Shell"),
        QStringLiteral("org.gnome.Shell.Extensions"),
        enabled ? QStringLiteral("EnableExtension") : QStringLiteral("DisableExtension"));
    call.setArguments({QStringLiteral("tolkaro-helper@tolkaro.org")});
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call);
    if (reply.type() != QDBusMessage::ReplyMessage)
        qWarning() << "the shell did not switch the helper:" << reply.errorMessage();
    return reply.type() == QDBusMessage::ReplyMessage;
}

bool onGnome()
{
    return qEnvironmentVariable("TOLKARO_DESKTOP_SESSION") == u"gnome-wayland";
}

} // namespace

class TestWaylandGesture : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void gestureShowsTheTextThenItsTranslation_data();
    void gestureShowsTheTextThenItsTranslation();
    void selectionWins_data();
    void selectionWins();
    void gesturesThatDoNothing_data();
    void gesturesThatDoNothing();
    void alternativeKeyAsksAgain();
    void altReplacesTheSelectionAndKeepsTheClipboard_data();
    void altReplacesTheSelectionAndKeepsTheClipboard();
    void typingPanelPastesIntoTheWindowLeft_data();
    void typingPanelPastesIntoTheWindowLeft();
    // Last: it switches the helper off and on.
    void withoutTheHelperTheDialogAndTheShortMenu();

private:
    // Selects "world" in the target's entry, typed "Hello world".
    bool selectWorld(const QString &target);

    LoopbackTranslationServer m_server;
    QTemporaryDir m_configHome;
    QProcess m_tolkaro;
};

void TestWaylandGesture::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
                 !qEnvironmentVariableIsEmpty("TOLKARO_DESKTOP_INPUT"),
             "run inside scripts/test-desktop.sh --session gnome-wayland (or kde-wayland)");
    QVERIFY(AtspiProbe::init());
    m_tolkaro.setProcessChannelMode(QProcess::ForwardedChannels);
    // Ctrl+Alt+Space opens the typing panel: GNOME keeps the default, Alt+Space, for its
    // window menu, and the notice saying so would hold the focus.
    QSettings(m_configHome.path() + QStringLiteral("/Tolkaro/Tolkaro.conf"), QSettings::IniFormat)
        .setValue(QStringLiteral("TypingModeKeyboardShortcut"),
                  QStringLiteral("%1,%2").arg(0x20).arg(int(Qt::ControlModifier | Qt::AltModifier)));
    QVERIFY(TolkaroUnderTest::start(m_tolkaro, QStringLiteral(TOLKARO_BINARY), m_configHome.path(),
                                    m_server.baseUrl(), QStringLiteral("de")));
}

void TestWaylandGesture::init()
{
    m_server.setDefaultAnswer(Answer::echo());
    m_server.clearRequests();
    QTest::qWait(500); // never paired with the last press of the row before
}

void TestWaylandGesture::cleanup()
{
    DesktopInput::xdotool(QStringLiteral("keyup 37 keyup 64 keyup 105 keyup 133"));
    TolkaroUnderTest::testInterface().call(QStringLiteral("HidePopOver"));
    (void)QTest::qWaitFor([] { return !popoverShown(); }, 3000);
}

void TestWaylandGesture::cleanupTestCase()
{
    if (onGnome())
        setHelperEnabled(true);
    TolkaroUnderTest::stop(m_tolkaro);
}

bool TestWaylandGesture::selectWorld(const QString &target)
{
    const AtspiElement entry = element(target, kEntry);
    return DesktopInput::click(pointAt(target, entry)) &&
           QTest::qWaitFor([&] { return entry.isFocused(); }, 5000) &&
           entry.setText(QStringLiteral("Hello world")) && entry.selectText(6, 11) &&
           QTest::qWaitFor([&] { return entry.selectedText() == u"world"; }, 5000);
}

void TestWaylandGesture::gestureShowsTheTextThenItsTranslation_data()
{
    // text: typed into it first, unless empty
    DataRows::addColumns<QString, QString, QString>("target", "name", "text");
    const QString view = QStringLiteral("Target text view");
    for (const QString target : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        QTest::addRow("%s label", qPrintable(target)) << target << kLabelText << QString();
        QTest::addRow("%s entry", qPrintable(target)) << target << kEntry << "Several words typed into the entry";
        QTest::addRow("%s text view", qPrintable(target)) << target << view << "Several words typed into the text view";
    }
}

void TestWaylandGesture::gestureShowsTheTextThenItsTranslation()
{
    const auto [target, name, text] =
        DataRows::fetch<QString, QString, QString>("target", "name", "text");
    const AtspiElement pointed = element(target, name);
    if (!text.isEmpty())
        QVERIFY(pointed.setText(text));
    const QString shown = text.isEmpty() ? name : text;
    m_server.enqueueAnswer(Answer::slowly(LoopbackTranslationServer::echoBody("Übersetzt"), 1500));
    const QPoint pointer = pointAt(target, pointed);
    QVERIFY(DesktopInput::moveTo(pointer) && DesktopInput::doublePressAndHold(37));
    QTRY_COMPARE_WITH_TIMEOUT(popoverText(), shown, 5000);

    // At the pointer: over or under it, never covering it.
    const int gap = TolkaroUnderTest::popoverGapFromPointer(pointer);
    QVERIFY2(gap >= 0 && gap <= 48, qPrintable(QString::number(gap)));

    QTRY_COMPARE_WITH_TIMEOUT(popoverText(),
                              LoopbackTranslationServer::echoTranslation(QStringLiteral("Übersetzt")),
                              10000);
    QCOMPARE(m_server.requests().constFirst().queryText(), shown);
    QVERIFY(DesktopInput::xdotool(QStringLiteral("keyup 37")));
    QTRY_VERIFY(!popoverShown());
}

void TestWaylandGesture::selectionWins_data()
{
    QTest::addColumn<QString>("target");
    QTest::newRow("GTK") << QStringLiteral("GTK");
    QTest::newRow("Qt") << QStringLiteral("QT");
}

void TestWaylandGesture::selectionWins()
{
    QFETCH(QString, target);
    QVERIFY(selectWorld(target));
    // Pointing at the label of the same window: the selection is what the user means.
    QVERIFY(DesktopInput::moveTo(labelPoint(target)) && DesktopInput::doublePressAndHold(37));
    QTRY_COMPARE(popoverText(), LoopbackTranslationServer::echoTranslation(QStringLiteral("world")));
}

void TestWaylandGesture::gesturesThatDoNothing_data()
{
    QTest::addColumn<QString>("keys");
    QTest::newRow("right Control") << "keydown 105 sleep 0.06 keyup 105 sleep 0.1 keydown 105";
    QTest::newRow("presses 0.41 s apart") << "keydown 37 sleep 0.06 keyup 37 sleep 0.35 keydown 37";
}

void TestWaylandGesture::gesturesThatDoNothing()
{
    QFETCH(QString, keys);
    // The GTK 3 window focused: it tells the keys' sides (GTK 4 windows do not; Qt 6.4 on
    // Wayland forwards no keys at all).
    const AtspiElement entry = element(QStringLiteral("GTK"), kEntry);
    QVERIFY(DesktopInput::click(pointAt(QStringLiteral("GTK"), entry)));
    QTRY_VERIFY(entry.isFocused());
    const QPoint label = labelPoint(QStringLiteral("GTK"));
    QVERIFY(DesktopInput::xdotool(
        QStringLiteral("mousemove %1 %2 %3").arg(label.x()).arg(label.y()).arg(keys)));
    QTest::qWait(kNothingHappensWait);
    QVERIFY(!popoverShown());
    QCOMPARE(m_server.requestCount(), 0);
}

void TestWaylandGesture::alternativeKeyAsksAgain()
{
    if (!onGnome())
        QSKIP("KWin keeps Meta (Super) to itself while a native Qt window has the focus");
    QVERIFY(DesktopInput::moveTo(labelPoint(QStringLiteral("GTK"))) &&
            DesktopInput::doublePressAndHold(37));
    QTRY_COMPARE(m_server.requestCount(), 1);
    // Super_L, the alternative-language key by default: the same text, into English.
    QVERIFY(DesktopInput::xdotool(QStringLiteral("keydown 133")));
    QTRY_COMPARE(m_server.requestCount(), 2);
    QVERIFY(m_server.requests().at(1).target().contains("tl=en"));
    QCOMPARE(m_server.requests().at(1).queryText(), kLabelText);
    // Releasing Super opens GNOME's overview, which would keep the keys of the next rows.
    QVERIFY(DesktopInput::xdotool(QStringLiteral("keyup 133 keyup 37 sleep 0.5 key Escape")));
}

void TestWaylandGesture::altReplacesTheSelectionAndKeepsTheClipboard_data()
{
    selectionWins_data();
}

void TestWaylandGesture::altReplacesTheSelectionAndKeepsTheClipboard()
{
    QFETCH(QString, target);
    QVERIFY(selectWorld(target));
    const QByteArray before = "What the user copied before";
    QVERIFY(DesktopClipboard::setText(before));
    m_server.enqueueAnswer(
        Answer::well(QByteArrayLiteral(R"([[["Welt","world",null,null,10]],null,"en"])")));
    QVERIFY(DesktopInput::doublePressAndHold(37));
    QTRY_COMPARE(popoverText(), QStringLiteral("Welt"));
    QVERIFY(DesktopInput::xdotool(QStringLiteral("keydown 64 sleep 0.08 keyup 64")));
    const AtspiElement entry = element(target, kEntry);
    QTRY_COMPARE_WITH_TIMEOUT(entry.text(), QStringLiteral("Hello Welt"), 10000);
    QVERIFY(DesktopInput::xdotool(QStringLiteral("keyup 37")));
    QTRY_VERIFY(!popoverShown());
    QTRY_COMPARE_WITH_TIMEOUT(DesktopClipboard::bytes(), std::optional<QByteArray>(before), 10000);
}

void TestWaylandGesture::typingPanelPastesIntoTheWindowLeft_data()
{
    selectionWins_data();
}

void TestWaylandGesture::typingPanelPastesIntoTheWindowLeft()
{
    QFETCH(QString, target);
    const auto panel = [] {
        return TolkaroUnderTest::call<QVariantMap>(QStringLiteral("TypingPanelState"));
    };
    const AtspiElement entry = element(target, kEntry);
    QVERIFY(DesktopInput::click(pointAt(target, entry)));
    QTRY_VERIFY(entry.isFocused());
    QVERIFY(entry.setText(QString()));
    // The shortcut through the compositor; the panel opens holding the focus.
    QVERIFY(DesktopInput::xdotool(QStringLiteral("key ctrl+alt+space")));
    QTRY_VERIFY_WITH_TIMEOUT(panel().value(QStringLiteral("active")).toBool(), 5000);
    QVERIFY(DesktopInput::xdotool(QStringLiteral("type hund")));
    const QString translation = LoopbackTranslationServer::echoTranslation(QStringLiteral("hund"));
    QTRY_COMPARE_WITH_TIMEOUT(panel().value(QStringLiteral("translation")).toString(),
                              translation, 10000);
    QVERIFY(DesktopInput::xdotool(QStringLiteral("key Return")));
    QTRY_VERIFY(!panel().value(QStringLiteral("visible")).toBool());
    QTRY_COMPARE_WITH_TIMEOUT(entry.text(), translation, 10000);
}

void TestWaylandGesture::withoutTheHelperTheDialogAndTheShortMenu()
{
    if (!onGnome())
        QSKIP("GNOME's helper only");
    QVERIFY(setHelperEnabled(false));
    // The next trust check (every 5 s): the short menu, and the dialog saying what to do.
    QTRY_COMPARE_WITH_TIMEOUT(TolkaroUnderTest::statusMenuItemCount(), 2, 8000);
    // Its default button switches the helper on again.
    QTest::qWait(1000);
    QVERIFY(DesktopInput::xdotool(QStringLiteral("key Return")));
    QTRY_VERIFY_WITH_TIMEOUT(TolkaroUnderTest::statusMenuItemCount() > 2, 12000);
}

QTEST_GUILESS_MAIN(TestWaylandGesture)
#include "tst_wayland_gesture.moc"
