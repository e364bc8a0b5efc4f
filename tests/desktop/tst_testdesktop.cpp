// The test desktop itself: keys sent through XTest reach the focused widget of real GTK and Qt
// applications, and AT-SPI reads back what they show. Every later desktop test stands on this.

#include "AtspiProbe.h"
#include "DesktopInput.h"
#include "platform/x11/XTestKeySender.h"

#include <QProcess>
#include <QtTest>

#include <X11/keysym.h>

namespace {

// Key codes of the standard PC keyboard under Xvfb's default (US) mapping.
constexpr uint8_t kLeftControl = 37;
constexpr uint8_t kLeftShift = 50;
constexpr uint8_t kKeyA = 38;
constexpr uint8_t kKeyX = 53;

const char kEntryName[] = "Target entry";
const char kTextViewName[] = "Target text view";

// Key codes in the order they are pressed (true) and released (false).
using KeyStrokes = QList<QPair<int, bool>>;

struct Target
{
    qint64 pid = 0;
    QString title;
};

Target targetFromEnvironment(const QString &which)
{
    return {qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_PID").arg(which)))
                .toLongLong(),
            qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_TITLE").arg(which)))};
}

} // namespace

class TestDesktop : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void typedTextReachesTheFocusedWidget_data();
    void typedTextReachesTheFocusedWidget();
    void keyCodesReachTheFocusedWidget_data();
    void keyCodesReachTheFocusedWidget();
    void targetStartedByATestComesAndGoes_data();
    void targetStartedByATestComesAndGoes();

private:
    // The named widget of the target's window, found through AT-SPI.
    AtspiElement widget(const QString &target, const QString &name) const;
    // Gives `element` the keyboard focus: a click on it, or a request through AT-SPI.
    bool focus(const AtspiElement &element, const QString &how) const;

    QHash<QString, Target> m_targets;
};

void TestDesktop::initTestCase()
{
    m_targets.insert(QStringLiteral("GTK"), targetFromEnvironment(QStringLiteral("GTK")));
    m_targets.insert(QStringLiteral("QT"), targetFromEnvironment(QStringLiteral("QT")));
    for (const Target &target : std::as_const(m_targets)) {
        if (target.pid == 0)
            QFAIL("no target applications: run this under scripts/test-desktop.sh");
    }
    QVERIFY2(AtspiProbe::init(), "no accessibility bus");
    QVERIFY(XTestKeySender().isValid());
}

AtspiElement TestDesktop::widget(const QString &target, const QString &name) const
{
    const Target &info = m_targets.value(target);
    const AtspiElement window =
        AtspiProbe::window(AtspiProbe::applicationByPid(info.pid), info.title);
    return window.find(name, QStringLiteral("text"));
}

bool TestDesktop::focus(const AtspiElement &element, const QString &how) const
{
    if (how == QLatin1String("click")) {
        const QRect rect = element.screenRect();
        if (rect.isEmpty())
            return false;
        if (!DesktopInput::focusByClick(rect.center()))
            return false;
    } else if (!element.grabFocus()) {
        return false;
    }
    return QTest::qWaitFor([&] { return element.isFocused(); }, 5000);
}

void TestDesktop::typedTextReachesTheFocusedWidget_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("widgetName");
    QTest::addColumn<QString>("focusBy");
    QTest::addColumn<QString>("text");

    const QString ascii = QStringLiteral("Hello, World! 1+1=2 (quoted \"text\")");
    const QString nonAscii = QStringLiteral("Grüße, señor — naïve café €5");
    for (const QString &target : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        QTest::addRow("%s entry, clicked, ASCII", qPrintable(target))
            << target << kEntryName << "click" << ascii;
        QTest::addRow("%s entry, focused through AT-SPI, beyond the key map", qPrintable(target))
            << target << kEntryName << "atspi" << nonAscii;
        QTest::addRow("%s text view, clicked, two lines", qPrintable(target))
            << target << kTextViewName << "click" << QStringLiteral("first line\nsecond line");
    }
}

void TestDesktop::typedTextReachesTheFocusedWidget()
{
    QFETCH(QString, target);
    QFETCH(QString, widgetName);
    QFETCH(QString, focusBy);
    QFETCH(QString, text);

    AtspiElement element;
    QVERIFY(QTest::qWaitFor([&] { return !(element = widget(target, widgetName)).isNull(); }));
    QVERIFY(element.setText(QString()));
    QTRY_COMPARE(element.text(), QString());
    QVERIFY2(focus(element, focusBy), "the widget did not take the focus");

    QVERIFY(DesktopInput::typeText(text));
    QTRY_COMPARE(element.text(), text);
}

