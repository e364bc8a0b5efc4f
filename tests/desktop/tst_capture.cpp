// Text capture against real GTK and Qt applications: the text under the pointer, the
// selection before the element's own text, the longest-attribute rule, Copy and Paste
// through the applications' Edit menus with the clipboard left byte for byte as it was, and
// a stopped application that makes a capture fail instead of hanging.
//
// Every AT-SPI read of the test runs on the same AT-SPI thread as the code under test
// (libatspi must stay on one thread).

#include "capture/AccessibilityManager.h"
#include "capture/ClipboardSnapshot.h"
#include "platform/atspi/UIElementText.h"
#include "platform/atspi/UIElementUtilities.h"
#include "CaptureTestHelpers.h"
#include "UIElementSearch.h"
#include "platform/x11/X11WindowQueries.h"

#include <QBuffer>
#include <QCursor>
#include <QFile>
#include <QImage>
#include <QtTest>

#include <csignal>

using namespace CaptureTestHelpers;

namespace {

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
const QString kEntryName = QStringLiteral("Target entry");
const QString kTextViewName = QStringLiteral("Target text view");
const QStringList kTargets{QStringLiteral("GTK"), QStringLiteral("QT")};
// GTK's and Qt's double-click time is 400 ms; a little more.
constexpr int kDoubleClickTime = 500;

qint64 targetPid(const QString &which)
{
    return qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_PID").arg(which))).toLongLong();
}

// How many times the target has logged a command ("COPY entry", "PASTE text"...).
qsizetype loggedCount(const QString &which, const QString &command)
{
    QFile file(qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_LOG").arg(which))));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).count(command) : -1;
}

UIElement application(const QString &which)
{
    return UIElementUtilities::applicationElementForProcess(targetPid(which));
}

UIElement widget(const QString &which, const QString &title)
{
    return UIElementSearch::findByTitle(application(which), title);
}

void pointAt(const UIElement &element)
{
    QCursor::setPos(UIElementSearch::frameOfUIElement(element).center().toPoint());
    QTest::qWait(20);
}

const QString kNothing = QStringLiteral("(nothing captured)");

QString captured()
{
    return AccessibilityManager::getStringForCurrentUIElement().text.value_or(kNothing);
}

// Text, HTML, a PNG and a custom type with NUL bytes, as another application offers them.
ClipboardFormats richClipboard()
{
    QImage image(6, 4, QImage::Format_ARGB32);
    image.fill(QColor(10, 200, 30, 128));
    image.setPixelColor(1, 2, Qt::red);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return {{QStringLiteral("text/plain"), QStringLiteral("Grüße – before the copy").toUtf8()},
            {QStringLiteral("text/html"), QByteArray("<p><b>before</b> the copy</p>")},
            {QStringLiteral("image/png"), png},
            {QStringLiteral("application/x-tolkaro-test"), QByteArray("\x00\x01\xff custom\n bytes", 18)}};
}

} // namespace


class TestCapture : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void textUnderThePointer_data();
    void textUnderThePointer();
    void longestAttributeWins_data();
    void longestAttributeWins();
    void selectionWinsOverTheElementText_data();
    void selectionWinsOverTheElementText();
    void copyThroughTheMenuRestoresTheClipboard_data();
    void copyThroughTheMenuRestoresTheClipboard();
    void pasteReplacesTheSelection_data();
    void pasteReplacesTheSelection();
    void editableTextReplacesTheSelection_data();
    void editableTextReplacesTheSelection();
    void keystrokeCapture();
    void stoppedApplicationMakesTheCaptureFail();

private:
    // Sets the widget's text, makes the target's window the active one with a click on the
    // widget, as a user would, and selects `length` characters from `start`.
    void prepare(const QString &which, const UIElement &element, const QString &text, int start,
                 int length);

    ClipboardOwner m_clipboard{QStringLiteral(TOLKARO_CAPTURE_PROBE)};
};

void TestCapture::initTestCase()
{
    for (const QString &which : kTargets) {
        if (targetPid(which) == 0)
            QFAIL("no target applications: run this under scripts/test-desktop.sh");
        QVERIFY2(QTest::qWaitFor([&] { return !widget(which, kTextViewName).isNull(); }, 15000),
                 qPrintable(which + QStringLiteral(" target not on the accessibility bus")));
    }
}

void TestCapture::init()
{
    // Each run starts from plain widgets: known texts, nothing selected.
    for (const QString &which : kTargets) {
        for (const QString &name : {kEntryName, kTextViewName})
            QVERIFY(setText(widget(which, name), QString()));
    }
}

void TestCapture::cleanup()
{
    m_clipboard.stop();
    for (const QString &which : kTargets)
        ::kill(pid_t(targetPid(which)), SIGCONT);
}

