// Text capture against real GTK and Qt applications: the text or name under the pointer, the
// selection before it, Copy and Paste through the Edit menus with the clipboard left byte for
// byte as it was (also over random clipboards, which show a lost format, a stale owner or a
// cut INCR transfer only now and then), and a target stopped or killed mid-capture.
// TOLKARO_CLIPBOARD_STRESS_CYCLES (default 8) and TOLKARO_CLIPBOARD_STRESS_SEED (in the rows'
// names) set and replay the random rows. AT-SPI is read on the code's own AT-SPI thread.

#include "CaptureTestHelpers.h"
#include "DataRows.h"
#include "DesktopInput.h"
#include "OwnGtkTarget.h"
#include "UIElementSearch.h"
#include "capture/AccessibilityManager.h"
#include "capture/ClipboardSnapshot.h"
#include "platform/atspi/AtspiCall.h"
#include "platform/atspi/UIElementText.h"
#include "platform/atspi/UIElementUtilities.h"
#include "platform/x11/X11WindowQueries.h"

#include <QCursor>
#include <QImage>
#include <QtTest>

#include <thread>

using namespace CaptureTestHelpers;

Q_DECLARE_METATYPE(CaptureTestHelpers::PointedWindow)

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

QByteArray png(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

// Text, HTML, a PNG and a custom type with NUL bytes, as another application offers them.
ClipboardFormats richClipboard()
{
    QImage image(6, 4, QImage::Format_ARGB32);
    image.fill(QColor(10, 200, 30, 128));
    image.setPixelColor(1, 2, Qt::red);
    return {{QStringLiteral("text/plain"), QStringLiteral("Grüße – before the copy").toUtf8()},
            {QStringLiteral("text/html"), QByteArray("<p><b>before</b> the copy</p>")},
            {QStringLiteral("image/png"), png(image)},
            {QStringLiteral("application/x-tolkaro-test"),
             QByteArray("\x00\x01\xff custom\n bytes", 18)}};
}

// A random non-empty mix of those, now and then (one in five) with a 5 MB item.
ClipboardFormats randomClipboard(quint32 seed)
{
    QRandomGenerator random(seed);
    const auto bytes = [&](qsizetype size) {
        QByteArray bytes(size, Qt::Uninitialized);
        for (char &byte : bytes)
            byte = char(random.bounded(256));
        return bytes;
    };
    const auto text = [&] {
        static const QList<uint> alphabet =
            QStringLiteral("abcxyz ÄÖüßéñ–“”€ЖЯ中文\n\t🙂").toUcs4();
        QList<uint> text;
        for (int length = 1 + random.bounded(300); length > 0; --length)
            text.append(alphabet.at(random.bounded(int(alphabet.size()))));
        return QString::fromUcs4(reinterpret_cast<const char32_t *>(text.constData()), text.size());
    };
    ClipboardFormats formats;
    while (formats.isEmpty()) {
        if (random.bounded(2))
            formats.append({QStringLiteral("text/plain"), text().toUtf8()});
        if (random.bounded(2))
            formats.append({QStringLiteral("text/html"),
                            QStringLiteral("<p><b>%1</b></p>").arg(text()).toUtf8()});
        if (random.bounded(2)) {
            QImage image(1 + random.bounded(64), 1 + random.bounded(64), QImage::Format_ARGB32);
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x)
                    image.setPixel(x, y, random.generate());
            formats.append({QStringLiteral("image/png"), png(image)});
        }
        if (random.bounded(2))
            formats.append(
                {QStringLiteral("application/x-tolkaro-stress"), bytes(1 + random.bounded(4096))});
        if (random.bounded(5) == 0)
            formats.append({QStringLiteral("application/x-tolkaro-large"), bytes(5 * 1024 * 1024)});
    }
    return formats;
}

// The seed of the random clipboards (see the top), the same for every row of a run.
quint32 stressSeed()
{
    static const quint32 seed = qEnvironmentVariableIsSet("TOLKARO_CLIPBOARD_STRESS_SEED")
                                    ? qEnvironmentVariable("TOLKARO_CLIPBOARD_STRESS_SEED").toUInt()
                                    : QRandomGenerator::global()->generate();
    return seed;
}

// The random clipboards of a run: 1 to N, each made from the seed plus its number.
int randomClipboards()
{
    const int cycles = qEnvironmentVariableIntValue("TOLKARO_CLIPBOARD_STRESS_CYCLES");
    return cycles > 0 ? cycles : 8;
}