void TestDesktop::keyCodesReachTheFocusedWidget_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("initialText");
    QTest::addColumn<KeyStrokes>("keys");
    QTest::addColumn<QString>("expectedText");

    const KeyStrokes leftShiftA{
        {kLeftShift, true}, {kKeyA, true}, {kKeyA, false}, {kLeftShift, false}};
    // Ctrl+A selects all; x then replaces the selection.
    const KeyStrokes selectAllThenX{{kLeftControl, true},  {kKeyA, true}, {kKeyA, false},
                                    {kLeftControl, false}, {kKeyX, true}, {kKeyX, false}};
    // Shift released before the key: a lower-case letter.
    const KeyStrokes shiftReleasedFirst{
        {kLeftShift, true}, {kLeftShift, false}, {kKeyA, true}, {kKeyA, false}};
    for (const QString &target : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        QTest::addRow("%s: left Shift + a", qPrintable(target))
            << target << "abc" << leftShiftA << "abcA";
        QTest::addRow("%s: left Ctrl + a, then x", qPrintable(target))
            << target << "to be replaced" << selectAllThenX << "x";
        QTest::addRow("%s: Shift released before a", qPrintable(target))
            << target << "" << shiftReleasedFirst << "a";
    }
}

void TestDesktop::keyCodesReachTheFocusedWidget()
{
    QFETCH(QString, target);
    QFETCH(QString, initialText);
    QFETCH(KeyStrokes, keys);
    QFETCH(QString, expectedText);

    AtspiElement entry;
    QVERIFY(QTest::qWaitFor([&] { return !(entry = widget(target, kEntryName)).isNull(); }));
    QVERIFY(focus(entry, QStringLiteral("click")));
    QVERIFY(entry.setText(initialText));
    QTRY_COMPARE(entry.text(), initialText);
    // Put the caret at the end, where typing appends.
    XTestKeySender sender;
    sender.setAnnouncesToKeyMonitor(false);
    QVERIFY(sender.tapKeysym(XK_End));

    for (const auto &[keyCode, press] : keys)
        QVERIFY(press ? sender.pressKeyCode(uint8_t(keyCode))
                      : sender.releaseKeyCode(uint8_t(keyCode)));
    sender.sync();
    QTRY_COMPARE(entry.text(), expectedText);
    QVERIFY(sender.pressedKeyCodes().isEmpty());
}

void TestDesktop::targetStartedByATestComesAndGoes_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("environment");

    QTest::newRow("GTK") << qEnvironmentVariable("TOLKARO_GTK_TARGET") << QStringList();
    QTest::newRow("Qt") << qEnvironmentVariable("TOLKARO_QT_TARGET")
                        << QStringList{QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1")};
}

// Tests start targets of their own with other texts; the AT-SPI desktop must show them, with
// those texts, as soon as they say READY, and let them go when they exit.
void TestDesktop::targetStartedByATestComesAndGoes()
{
    QFETCH(QString, program);
    QFETCH(QStringList, environment);

    const QString title = QStringLiteral("Second target");
    const QString label = QStringLiteral("Another label, with ünïcödé");
    const QString entryText = QStringLiteral("entry given at start");
    const QString text = QStringLiteral("text view given at start\nover two lines");
    QProcess target;
    target.setProcessEnvironment([&] {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &variable : environment)
            env.insert(variable.section(QLatin1Char('='), 0, 0),
                       variable.section(QLatin1Char('='), 1));
        return env;
    }());
    target.start(program, {QStringLiteral("--title"), title, QStringLiteral("--label"), label,
                           QStringLiteral("--entry"), entryText, QStringLiteral("--text"), text,
                           QStringLiteral("--geometry"), QStringLiteral("300,300,400,300"),
                           QStringLiteral("--focus"), QStringLiteral("text")});
    QVERIFY(target.waitForStarted());
    QByteArray output;
    while (!output.contains('\n') && target.waitForReadyRead(20000))
        output += target.readAllStandardOutput();
    QVERIFY2(output.startsWith("READY"), output.constData());

    AtspiElement window;
    QTRY_VERIFY_WITH_TIMEOUT(
        !(window = AtspiProbe::window(AtspiProbe::applicationByPid(target.processId()), title))
             .isNull(),
        10000);
    QCOMPARE(window.find(kEntryName, QStringLiteral("text")).text(), entryText);
    QCOMPARE(window.find(kTextViewName, QStringLiteral("text")).text(), text);
    QVERIFY(!window.find(label, QStringLiteral("label")).isNull());
    const AtspiElement textView = window.find(kTextViewName, QStringLiteral("text"));
    QTRY_VERIFY(textView.isFocused());
    QCOMPARE(window.screenRect().topLeft(), QPoint(300, 300));

    target.terminate();
    QVERIFY(target.waitForFinished());
    QTRY_VERIFY(AtspiProbe::applicationByPid(target.processId()).isNull());
}

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_testdesktop.moc"
