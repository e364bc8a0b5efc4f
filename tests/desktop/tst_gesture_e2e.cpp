// The gesture as a user makes it, against the real tolkaro process: the pointer over a GTK
// or Qt application's text, left Control pressed, released and pressed again and held, keys
// from XTest as from a keyboard. The translation endpoint is a loopback server in this
// process; what the popover shows is read through tolkaro's test object on D-Bus (and the
// translation also from tolkaro's accessibility tree, as a screen reader finds it).

#include "AtspiProbe.h"
#include "DesktopInput.h"
#include "LoopbackTranslationServer.h"
#include "TolkaroUnderTest.h"

#include <QDBusInterface>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QUrlQuery>
#include <QtTest>

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace {

using TolkaroUnderTest::popOverState;
using TolkaroUnderTest::statusMenuItemCount;
using TolkaroUnderTest::testInterface;
using Answer = LoopbackTranslationServer::Answer;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
const QString kEntryName = QStringLiteral("Target entry");
// Long enough for a check of the trust monitor to have happened (it checks every 5 s).
constexpr int kTrustCheckWait = 7000;
// How long a gesture that should do nothing is given to do something after all.
constexpr int kNothingHappensWait = 1200;

// Left Control down, up and down again well inside the double-press window, then held.
const QStringList kDoublePressAndHold = {QStringLiteral("37:down@0"), QStringLiteral("37:up@60"),
                                         QStringLiteral("37:down@160")};

QByteArray answerBody(const QString &translation)
{
    const QJsonArray sentence{translation, QStringLiteral("source"), QJsonValue(), QJsonValue(),
                              10};
    const QJsonArray body{QJsonArray{sentence}, QJsonValue(), QStringLiteral("en")};
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

// The query of a recorded request, decoded (form encoding: "+" is a space).
QUrlQuery queryOf(const LoopbackTranslationServer::RecordedRequest &request)
{
    QByteArray query = request.target();
    query = query.mid(query.indexOf('?') + 1).replace('+', "%20");
    return QUrlQuery(QString::fromUtf8(query));
}

QString queryValue(const LoopbackTranslationServer::RecordedRequest &request, const char *key)
{
    return queryOf(request).queryItemValue(QString::fromLatin1(key), QUrl::FullyDecoded);
}

bool popoverShown()
{
    return popOverState().value(QStringLiteral("windowVisible")).toBool();
}

QString popoverText()
{
    return popOverState().value(QStringLiteral("text")).toString();
}

// Sets IsEnabled as another program would (a settings panel, a screen reader).
bool setAccessibilityEnabled(bool enabled)
{
    return QProcess::execute(
               QStringLiteral("gdbus"),
               {QStringLiteral("call"), QStringLiteral("--session"), QStringLiteral("--timeout"),
                QStringLiteral("5"), QStringLiteral("--dest"), QStringLiteral("org.a11y.Bus"),
                QStringLiteral("--object-path"), QStringLiteral("/org/a11y/bus"),
                QStringLiteral("--method"), QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"),
                enabled ? QStringLiteral("<true>") : QStringLiteral("<false>")}) == 0;
}

bool setClipboard(const QByteArray &text)
{
    // xclip stays behind as the clipboard's owner until another application takes it.
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"),
                {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-i")});
    if (!xclip.waitForStarted(5000))
        return false;
    xclip.write(text);
    xclip.closeWriteChannel();
    return xclip.waitForFinished(5000) && xclip.exitCode() == 0;
}

std::optional<QByteArray> clipboard()
{
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"),
                {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o")});
    if (!xclip.waitForFinished(5000) || xclip.exitCode() != 0)
        return std::nullopt;
    return xclip.readAllStandardOutput();
}

int ignoreXErrors(Display *, XErrorEvent *)
{
    return 0;
}

// The class of the window the window manager calls active.
QString activeWindowClass()
{
    Display *display = XOpenDisplay(nullptr);
    if (!display)
        return {};
    XSetErrorHandler(ignoreXErrors);
    const Atom property = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
    Atom type;
    int format;
    unsigned long count, after;
    unsigned char *data = nullptr;
    QString result;
    if (XGetWindowProperty(display, DefaultRootWindow(display), property, 0, 1, False, XA_WINDOW,
                           &type, &format, &count, &after, &data) == Success &&
        data && count == 1) {
        XClassHint hint{};
        if (XGetClassHint(display, *reinterpret_cast<Window *>(data), &hint)) {
            result = QString::fromLatin1(hint.res_class);
            XFree(hint.res_name);
            XFree(hint.res_class);
        }
    }
    if (data)
        XFree(data);
    XCloseDisplay(display);
    return result;
}

bool pointAt(const QPoint &point)
{
    return DesktopInput::inject({QStringLiteral("move:%1,%2").arg(point.x()).arg(point.y())});
}

bool key(int keyCode, const char *direction)
{
    return DesktopInput::inject({QStringLiteral("%1:%2").arg(keyCode).arg(
        QString::fromLatin1(direction))});
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
    void releaseHidesAndCancelsThePendingAnswer();
    void quickPressAfterReleaseStartsAfresh();
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
    AtspiElement m_gtk;
    AtspiElement m_label;
    AtspiElement m_qtLabel;
    AtspiElement m_entry;
};

void TestGestureE2E::initTestCase()
{
    QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "run inside scripts/test-desktop.sh");
    QVERIFY(AtspiProbe::init());
    QVERIFY(m_server.isListening());
    QVERIFY(m_configHome.isValid());

    m_gtk = AtspiProbe::applicationByPid(qEnvironmentVariable("TOLKARO_GTK_TARGET_PID").toLongLong());
    QVERIFY(!m_gtk.isNull());
    m_label = m_gtk.find(kLabelText, QStringLiteral("label"));
    m_entry = m_gtk.find(kEntryName);
    QVERIFY(!m_label.isNull());
    QVERIFY(!m_entry.isNull());
    QVERIFY(!m_label.screenRect().isEmpty());
    m_qtLabel = AtspiProbe::applicationByPid(qEnvironmentVariable("TOLKARO_QT_TARGET_PID").toLongLong())
                    .find(kLabelText, QStringLiteral("label"));
    QVERIFY(!m_qtLabel.isNull());

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
    QDBusInterface test = testInterface();
    test.call(QStringLiteral("HidePopOver"));
    (void)QTest::qWaitFor([] { return !popoverShown(); }, 3000);
}

void TestGestureE2E::cleanupTestCase()
{
    setAccessibilityEnabled(true);
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
    const QString translation = QStringLiteral("Der schnelle braune Fuchs springt.");
    // Answered late enough to see what the popover shows before.
    m_server.enqueueAnswer(Answer::slowly(answerBody(translation), 1500));
    const QPoint pointer = qt ? m_qtLabel.screenRect().center() : labelPoint();
    QVERIFY(pointAt(pointer));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));

    QTRY_VERIFY(popoverShown());
    QTRY_COMPARE(popoverText(), kLabelText);
    const QVariantMap state = popOverState();
    const QRect body(state.value(QStringLiteral("x")).toInt(),
                     state.value(QStringLiteral("y")).toInt(),
                     state.value(QStringLiteral("width")).toInt(),
                     state.value(QStringLiteral("height")).toInt());
    // At the pointer: over or under it, its arrow's length away, never covering it.
    QVERIFY2(body.left() <= pointer.x() && pointer.x() <= body.right(),
             qPrintable(QStringLiteral("pointer %1,%2, body %3,%4 %5x%6")
                            .arg(pointer.x()).arg(pointer.y()).arg(body.x()).arg(body.y())
                            .arg(body.width()).arg(body.height())));
    const int gap = state.value(QStringLiteral("abovePointer")).toBool()
                        ? pointer.y() - body.bottom()
                        : body.top() - pointer.y();
    QVERIFY2(gap >= 0 && gap <= 48, qPrintable(QString::number(gap)));

    QTRY_COMPARE_WITH_TIMEOUT(popoverText(), translation, 10000);
    // What a screen reader finds in tolkaro's own tree agrees.
    const AtspiElement tolkaro = AtspiProbe::applicationByPid(m_tolkaro.processId());
    QVERIFY(!tolkaro.isNull());
    QTRY_VERIFY(!tolkaro.find(translation, QStringLiteral("label")).isNull());
    QCOMPARE(m_server.requestCount(), 1);
    const auto request = m_server.requests().constFirst();
    QCOMPARE(queryValue(request, "tl"), QStringLiteral("de"));
    QCOMPARE(queryValue(request, "q"), kLabelText);

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

void TestGestureE2E::releaseHidesAndCancelsThePendingAnswer()
{
    const QString stale = QStringLiteral("An answer nobody waits for any more");
    m_server.enqueueAnswer(Answer::slowly(answerBody(stale), 2000));
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(m_server.requestCount(), 1);
    QVERIFY(popoverShown());
    QVERIFY(key(37, "up"));
    QTRY_VERIFY(!popoverShown());

    // The popover brought back by other means meanwhile: an answer that was not cancelled
    // would land in it when it comes.
    QTest::qWait(300);
    QDBusInterface test = testInterface();
    test.call(QStringLiteral("DisplayPopOver"), QStringLiteral("Watching"), 300, 300);
    QTRY_VERIFY(popoverShown());
    QElapsedTimer watch;
    watch.start();
    while (watch.elapsed() < 2700) {
        QVERIFY(popoverText() != stale);
        QTest::qWait(50);
    }
    QCOMPARE(popoverText(), QStringLiteral("Watching"));
    test.call(QStringLiteral("HidePopOver"));
}

void TestGestureE2E::quickPressAfterReleaseStartsAfresh()
{
    // A press right after the release starts the next gesture; the cancelled request's
    // message must not land on it.
    m_server.enqueueAnswer(Answer::slowly(answerBody(QStringLiteral("Too late")), 2000));
    m_server.enqueueAnswer(Answer::slowly(answerBody(QStringLiteral("Second answer")), 1500));
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(m_server.requestCount(), 1);
    QVERIFY(DesktopInput::inject({QStringLiteral("37:up@0"), QStringLiteral("37:down@120")}));
    QTRY_COMPARE(m_server.requestCount(), 2);

    QStringList seen;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QString text = popoverText();
            if (seen.isEmpty() || seen.last() != text)
                seen << text;
            return text == QStringLiteral("Second answer");
        }(),
        10000);
    QVERIFY(popoverShown());
    // The first gesture's text may be seen before the second one replaces it; nothing else.
    seen.removeAll(kLabelText);
    QCOMPARE(seen, QStringList{QStringLiteral("Second answer")});
}