// Clipboard 0: the rich one; N > 0: random.
ClipboardFormats clipboardOfRow(int clipboard)
{
    return clipboard == 0 ? richClipboard() : randomClipboard(stressSeed() + quint32(clipboard));
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
    void paragraphUnderThePointer_data();
    void paragraphUnderThePointer();
    void selectionWinsOverTheElementText_data();
    void selectionWinsOverTheElementText();
    void copyThroughTheMenuRestoresTheClipboard_data();
    void copyThroughTheMenuRestoresTheClipboard();
    void pasteReplacesTheSelection_data();
    void pasteReplacesTheSelection();
    void editableTextReplacesTheSelection_data();
    void editableTextReplacesTheSelection();
    // (Before the rows that start windows of their own: openbox stacks a window mapped
    // right after a click elsewhere below the clicked one.)
    void staleOrForeignSelection_data();
    void staleOrForeignSelection();
    void keystrokeCapture();
    void captureAnswersAfterTheTargetFails_data();
    void captureAnswersAfterTheTargetFails();

private:
    // Sets the widget's text, makes the target's window the active one with a click on the
    // widget, as a user would, and selects `length` characters from `start`.
    void prepare(const QString &which, const UIElement &element, const QString &text, int start,
                 int length);

    ClipboardOwner m_clipboard{QStringLiteral(TOLKARO_CLIPBOARD_OWNER)};
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
    DataRows::addColumns<QString, QString, QString, QString>("which", "widgetTitle", "contents",
                                                             "expected");

    const QString entryText = QStringLiteral("Words in the entry field");
    // One paragraph: read whole (of several, the one under the pointer: below).
    const QString viewText = QStringLiteral("The one paragraph of the view, read whole.");
    for (const QString &which : kTargets) {
        QTest::addRow("%s label", qPrintable(which)) << which << kLabelText << QString() << kLabelText;
        QTest::addRow("%s entry", qPrintable(which)) << which << kEntryName << entryText << entryText;
        // Its accessible name, "Target entry", is the longer text (the rule is the unit test's).
        QTest::addRow("%s entry named longer than its text", qPrintable(which))
            << which << kEntryName << QStringLiteral("eleven char") << kEntryName;
        QTest::addRow("%s text view", qPrintable(which))
            << which << kTextViewName << viewText << viewText;
    }
}

