// The gesture as a user makes it, against the real tolkaro process: the pointer over a GTK
// or Qt application's text, left Control pressed, released and pressed again and held, keys
// from XTest as from a keyboard. The translation endpoint is a loopback server in this
// process; what the popover shows is read through tolkaro's test object on D-Bus (and the
// translation also from tolkaro's accessibility tree, as a screen reader finds it).

#include "AtspiProbe.h"
#include "DesktopClipboard.h"
#include "DesktopInput.h"
#include "LoopbackTranslationServer.h"
#include "TolkaroUnderTest.h"
#include "platform/x11/X11WindowQueries.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QUrlQuery>
#include <QtTest>

namespace {

using TolkaroUnderTest::popOverState;
using Answer = LoopbackTranslationServer::Answer;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
// Long enough for a check of the trust monitor to have happened (it checks every 5 s).
constexpr int kTrustCheckWait = 7000;
// How long a gesture that should do nothing is given to do something after all.
constexpr int kNothingHappensWait = 1200;

// A key down, up and down again `secondPressAt` ms after the first press, then held.
QStringList doublePress(int keyCode, int secondPressAt = 160)
{
    return {QStringLiteral("%1:down@0").arg(keyCode), QStringLiteral("%1:up@60").arg(keyCode),
            QStringLiteral("%1:down@%2").arg(keyCode).arg(secondPressAt)};
}

// Left Control pressed twice well inside the double-press window, then held.
const QStringList kDoublePressAndHold = doublePress(37);

// An answer translating into echoTranslation(text).
Answer answer(const char *text, int delayMs = 0)
{
    return Answer::slowly(LoopbackTranslationServer::echoBody(text), delayMs);
}

// A parameter of a recorded request, decoded (form encoding: "+" is a space).
QString queryValue(const LoopbackTranslationServer::RecordedRequest &request, const char *key)
{
    const QByteArray target = request.target();
    return QUrlQuery(QString::fromUtf8(target.mid(target.indexOf('?') + 1).replace('+', "%20")))
        .queryItemValue(QString::fromLatin1(key), QUrl::FullyDecoded);
}

bool popoverShown()
{
    return popOverState().value(QStringLiteral("windowVisible")).toBool();
}

QString popoverText()
{
    return popOverState().value(QStringLiteral("text")).toString();
}

QString activeWindowClass()
{
    X11WindowQueries windows;
    return windows.windowClass(windows.activeWindow());
}

bool pointAt(const QPoint &point)
{
    return DesktopInput::inject({QStringLiteral("move:%1,%2").arg(point.x()).arg(point.y())});
}

bool key(int keyCode, const char *direction)
{
    return DesktopInput::inject({QStringLiteral("%1:%2").arg(keyCode).arg(QLatin1String(direction))});
}

} // namespace

class TestGestureE2E : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void heldGestureShowsTheTextThenItsTranslation_data();
    void heldGestureShowsTheTextThenItsTranslation();
    void releaseCancelsAndAQuickPressStartsAfresh();
    void notAGesture_data();
    void notAGesture();
    void fnStandInAsksInTheAlternativeLanguage();
    void optionReplacesTheSelectionAndKeepsTheClipboard();
    void withoutAccessibilityTheMonitorsGoAndComeBack();

private:
    // The label's middle, where a user points to read it.
    QPoint labelPoint() const { return m_label.screenRect().center(); }

    LoopbackTranslationServer m_server;
    QTemporaryDir m_configHome;
    QProcess m_tolkaro;
    AtspiElement m_label;
    AtspiElement m_qtLabel;
    AtspiElement m_entry;
};

void TestGestureE2E::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run inside scripts/test-desktop.sh");
    QVERIFY(AtspiProbe::init());
    QVERIFY(m_server.isListening());
    const AtspiElement gtk = AtspiProbe::targetApplication(QStringLiteral("GTK"));
    m_label = gtk.find(kLabelText, QStringLiteral("label"));
    m_entry = gtk.find(QStringLiteral("Target entry"));
    m_qtLabel = AtspiProbe::targetApplication(QStringLiteral("QT")).find(kLabelText, QStringLiteral("label"));
    QVERIFY(!m_label.screenRect().isEmpty() && !m_entry.isNull() && !m_qtLabel.isNull());

    // The alternative language is English at every launch.
    m_tolkaro.setProcessChannelMode(QProcess::ForwardedChannels);
    QVERIFY(TolkaroUnderTest::start(m_tolkaro, QStringLiteral(TOLKARO_BINARY),
                                    m_configHome.path(), m_server.baseUrl(),
                                    QStringLiteral("de")));
}

