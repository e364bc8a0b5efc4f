#include "typing/TypingShortcut.h"

#include <QTest>

using namespace TypingShortcut;

namespace {
constexpr quint32 kShift = Qt::ShiftModifier;
constexpr quint32 kCtrl = Qt::ControlModifier;
constexpr quint32 kAlt = Qt::AltModifier;
constexpr quint32 kMeta = Qt::MetaModifier;
constexpr quint32 kKeypad = Qt::KeypadModifier;
} // namespace

class TestTypingShortcut : public QObject
{
    Q_OBJECT
private slots:
    void recordedKey_data();
    void recordedKey();
    void grabVariants_data();
    void grabVariants();
    void matching_data();
    void matching();
    void displayText_data();
    void displayText();
};

void TestTypingShortcut::recordedKey_data()
{
    QTest::addColumn<quint32>("keySym");
    QTest::addColumn<quint32>("modifiers");
    QTest::addColumn<int>("expected");
    auto row = [](const char *name, quint32 keySym, quint32 modifiers, RecordedKey expected) {
        QTest::newRow(name) << keySym << modifiers << int(expected);
    };
    // Alt+Space and Ctrl+Shift+T are recorded for real in the typing desktop test.
    row("Super+Return", 0xff0d, kMeta, RecordedKey::Accept);
    row("bare F5", 0xffc2, 0, RecordedKey::Accept);
    row("Shift+letter", 'A', kShift, RecordedKey::Reject);
    row("keypad flag alone", 0xffb5, kKeypad, RecordedKey::Reject);
    row("Alt held alone", 0xffe9, kAlt, RecordedKey::Ignore);
    row("Escape", 0xff1b, 0, RecordedKey::Cancel);
    row("Ctrl+Escape is a shortcut", 0xff1b, kCtrl, RecordedKey::Accept);
    row("Backspace", 0xff08, 0, RecordedKey::Clear);
}

void TestTypingShortcut::recordedKey()
{
    QFETCH(quint32, keySym);
    QFETCH(quint32, modifiers);
    QFETCH(int, expected);
    QCOMPARE(int(decideRecordedKey(keySym, modifiers)), expected);
}

void TestTypingShortcut::grabVariants_data()
{
    QTest::addColumn<quint32>("qtModifiers");
    QTest::addColumn<quint16>("numLockMask");
    QTest::addColumn<QList<quint16>>("expected");
    QTest::newRow("Alt with Num Lock on Mod2")
        << kAlt << X11Mask::kMod2 << QList<quint16>{0x08, 0x0a, 0x18, 0x1a};
    QTest::newRow("no Num Lock key") << kAlt << quint16(0) << QList<quint16>{0x08, 0x0a};
    QTest::newRow("Super with Shift")
        << (kMeta | kShift) << X11Mask::kMod2 << QList<quint16>{0x41, 0x43, 0x51, 0x53};
    QTest::newRow("keypad flag is not a grab bit")
        << (kAlt | kKeypad) << X11Mask::kMod2 << QList<quint16>{0x08, 0x0a, 0x18, 0x1a};
}

void TestTypingShortcut::grabVariants()
{
    QFETCH(quint32, qtModifiers);
    QFETCH(quint16, numLockMask);
    QFETCH(QList<quint16>, expected);
    QCOMPARE(grabModifierVariants(x11ModifierMask(qtModifiers), numLockMask), expected);
}

void TestTypingShortcut::matching_data()
{
    QTest::addColumn<quint32>("keySym");
    QTest::addColumn<quint32>("modifiers");
    QTest::addColumn<bool>("expected");
    // Against Ctrl+Shift+t as recorded.
    QTest::newRow("same key, capital from Shift") << quint32('T') << (kCtrl | kShift) << true;
    QTest::newRow("same key, small letter") << quint32('t') << (kCtrl | kShift) << true;
    QTest::newRow("missing Shift") << quint32('t') << kCtrl << false;
    QTest::newRow("extra Alt") << quint32('T') << (kCtrl | kShift | kAlt) << false;
    QTest::newRow("keypad flag ignored") << quint32('T') << (kCtrl | kShift | kKeypad) << true;
    QTest::newRow("other key") << quint32('y') << (kCtrl | kShift) << false;
}

void TestTypingShortcut::matching()
{
    QFETCH(quint32, keySym);
    QFETCH(quint32, modifiers);
    QFETCH(bool, expected);
    QCOMPARE(matches(StoredShortcut{'t', kCtrl | kShift}, keySym, modifiers), expected);
}

void TestTypingShortcut::displayText_data()
{
    QTest::addColumn<quint32>("keySym");
    QTest::addColumn<quint32>("modifiers");
    QTest::addColumn<QString>("expected");
    // The default and a recorded shortcut are read off the recorder's button in the typing
    // desktop test, which also clears back to the default without writing it.
    QTest::newRow("modifiers in a fixed order") << quint32('t') << (kMeta | kShift | kAlt | kCtrl)
                                                << QStringLiteral("Ctrl+Alt+Shift+Super+T");
    QTest::newRow("function key") << quint32(0xffc9) << quint32(0) << QStringLiteral("F12");
    QTest::newRow("unnamed key") << quint32(0x1008ff13) << kCtrl
                                 << QStringLiteral("Ctrl+0x1008ff13");
}

void TestTypingShortcut::displayText()
{
    QFETCH(quint32, keySym);
    QFETCH(quint32, modifiers);
    QFETCH(QString, expected);
    QCOMPARE(TypingShortcut::displayText(StoredShortcut{keySym, modifiers}), expected);
}

QTEST_GUILESS_MAIN(TestTypingShortcut)
#include "tst_typingshortcut.moc"