void TestGestureE2E::notAGesture_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::newRow("left Control presses 0.8 s apart")
        << QStringList{QStringLiteral("37:down@0"), QStringLiteral("37:up@60"),
                       QStringLiteral("37:down@860")};
    QTest::newRow("right Control double press")
        << QStringList{QStringLiteral("105:down@0"), QStringLiteral("105:up@60"),
                       QStringLiteral("105:down@160")};
    QTest::newRow("left Alt double press")
        << QStringList{QStringLiteral("64:down@0"), QStringLiteral("64:up@60"),
                       QStringLiteral("64:down@160")};
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
    m_server.enqueueAnswer(Answer::well(answerBody(QStringLiteral("Auf Deutsch"))));
    m_server.enqueueAnswer(Answer::well(answerBody(QStringLiteral("In English"))));
    m_server.enqueueAnswer(Answer::well(answerBody(QStringLiteral("Wieder auf Deutsch"))));
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(popoverText(), QStringLiteral("Auf Deutsch"));

    // Left Super stands in for fn.
    QVERIFY(key(133, "down"));
    QTRY_COMPARE(popoverText(), QStringLiteral("In English"));
    QVERIFY(key(133, "up"));
    QTRY_COMPARE(popoverText(), QStringLiteral("Wieder auf Deutsch"));
    QVERIFY(popoverShown());

    const auto requests = m_server.requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(queryValue(requests[0], "tl"), QStringLiteral("de"));
    QCOMPARE(queryValue(requests[1], "tl"), QStringLiteral("en"));
    QCOMPARE(queryValue(requests[2], "tl"), QStringLiteral("de"));
    for (const auto &request : requests)
        QCOMPARE(queryValue(request, "q"), kLabelText);
    QVERIFY(key(37, "up"));
    QTRY_VERIFY(!popoverShown());
}