void TestCapture::prepare(const QString &which, const UIElement &element, const QString &text,
                          int start, int length)
{
    QVERIFY(setText(element, text));
    // (Asking AT-SPI for the focus is not enough after a menu command of GTK: the widget keeps
    // the keyboard but no longer reports the focus until it is focused anew.)
    QVERIFY(clickToFocus(element));
    QVERIFY(QTest::qWaitFor([&] {
        return !UIElementUtilities::focusedWindowOfApplication(application(which)).isNull();
    }));
    // Past the double-click time: the next click on the same spot must not select a word.
    QTest::qWait(kDoubleClickTime);
    QVERIFY(select(element, start, length));
}

void TestCapture::textUnderThePointer_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");
    QTest::addColumn<QString>("contents");
    QTest::addColumn<QString>("expected");

    const QString entryText = QStringLiteral("Words in the entry field");
    const QString viewText = QStringLiteral("First paragraph of the view.\nSecond one.");
    for (const QString &which : kTargets) {
        QTest::addRow("%s label", qPrintable(which)) << which << kLabelText << QString() << kLabelText;
        QTest::addRow("%s entry", qPrintable(which)) << which << kEntryName << entryText << entryText;
        QTest::addRow("%s text view", qPrintable(which))
            << which << kTextViewName << viewText << viewText;
    }
}

void TestCapture::textUnderThePointer()
{
    QFETCH(QString, which);
    QFETCH(QString, widgetTitle);
    QFETCH(QString, contents);
    QFETCH(QString, expected);

    const UIElement element = widget(which, widgetTitle);
    QVERIFY(element);
    if (!contents.isEmpty())
        QVERIFY(setText(element, contents));
    pointAt(element);
    const CapturedText capture = AccessibilityManager::getStringForCurrentUIElement();
    QCOMPARE(capture.text.value_or(kNothing), expected);
    // The paste that may follow goes to the application the text came from.
    QCOMPARE(UIElementUtilities::applicationOfUIElement(capture.target), application(which));
}

void TestCapture::longestAttributeWins_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("expected");

    // The entry's title is its accessible name, "Target entry" (12 characters).
    for (const QString &which : kTargets) {
        QTest::addRow("%s value longer than the title", qPrintable(which))
            << which << QStringLiteral("thirteen char") << QStringLiteral("thirteen char");
        QTest::addRow("%s title longer than the value", qPrintable(which))
            << which << QStringLiteral("eleven char") << kEntryName;
        QTest::addRow("%s value as long as the title: the value, first in order", qPrintable(which))
            << which << QStringLiteral("twelve chars") << QStringLiteral("twelve chars");
    }
}

void TestCapture::longestAttributeWins()
{
    QFETCH(QString, which);
    QFETCH(QString, value);
    QFETCH(QString, expected);

    const UIElement entry = widget(which, kEntryName);
    QVERIFY(setText(entry, value));
    pointAt(entry);
    QCOMPARE(captured(), expected);
}

void TestCapture::selectionWinsOverTheElementText_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");
    QTest::addColumn<bool>("pointAtSelection");

    // Pointed at, the element's own selection; pointed elsewhere, the focused element's.
    for (const QString &which : kTargets) {
        QTest::addRow("%s entry, pointer on it", qPrintable(which)) << which << kEntryName << true;
        QTest::addRow("%s text view, pointer on the label", qPrintable(which))
            << which << kTextViewName << false;
    }
}

void TestCapture::selectionWinsOverTheElementText()
{
    QFETCH(QString, which);
    QFETCH(QString, widgetTitle);
    QFETCH(bool, pointAtSelection);

    const UIElement element = widget(which, widgetTitle);
    prepare(which, element, QStringLiteral("a long text around the chosen words of it"), 23, 12);
    pointAt(pointAtSelection ? element : widget(which, kLabelText));
    QCOMPARE(captured(), QStringLiteral("chosen words"));
    QVERIFY(select(element, 0, 0));
}

void TestCapture::copyThroughTheMenuRestoresTheClipboard_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<bool>("clipboardFilled");

    for (const QString &which : kTargets) {
        QTest::addRow("%s, text, HTML, PNG and a custom type", qPrintable(which)) << which << true;
        QTest::addRow("%s, empty clipboard", qPrintable(which)) << which << false;
    }
}

void TestCapture::copyThroughTheMenuRestoresTheClipboard()
{
    QFETCH(QString, which);
    QFETCH(bool, clipboardFilled);

    const UIElement entry = widget(which, kEntryName);
    prepare(which, entry, QStringLiteral("copy these words please"), 5, 11);
    if (clipboardFilled) {
        QVERIFY(m_clipboard.own(richClipboard()));
    } else {
        ClipboardSnapshot::clearContents();
        QVERIFY(QTest::qWaitFor([] { return X11WindowQueries().selectionOwner("CLIPBOARD") == 0; }));
    }
    const qsizetype copiesBefore = loggedCount(which, QStringLiteral("COPY entry"));

    const std::optional<QString> copied =
        AccessibilityManager::clickCopyMenuCommandForApplicationThatContainsAXElement(entry);
    QVERIFY(QTest::qWaitFor(
        [&] { return loggedCount(which, QStringLiteral("COPY entry")) == copiesBefore + 1; }));
    QCOMPARE(copied.value_or(kNothing), QStringLiteral("these words"));
    if (clipboardFilled)
        QCOMPARE(m_clipboard.changes(), QString());
    else
        QCOMPARE(X11WindowQueries().selectionOwner("CLIPBOARD"), 0ul);
}