void TestGestureE2E::init()
{
    QVERIFY(m_tolkaro.state() == QProcess::Running);
    m_server.setDefaultAnswer(Answer::echo());
    m_server.clearRequests();
    // A gesture's first press never pairs with the last press of the row before.
    QTest::qWait(500);
}

void TestGestureE2E::cleanup()
{
    // No key stays down for the next row, whatever failed.
    DesktopInput::inject({QStringLiteral("64:up"), QStringLiteral("133:up"),
                          QStringLiteral("105:up"), QStringLiteral("37:up")});
    TolkaroUnderTest::testInterface().call(QStringLiteral("HidePopOver"));
    (void)QTest::qWaitFor([] { return !popoverShown(); }, 3000);
}

void TestGestureE2E::cleanupTestCase()
{
    AtspiProbe::setAccessibilityEnabled(true);
    TolkaroUnderTest::stop(m_tolkaro);
}

void TestGestureE2E::heldGestureShowsTheTextThenItsTranslation_data()
{
    QTest::addColumn<bool>("qt");
    QTest::newRow("GTK label") << false;
    QTest::newRow("Qt label") << true;
}

void TestGestureE2E::heldGestureShowsTheTextThenItsTranslation()
{
    QFETCH(bool, qt);
    // Answered late enough to see what the popover shows before.
    m_server.enqueueAnswer(answer("Der schnelle braune Fuchs", 1500));
    const QString translation = LoopbackTranslationServer::echoTranslation(QStringLiteral("Der schnelle braune Fuchs"));
    const QPoint pointer = qt ? m_qtLabel.screenRect().center() : labelPoint();
    QVERIFY(pointAt(pointer));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));

    QTRY_VERIFY(popoverShown());
    QTRY_COMPARE(popoverText(), kLabelText);
    const QVariantMap state = popOverState();
    const QRect body = TolkaroUnderTest::rectOf(state);
    // At the pointer: over or under it, its arrow's length away, never covering it.
    QVERIFY2(body.left() <= pointer.x() && pointer.x() <= body.right(),
             qPrintable(QDebug::toString(body)));
    const int gap = state.value(QStringLiteral("abovePointer")).toBool()
                        ? pointer.y() - body.bottom()
                        : body.top() - pointer.y();
    QVERIFY2(gap >= 0 && gap <= 48, qPrintable(QString::number(gap)));

    QTRY_COMPARE_WITH_TIMEOUT(popoverText(), translation, 10000);
    // What a screen reader finds in tolkaro's own tree agrees.
    const AtspiElement tolkaro = AtspiProbe::applicationByPid(m_tolkaro.processId());
    QTRY_VERIFY(!tolkaro.find(translation, QStringLiteral("label")).isNull());
    QCOMPARE(m_server.requestCount(), 1);
    QCOMPARE(queryValue(m_server.requests().constFirst(), "tl"), QStringLiteral("de"));
    QCOMPARE(m_server.requests().constFirst().queryText(), kLabelText);

    // The new text fades in; pictured once it has.
    QTest::qWait(800);
    const QString screenshot = QStringLiteral(TOLKARO_DESKTOP_TEST_OUTPUT_DIR
                                              "/tst_gesture_e2e-held-%1.png")
                                   .arg(qt ? QStringLiteral("qt") : QStringLiteral("gtk"));
    QCOMPARE(QProcess::execute(QStringLiteral("import"),
                               {QStringLiteral("-window"), QStringLiteral("root"), screenshot}),
             0);

    QVERIFY(key(37, "up"));
    QTRY_VERIFY(!popoverShown());
}

void TestGestureE2E::releaseCancelsAndAQuickPressStartsAfresh()
{
    // The first answer comes while the next gesture's popover is up: neither it nor the
    // cancelled request's message may land there.
    m_server.enqueueAnswer(answer("Too late", 2500));
    m_server.enqueueAnswer(answer("Second answer", 1000));
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(m_server.requestCount(), 1);
    QElapsedTimer sinceFirstRequest;
    sinceFirstRequest.start();
    // Released, and pressed again right after: the next gesture.
    QVERIFY(DesktopInput::inject({QStringLiteral("37:up@0"), QStringLiteral("37:down@120")}));
    QTRY_COMPARE(m_server.requestCount(), 2);

    const QString second = LoopbackTranslationServer::echoTranslation(QStringLiteral("Second answer"));
    QStringList seen;
    const auto watch = [&] {
        const QString text = popoverText();
        if (seen.isEmpty() || seen.last() != text)
            seen << text;
        return text == second;
    };
    QTRY_VERIFY_WITH_TIMEOUT(watch(), 10000);
    // Past the first answer's arrival.
    while (sinceFirstRequest.elapsed() < 3000) {
        watch();
        QTest::qWait(50);
    }
    QVERIFY(popoverShown());
    // The first gesture's text may be seen before the second one replaces it; nothing else.
    seen.removeAll(kLabelText);
    QCOMPARE(seen, QStringList{second});
}