void TestGestureE2E::optionReplacesTheSelectionAndKeepsTheClipboard()
{
    QVERIFY(DesktopInput::focusByClick(m_entry.screenRect().center()));
    QVERIFY(m_entry.setText(QStringLiteral("Hello world")));
    QVERIFY(m_entry.selectText(6, 11));
    QTRY_COMPARE(m_entry.selectedText(), QStringLiteral("world"));
    const QByteArray before = "What the user copied before";
    QVERIFY(setClipboard(before));
    QTRY_COMPARE(clipboard(), std::optional<QByteArray>(before));

    m_server.enqueueAnswer(Answer::well(answerBody(QStringLiteral("Welt"))));
    QVERIFY(pointAt(m_entry.screenRect().center()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_COMPARE(popoverText(), QStringLiteral("Welt"));
    QCOMPARE(queryValue(m_server.requests().constFirst(), "q"), QStringLiteral("world"));

    QVERIFY(DesktopInput::inject({QStringLiteral("64:down"), QStringLiteral("64:up@80")}));
    QTRY_COMPARE_WITH_TIMEOUT(m_entry.text(), QStringLiteral("Hello Welt"), 10000);
    QVERIFY(key(37, "up"));
    QTRY_VERIFY(!popoverShown());
    QTRY_COMPARE_WITH_TIMEOUT(clipboard(), std::optional<QByteArray>(before), 10000);
}

void TestGestureE2E::withoutAccessibilityTheMonitorsGoAndComeBack()
{
    QVERIFY(setAccessibilityEnabled(false));
    // The next check: the short menu, and the permission dialog in front.
    QTRY_COMPARE_WITH_TIMEOUT(statusMenuItemCount(), 2, kTrustCheckWait);
    QTRY_COMPARE_WITH_TIMEOUT(activeWindowClass(), QStringLiteral("Tolkaro"), kTrustCheckWait);

    // The keys are no one's business now.
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTest::qWait(kNothingHappensWait);
    QVERIFY(!popoverShown());
    QCOMPARE(m_server.requestCount(), 0);
    QVERIFY(key(37, "up"));

    // Switched on from outside, and the dialog answered with its default button.
    QVERIFY(setAccessibilityEnabled(true));
    QVERIFY(DesktopInput::inject({QStringLiteral("Return:tap")}));
    QTRY_VERIFY_WITH_TIMEOUT(activeWindowClass() != QStringLiteral("Tolkaro"), 5000);
    // Within one check period (5 s) of the dialog closing, with a second's slack for a busy
    // machine.
    QTRY_VERIFY_WITH_TIMEOUT(statusMenuItemCount() > 2, 6000);

    QTest::qWait(500);
    QVERIFY(pointAt(labelPoint()));
    QVERIFY(DesktopInput::inject(kDoublePressAndHold));
    QTRY_VERIFY(popoverShown());
    QTRY_COMPARE(popoverText(), LoopbackTranslationServer::echoTranslation(kLabelText));
    QVERIFY(key(37, "up"));
    QTRY_VERIFY(!popoverShown());
}

QTEST_GUILESS_MAIN(TestGestureE2E)
#include "tst_gesture_e2e.moc"