void TestCapture::pasteReplacesTheSelection_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");
    QTest::addColumn<bool>("intoLastCapture");

    QTest::newRow("GTK entry, given application") << "GTK" << kEntryName << false;
    QTest::newRow("GTK text view, application of the last capture") << "GTK" << kTextViewName << true;
    QTest::newRow("Qt entry, application of the last capture") << "QT" << kEntryName << true;
    QTest::newRow("Qt text view, given application") << "QT" << kTextViewName << false;
}

void TestCapture::pasteReplacesTheSelection()
{
    QFETCH(QString, which);
    QFETCH(QString, widgetTitle);
    QFETCH(bool, intoLastCapture);

    const UIElement element = widget(which, widgetTitle);
    prepare(which, element, QStringLiteral("alpha beta gamma"), 6, 4);
    QVERIFY(m_clipboard.own(richClipboard()));
    const QString command = QStringLiteral("PASTE ") +
                            (widgetTitle == kEntryName ? QStringLiteral("entry") : QStringLiteral("text"));
    const qsizetype pastesBefore = loggedCount(which, command);

    const QString translation = QStringLiteral("Übersetzung");
    if (intoLastCapture) {
        pointAt(element);
        const CapturedText capture = AccessibilityManager::getStringForCurrentUIElement();
        QVERIFY(capture.text);
        AccessibilityManager::clickPasteMenuCommandForApplicationThatContainsAXElement(
            capture.target, translation);
    } else {
        AccessibilityManager::clickPasteMenuCommandForApplicationAXElement(application(which),
                                                                           translation);
    }

    // The text is checked below, after the log says which command ran.
    (void)QTest::qWaitFor(
        [&] { return valueText(element) == QStringLiteral("alpha Übersetzung gamma"); });
    QCOMPARE(loggedCount(which, command), pastesBefore + 1);
    QCOMPARE(valueText(element), QStringLiteral("alpha Übersetzung gamma"));
    QCOMPARE(m_clipboard.changes(), QString());
}

void TestCapture::editableTextReplacesTheSelection_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");

    QTest::newRow("GTK text view") << "GTK" << kTextViewName;
    QTest::newRow("Qt entry") << "QT" << kEntryName;
}

// The paste for applications without a Paste command. The text has letters that take two
// bytes in UTF-8 and one beyond the BMP, where GTK (bytes) and Qt (UTF-16 units) count its
// length differently.
void TestCapture::editableTextReplacesTheSelection()
{
    QFETCH(QString, which);
    QFETCH(QString, widgetTitle);

    const UIElement element = widget(which, widgetTitle);
    prepare(which, element, QStringLiteral("alpha beta gamma"), 6, 4);
    const bool replaced = UIElementText::replaceSelectedText(element, QStringLiteral("Grüße 🙂"));
    QCOMPARE(valueText(element), QStringLiteral("alpha Grüße 🙂 gamma"));
    // And it says so, having read the text back.
    QVERIFY(replaced);
}

// The copy by keystroke, for reading applications: a passage copied with its attribution
// is read as the passage alone.
void TestCapture::keystrokeCapture()
{
    const QString passage = QStringLiteral("“A quoted passage.”\n\nExcerpt From: Some Book");
    prepare(QStringLiteral("GTK"), widget(QStringLiteral("GTK"), kTextViewName), passage, 0,
            int(passage.size()));
    QVERIFY(m_clipboard.own(richClipboard()));
    X11WindowQueries windows;
    QVERIFY(AccessibilityManager::isBooksAppActive(
        {QStringLiteral("Some-reader"), windows.windowClass(windows.activeWindow())}));
    QCOMPARE(AccessibilityManager::getStringForBooksApp().value_or(kNothing),
             QStringLiteral("A quoted passage."));
    QCOMPARE(m_clipboard.changes(), QString());
}

void TestCapture::stoppedApplicationMakesTheCaptureFail()
{
    pointAt(widget(QStringLiteral("GTK"), kLabelText));
    QCOMPARE(captured(), kLabelText);

    const pid_t pid = pid_t(targetPid(QStringLiteral("GTK")));
    QCOMPARE(::kill(pid, SIGSTOP), 0);
    QCOMPARE(captured(), kNothing);
    QCOMPARE(::kill(pid, SIGCONT), 0);
    QVERIFY(QTest::qWaitFor([] { return captured() == kLabelText; }));
}

QTEST_MAIN(TestCapture)
#include "tst_capture.moc"
