// Key codes sent through XTestKeySender reach the focused widget of real GTK and Qt
// applications with their modifiers, and AT-SPI reads back what they typed. The desktop itself
// (typed text, targets started by a test) is exercised by every other desktop test.

#include "AtspiProbe.h"
#include "DesktopInput.h"
#include "platform/x11/XTestKeySender.h"

#include <QtTest>

#include <X11/keysym.h>

namespace {

// Key codes of the standard PC keyboard under Xvfb's default (US) mapping.
constexpr uint8_t kLeftControl = 37;
constexpr uint8_t kLeftShift = 50;
constexpr uint8_t kKeyA = 38;
constexpr uint8_t kKeyX = 53;

const char kEntryName[] = "Target entry";

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
    void keyCodesReachTheFocusedWidget_data();
    void keyCodesReachTheFocusedWidget();

private:
    // The named widget of the target's window, found through AT-SPI.
    AtspiElement widget(const QString &target, const QString &name) const;
    // Gives `element` the keyboard focus with a click on it.
    bool focus(const AtspiElement &element) const;

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

bool TestDesktop::focus(const AtspiElement &element) const
{
    const QRect rect = element.screenRect();
    if (rect.isEmpty() || !DesktopInput::focusByClick(rect.center()))
        return false;
    return QTest::qWaitFor([&] { return element.isFocused(); }, 5000);
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
    QVERIFY(focus(entry));
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

QTEST_GUILESS_MAIN(TestDesktop)
#include "tst_testdesktop.moc"
