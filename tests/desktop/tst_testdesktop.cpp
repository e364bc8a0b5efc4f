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
constexpr uint8_t kLeftControl = 37, kLeftShift = 50, kKeyA = 38, kKeyX = 53;

// Key codes in the order they are pressed (true) and released (false).
using KeyStrokes = QList<QPair<int, bool>>;

} // namespace

class TestDesktop : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void keyCodesReachTheFocusedWidget_data();
    void keyCodesReachTheFocusedWidget();
};

void TestDesktop::initTestCase()
{
    QVERIFY2(AtspiProbe::init(), "no accessibility bus: run this under scripts/test-desktop.sh");
    QVERIFY(XTestKeySender().isValid());
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
    for (const QString &target : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        QTest::addRow("%s: left Shift + a", qPrintable(target))
            << target << "abc" << leftShiftA << "abcA";
        QTest::addRow("%s: left Ctrl + a, then x", qPrintable(target))
            << target << "to be replaced" << selectAllThenX << "x";
    }
}

void TestDesktop::keyCodesReachTheFocusedWidget()
{
    QFETCH(QString, target);
    QFETCH(QString, initialText);
    QFETCH(KeyStrokes, keys);
    QFETCH(QString, expectedText);

    AtspiElement entry;
    QVERIFY(QTest::qWaitFor([&] {
        entry = AtspiProbe::targetApplication(target).find(QStringLiteral("Target entry"),
                                                           QStringLiteral("text"));
        return !entry.isNull();
    }));
    QVERIFY(DesktopInput::focusByClick(entry.screenRect().center()));
    QTRY_VERIFY(entry.isFocused());
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