void TestCapture::textUnderThePointer()
{
    const auto [which, widgetTitle, contents, expected] =
        DataRows::fetch<QString, QString, QString, QString>("which", "widgetTitle", "contents",
                                                            "expected");

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

void TestCapture::paragraphUnderThePointer_data()
{
    QTest::addColumn<PointedWindow>("window");
    for (const PointedWindow &window : pointedWindows())
        QTest::newRow(qPrintable(window.name)) << window;
}

// A window of its own over the shared targets, which says where its chosen paragraph is.
void TestCapture::paragraphUnderThePointer()
{
    QFETCH(PointedWindow, window);

    QProcess target;
    startPointedWindow(target, window);
    const auto stopTarget = qScopeGuard([&] { target.kill(); target.waitForFinished(5000); });
    QVERIFY(QTest::qWaitFor([&] { return target.canReadLine(); }, 15000));
    const QStringList point = QString::fromUtf8(target.readLine()).trimmed().split(u' ');
    QCOMPARE(point.value(0), QStringLiteral("POINT"));
    QCursor::setPos(point[1].toInt(), point[2].toInt());
    const QString paragraph = point.mid(3).join(u' ');
    // Until the window is on the accessibility bus, something else is under the pointer.
    QTRY_COMPARE_WITH_TIMEOUT(captured(), paragraph, 15000);
}

void TestCapture::selectionWinsOverTheElementText_data()
{
    DataRows::addColumns<QString, QString, bool>("which", "widgetTitle", "pointAtSelection");

    // Pointed at, the element's own selection; pointed elsewhere, the focused element's.
    for (const QString &which : kTargets) {
        QTest::addRow("%s entry, pointer on it", qPrintable(which)) << which << kEntryName << true;
        QTest::addRow("%s text view, pointer on the label", qPrintable(which))
            << which << kTextViewName << false;
    }
}

void TestCapture::selectionWinsOverTheElementText()
{
    const auto [which, widgetTitle, pointAtSelection] =
        DataRows::fetch<QString, QString, bool>("which", "widgetTitle", "pointAtSelection");

    const UIElement element = widget(which, widgetTitle);
    prepare(which, element, QStringLiteral("a long text around the chosen words of it"), 23, 12);
    pointAt(pointAtSelection ? element : widget(which, kLabelText));
    QCOMPARE(captured(), QStringLiteral("chosen words"));
    QVERIFY(select(element, 0, 0));
}

void TestCapture::copyThroughTheMenuRestoresTheClipboard_data()
{
    // clipboard -1: empty; 0: text, HTML, PNG and a custom type
    DataRows::addColumns<QString, int>("which", "clipboard");

    for (const QString &which : kTargets) {
        QTest::addRow("%s, text, HTML, PNG and a custom type", qPrintable(which)) << which << 0;
        QTest::addRow("%s, empty clipboard", qPrintable(which)) << which << -1;
    }
    for (int clipboard = 1; clipboard <= randomClipboards(); ++clipboard)
        QTest::addRow("GTK, random clipboard %d of seed %u", clipboard, stressSeed())
            << QStringLiteral("GTK") << clipboard;
}

void TestCapture::copyThroughTheMenuRestoresTheClipboard()
{
    const auto [which, clipboard] = DataRows::fetch<QString, int>("which", "clipboard");

    const UIElement entry = widget(which, kEntryName);
    prepare(which, entry, QStringLiteral("copy these words please"), 5, 11);
    if (clipboard >= 0) {
        QVERIFY(m_clipboard.own(clipboardOfRow(clipboard)));
    } else {
        ClipboardSnapshot::clearContents();
        QVERIFY(QTest::qWaitFor([] { return X11WindowQueries().selectionOwner("CLIPBOARD") == 0; }));
    }
    const qsizetype copiesBefore = loggedCount(which, QStringLiteral("COPY entry"));

    const std::optional<QString> copied =
        AccessibilityManager::clickCopyMenuCommandForApplicationThatContainsAXElement(entry);
    // Over a random clipboard an application too busy to act on the menu press in time may
    // be given up on: nothing copied is allowed there, wrong text never is.
    if (clipboard > 0 && !copied) {
        QCOMPARE(m_clipboard.changes(), QString());
        return;
    }
    QVERIFY(QTest::qWaitFor(
        [&] { return loggedCount(which, QStringLiteral("COPY entry")) == copiesBefore + 1; }));
    QCOMPARE(copied.value_or(kNothing), QStringLiteral("these words"));
    if (clipboard >= 0)
        QCOMPARE(m_clipboard.changes(), QString());
    else
        QCOMPARE(X11WindowQueries().selectionOwner("CLIPBOARD"), 0ul);
}

void TestCapture::pasteReplacesTheSelection_data()
{
    DataRows::addColumns<QString, QString, bool, int>("which", "widgetTitle", "intoLastCapture",
                                                      "clipboard");

    QTest::newRow("GTK entry, given application") << "GTK" << kEntryName << false << 0;
    QTest::newRow("GTK text view, application of the last capture")
        << "GTK" << kTextViewName << true << 0;
    QTest::newRow("Qt entry, application of the last capture") << "QT" << kEntryName << true << 0;
    QTest::newRow("Qt text view, given application") << "QT" << kTextViewName << false << 0;
    for (int clipboard = 1; clipboard <= randomClipboards(); ++clipboard)
        QTest::addRow("GTK entry, random clipboard %d of seed %u", clipboard, stressSeed())
            << QStringLiteral("GTK") << kEntryName << false << clipboard;
}

void TestCapture::pasteReplacesTheSelection()
{
    const auto [which, widgetTitle, intoLastCapture, clipboard] =
        DataRows::fetch<QString, QString, bool, int>("which", "widgetTitle", "intoLastCapture",
                                                     "clipboard");

    const UIElement element = widget(which, widgetTitle);
    prepare(which, element, QStringLiteral("alpha beta gamma"), 6, 4);
    QVERIFY(m_clipboard.own(clipboardOfRow(clipboard)));
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

    // The text is checked below, after the log says which command ran. (Given up on, as
    // above: the text as it was.)
    (void)QTest::qWaitFor(
        [&] { return valueText(element) == QStringLiteral("alpha Übersetzung gamma"); });
    if (clipboard > 0 && valueText(element) == QStringLiteral("alpha beta gamma")) {
        QCOMPARE(m_clipboard.changes(), QString());
        return;
    }
    QCOMPARE(loggedCount(which, command), pastesBefore + 1);
    QCOMPARE(valueText(element), QStringLiteral("alpha Übersetzung gamma"));
    QCOMPARE(m_clipboard.changes(), QString());
}

void TestCapture::editableTextReplacesTheSelection_data()
{
    DataRows::addColumns<QString, QString>("which", "widgetTitle");

    QTest::newRow("GTK text view") << "GTK" << kTextViewName;
    QTest::newRow("Qt entry") << "QT" << kEntryName;
}

// The paste for applications without a Paste command. The text has letters that take two
// bytes in UTF-8 and one beyond the BMP, where GTK (bytes) and Qt (UTF-16 units) count its
// length differently.
void TestCapture::editableTextReplacesTheSelection()
{
    const auto [which, widgetTitle] = DataRows::fetch<QString, QString>("which", "widgetTitle");

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

void TestCapture::staleOrForeignSelection_data()
{
    QTest::addColumn<bool>("xterm");
    QTest::newRow("Qt entry's selection cleared by a click elsewhere: not translated") << false;
    QTest::newRow("xterm (no accessibility): its fresh selection translated") << true;
}

// Qt keeps serving PRIMARY after its selection is gone; xterm offers nothing but PRIMARY.
// Both selections are made with the mouse, as only that sets PRIMARY.
void TestCapture::staleOrForeignSelection()
{
    QFETCH(bool, xterm);
    const QString words = QStringLiteral("selected words");
    if (xterm) {
        QProcess terminal;
        terminal.start(QStringLiteral("xterm"),
                       {QStringLiteral("-name"), QStringLiteral("tolkaroxterm"),
                        QStringLiteral("-geometry"), QStringLiteral("40x4+620+480"),
                        QStringLiteral("-e"), QStringLiteral("sh"), QStringLiteral("-c"),
                        QStringLiteral("echo %1; exec sleep 60").arg(words)});
        // A triple click selects the line under the pointer, which stays there.
        QVERIFY(DesktopInput::xdotool(QStringLiteral(
            "search --sync --classname tolkaroxterm sleep 0.5 mousemove --window %1 30 8 "
            "click --repeat 3 --delay 80 1")));
        QTRY_COMPARE(captured().trimmed(), words);
        terminal.kill();
        terminal.waitForFinished();
        return;
    }
    const UIElement entry = widget(QStringLiteral("QT"), kEntryName);
    QVERIFY(setText(entry, QStringLiteral("stale")));
    const QRectF frame = UIElementSearch::frameOfUIElement(entry);
    QVERIFY(DesktopInput::xdotool(QStringLiteral("mousemove %1 %2 click --repeat 2 --delay 80 1")
                                      .arg(int(frame.left()) + 12)
                                      .arg(int(frame.center().y()))));
    QVERIFY(QTest::qWaitFor([&] { return captured() == QStringLiteral("stale"); }));
    QVERIFY(clickToFocus(widget(QStringLiteral("QT"), QStringLiteral("Done"))));
    pointAt(widget(QStringLiteral("QT"), kLabelText));
    QCOMPARE(captured(), kLabelText);
}

void TestCapture::captureAnswersAfterTheTargetFails_data()
{
    // delayMs -1: before the capture starts
    DataRows::addColumns<int, int>("signal", "delayMs");

    QTest::newRow("stopped before the capture, then continued") << int(SIGSTOP) << -1;
    QTest::newRow("killed before the capture") << int(SIGKILL) << -1;
    for (int delay : {0, 30}) {
        QTest::addRow("stopped %d ms into the capture, then continued", delay)
            << int(SIGSTOP) << delay;
        QTest::addRow("killed %d ms into the capture", delay) << int(SIGKILL) << delay;
    }
}

// A stopped application answers no call: the capture gives up on it rather than hang (a
// hang ends the test by its timeout), and the next capture after a fault answers as ever.
void TestCapture::captureAnswersAfterTheTargetFails()
{
    const auto [signal, delayMs] = DataRows::fetch<int, int>("signal", "delayMs");

    const QString label = QStringLiteral("Words of the target at fault");
    OwnGtkTarget target(label);
    QVERIFY(QTest::qWaitFor(
        [&] {
            // A call that timed out makes the next ones give up until new work begins.
            AtspiCall::beginWork();
            return !UIElementSearch::findByTitle(
                        UIElementUtilities::applicationElementForProcess(target.pid()), label)
                        .isNull();
        },
        20000));
    QCursor::setPos(OwnGtkTarget::kLabelPoint);
    QTest::qWait(20);
    QCOMPARE(captured(), label);

    if (delayMs < 0)
        QCOMPARE(::kill(target.pid(), signal), 0);
    std::thread fault([&] {
        if (delayMs >= 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
            ::kill(target.pid(), signal);
        }
    });
    const QString during = captured();
    fault.join();
    // Stopped before it began: nothing; during it, nothing or the label; killed, possibly
    // what the window uncovered.
    if (signal == SIGSTOP && delayMs < 0)
        QCOMPARE(during, kNothing);
    else if (signal == SIGSTOP)
        QVERIFY2(during == label || during == kNothing, qPrintable(during));

    if (signal == SIGSTOP) {
        QCOMPARE(::kill(target.pid(), SIGCONT), 0);
        QVERIFY(QTest::qWaitFor([&] { return captured() == label; }));
    } else {
        pointAt(widget(QStringLiteral("GTK"), kLabelText));
        QVERIFY(QTest::qWaitFor([] { return captured() == kLabelText; }));
    }
}

QTEST_MAIN(TestCapture)
#include "tst_capture.moc"