void TestGestureE2E::notAGesture_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::newRow("left Control presses 0.8 s apart") << doublePress(37, 860);
    QTest::newRow("right Control double press") << doublePress(105);
    QTest::newRow("left Alt double press") << doublePress(64);
}

void TestGestureE2E::notAGesture()
{
    QFETCH(QStringList, steps);
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(steps));
    QTest::qWait(kNothingHappensWait);
    QVERIFY(!popoverShown());
    QCOMPARE(m_server.requestCount(), 0);
}

void TestGestureE2E::fnStandInAsksInTheAlternativeLanguage()
{
    const auto shown = [](const char *text) {
        return LoopbackTranslationServer::echoTranslation(QLatin1String(text));
    };
    for (const char *text : {"Auf Deutsch", "In English", "Wieder auf Deutsch"})
        m_server.enqueueAnswer(answer(text));
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(popoverText(), shown("Auf Deutsch"));
    // Left Super stands in for fn: English while it is down, German again after.
    QVERIFY(key(133, "down"));
    QTRY_COMPARE(popoverText(), shown("In English"));
    QVERIFY(key(133, "up"));
    QTRY_COMPARE(popoverText(), shown("Wieder auf Deutsch"));
    QVERIFY(popoverShown());

    const auto requests = m_server.requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(queryValue(requests[0], "tl"), QStringLiteral("de"));
    QCOMPARE(queryValue(requests[1], "tl"), QStringLiteral("en"));
    QCOMPARE(queryValue(requests[2], "tl"), QStringLiteral("de"));
    for (const auto &request : requests)
        QCOMPARE(request.queryText(), kLabelText);
}

void TestGestureE2E::optionReplacesTheSelectionAndKeepsTheClipboard()
{
    QVERIFY(DesktopInput::focusByClick(m_entry.screenRect().center()));
    QVERIFY(m_entry.setText(QStringLiteral("Hello world")));
    QVERIFY(m_entry.selectText(6, 11));
    QTRY_COMPARE(m_entry.selectedText(), QStringLiteral("world"));
    const QByteArray before = "What the user copied before";
    QVERIFY(DesktopClipboard::setText(before));

    m_server.enqueueAnswer(Answer::well(QByteArrayLiteral(R"([[["Welt","world",null,null,10]],null,"en"])")));
    QVERIFY(pointAt(m_entry.screenRect().center()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(popoverText(), QStringLiteral("Welt"));
    QCOMPARE(m_server.requests().constFirst().queryText(), QStringLiteral("world"));

    QVERIFY(DesktopInput::inject({QStringLiteral("64:down"), QStringLiteral("64:up@80")}));
    QTRY_COMPARE_WITH_TIMEOUT(m_entry.text(), QStringLiteral("Hello Welt"), 10000);
    QVERIFY(key(37, "up"));
    QTRY_VERIFY(!popoverShown());
    QTRY_COMPARE_WITH_TIMEOUT(DesktopClipboard::bytes(), std::optional<QByteArray>(before), 10000);
}

void TestGestureE2E::withoutAccessibilityTheMonitorsGoAndComeBack()
{
    QVERIFY(AtspiProbe::setAccessibilityEnabled(false));
    // The next check: the short menu, and the permission dialog in front.
    QTRY_COMPARE_WITH_TIMEOUT(TolkaroUnderTest::statusMenuItemCount(), 2, kTrustCheckWait);
    QTRY_COMPARE_WITH_TIMEOUT(activeWindowClass(), QStringLiteral("Tolkaro"), kTrustCheckWait);

    // The keys are no one's business now.
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTest::qWait(kNothingHappensWait);
    QVERIFY(!popoverShown());
    QCOMPARE(m_server.requestCount(), 0);
    QVERIFY(key(37, "up"));

    // Switched on from outside, and the dialog answered with its default button.
    QVERIFY(AtspiProbe::setAccessibilityEnabled(true));
    QVERIFY(DesktopInput::inject({QStringLiteral("Return:tap")}));
    QTRY_VERIFY_WITH_TIMEOUT(activeWindowClass() != QStringLiteral("Tolkaro"), 5000);
    // Within one check period (5 s) of the dialog closing, with a second's slack for a busy
    // machine.
    QTRY_VERIFY_WITH_TIMEOUT(TolkaroUnderTest::statusMenuItemCount() > 2, 6000);

    QTest::qWait(500);
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(popoverText(), LoopbackTranslationServer::echoTranslation(kLabelText));
    QVERIFY(key(37, "up"));
    QTRY_VERIFY(!popoverShown());
}

QTEST_GUILESS_MAIN(TestGestureE2E)
#include "tst_gesture_e2e.moc"
