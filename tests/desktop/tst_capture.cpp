// Text capture against real GTK and Qt applications: the text under the pointer, the
// selection before the element's own text, the longest-attribute rule, Copy and Paste
// through the applications' Edit menus with the clipboard left byte for byte as it was, and
// a stopped application that makes a capture fail instead of hanging.
//
// Every AT-SPI read of the test goes through UIElementUtilities, so it runs on the same
// AT-SPI thread as the code under test (libatspi must stay on one thread).

#include "capture/AccessibilityManager.h"
#include "capture/ClipboardSnapshot.h"
#include "platform/atspi/UIElementUtilities.h"
#include "DesktopInput.h"
#include "CaptureTestHelpers.h"
#include "DesktopClipboard.h"
#include "UIElementSearch.h"
#include "platform/x11/X11WindowQueries.h"

#include <QBuffer>
#include <QClipboard>
#include <QCursor>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

using namespace CaptureTestHelpers;

namespace {

using UIElementSearch::findByTitle;
using UIElementSearch::stringOf;

const QString kLabelText = QStringLiteral("The quick brown fox jumps over the lazy dog.");
const QString kEntryName = QStringLiteral("Target entry");
const QString kTextViewName = QStringLiteral("Target text view");
const QString kCustomFormat = QStringLiteral("application/x-tolkaro-test");
// GTK's and Qt's double-click time is 400 ms; a little more.
constexpr int kDoubleClickTime = 500;

struct Target
{
    qint64 pid = 0;
    QString log;
};

Target target(const QString &which)
{
    const QString prefix = QStringLiteral("TOLKARO_%1_TARGET_").arg(which);
    return {qEnvironmentVariable(qPrintable(prefix + QStringLiteral("PID"))).toLongLong(),
            qEnvironmentVariable(qPrintable(prefix + QStringLiteral("LOG")))};
}

QPoint centerOf(const UIElement &element)
{
    return UIElementUtilities::frameOfUIElement(element).center().toPoint();
}

void pointAt(const UIElement &element)
{
    QCursor::setPos(centerOf(element));
    QTest::qWait(20);
}

QByteArray pngBytes()
{
    QImage image(6, 4, QImage::Format_ARGB32);
    image.fill(QColor(10, 200, 30, 128));
    image.setPixelColor(1, 2, Qt::red);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

} // namespace

namespace QTest {
template <>
char *toString(const std::optional<QString> &value)
{
    return qstrdup(value ? qPrintable(QStringLiteral("\"%1\"").arg(*value)) : "nullopt");
}
} // namespace QTest

Q_DECLARE_METATYPE(std::optional<QString>)

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
    void keystrokeCapture_data();
    void keystrokeCapture();
    void stoppedApplicationMakesTheCaptureFail();

private:
    UIElement application(const QString &which) const;
    UIElement widget(const QString &which, const QString &title) const;
    // Makes the target's window the active one and gives the widget the keyboard focus.
    void activateAndFocus(const QString &which, const UIElement &element);
    // Puts the four formats on the clipboard from another process; false when that failed.
    bool fillClipboardFromAnotherApplication();
    QString targetLog(const QString &which) const;

    QTemporaryDir m_files;
    QProcess m_clipboardOwner;
    QHash<QString, QByteArray> m_clipboardBefore;
};

void TestCapture::initTestCase()
{
    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        if (target(which).pid == 0)
            QFAIL("no target applications: run this under scripts/test-desktop.sh");
        QVERIFY2(QTest::qWaitFor([&] { return !widget(which, kTextViewName).isNull(); }, 15000),
                 qPrintable(which + QStringLiteral(" target not on the accessibility bus")));
    }
    m_clipboardBefore = {
        {QStringLiteral("text/plain"), QStringLiteral("Grüße – before the copy").toUtf8()},
        {QStringLiteral("text/html"), QByteArray("<p><b>before</b> the copy</p>")},
        {QStringLiteral("image/png"), pngBytes()},
        {kCustomFormat, QByteArray("\x00\x01\xff custom\n bytes", 18)},
    };
}

void TestCapture::init()
{
    // Each run starts from plain widgets: known texts, nothing selected.
    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        for (const QString &name : {kEntryName, kTextViewName}) {
            const UIElement element = widget(which, name);
            UIElementUtilities::setStringValue(QString(), QStringLiteral("AXValue"), element);
            QVERIFY(QTest::qWaitFor([&] { return valueText(element).isEmpty(); }));
        }
    }
}

void TestCapture::cleanup()
{
    if (m_clipboardOwner.state() != QProcess::NotRunning) {
        m_clipboardOwner.terminate();
        m_clipboardOwner.waitForFinished(5000);
    }
    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")})
        ::kill(pid_t(target(which).pid), SIGCONT);
}

UIElement TestCapture::application(const QString &which) const
{
    return UIElementUtilities::applicationElementForProcess(target(which).pid);
}

UIElement TestCapture::widget(const QString &which, const QString &title) const
{
    return findByTitle(application(which), title);
}

void TestCapture::activateAndFocus(const QString &which, const UIElement &element)
{
    // A click, as a user would: it activates the window and focuses the widget. (Asking
    // AT-SPI for the focus is not enough after a menu command of GTK: the widget keeps the
    // keyboard but no longer reports the focus until it is focused anew.)
    const QPoint center = centerOf(element);
    QVERIFY(DesktopInput::click(center));
    // Past the double-click time: the next click on the same spot must not select a word.
    QTest::qWait(kDoubleClickTime);
    QVERIFY(QTest::qWaitFor([&] {
        const UIElementValue focused =
            UIElementUtilities::valueOfAttribute(QStringLiteral("AXFocused"), element);
        return std::get_if<double>(&focused) && std::get<double>(focused) == 1 &&
               !isNullValue(UIElementUtilities::valueOfAttribute(
                   QStringLiteral("AXFocusedWindow"), application(which)));
    }));
}

bool TestCapture::fillClipboardFromAnotherApplication()
{
    QStringList arguments{QStringLiteral("--own-clipboard")};
    int index = 0;
    for (auto it = m_clipboardBefore.cbegin(); it != m_clipboardBefore.cend(); ++it) {
        const QString path = m_files.filePath(QStringLiteral("format%1").arg(index++));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(it.value()) != it.value().size())
            return false;
        arguments << QStringLiteral("%1=%2").arg(it.key(), path);
    }
    m_clipboardOwner.start(QStringLiteral(TOLKARO_CAPTURE_PROBE), arguments);
    return QTest::qWaitFor([&] { return m_clipboardOwner.readAllStandardOutput().contains("OWNING"); },
                           10000) &&
           DesktopClipboard::bytes(kCustomFormat) == m_clipboardBefore.value(kCustomFormat);
}

QString TestCapture::targetLog(const QString &which) const
{
    QFile file(target(which).log);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

void TestCapture::textUnderThePointer_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");
    QTest::addColumn<QString>("contents");
    QTest::addColumn<QString>("expected");

    const QString entryText = QStringLiteral("Words in the entry field");
    const QString viewText = QStringLiteral("First paragraph of the view.\nSecond one.");
    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
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
    if (!contents.isEmpty()) {
        QVERIFY(setText(element, contents));
    }
    pointAt(element);
    QCOMPARE(AccessibilityManager::getStringForCurrentUIElement(), std::optional<QString>(expected));
    // The paste that may follow goes to the application the text came from.
    QCOMPARE(UIElementUtilities::applicationOfUIElement(
                 AccessibilityManager::currentlyProcessedElement()),
             application(which));
}

void TestCapture::longestAttributeWins_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("expected");

    // The entry's title is its accessible name, "Target entry" (12 characters). Ties, values
    // without letters and UTF-16 lengths are the capture rules unit test's.
    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        QTest::addRow("%s value longer than the title", qPrintable(which))
            << which << QStringLiteral("thirteen char") << QStringLiteral("thirteen char");
        QTest::addRow("%s title longer than the value", qPrintable(which))
            << which << QStringLiteral("eleven char") << kEntryName;
    }
}

void TestCapture::longestAttributeWins()
{
    QFETCH(QString, which);
    QFETCH(QString, value);
    QFETCH(QString, expected);

    const UIElement entry = widget(which, kEntryName);
    UIElementUtilities::setStringValue(value, QStringLiteral("AXValue"), entry);
    QVERIFY(QTest::qWaitFor([&] { return valueText(entry) == value; }));
    pointAt(entry);
    QCOMPARE(AccessibilityManager::getStringForCurrentUIElement(), std::optional<QString>(expected));
}

void TestCapture::selectionWinsOverTheElementText_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");
    QTest::addColumn<bool>("pointAtSelection");

    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        for (const QString &title : {kEntryName, kTextViewName}) {
            QTest::addRow("%s %s, pointer on it", qPrintable(which), qPrintable(title))
                << which << title << true;
            QTest::addRow("%s %s, pointer on the label", qPrintable(which), qPrintable(title))
                << which << title << false;
        }
    }
}

void TestCapture::selectionWinsOverTheElementText()
{
    QFETCH(QString, which);
    QFETCH(QString, widgetTitle);
    QFETCH(bool, pointAtSelection);

    const UIElement element = widget(which, widgetTitle);
    const QString contents = QStringLiteral("a long text around the chosen words of it");
    QVERIFY(setText(element, contents));
    activateAndFocus(which, element);
    QVERIFY(select(element, 23, 12));

    pointAt(pointAtSelection ? element : widget(which, kLabelText));
    QCOMPARE(AccessibilityManager::getStringForCurrentUIElement(),
             std::optional<QString>(QStringLiteral("chosen words")));
    QVERIFY(select(element, 0, 0));
}

void TestCapture::copyThroughTheMenuRestoresTheClipboard_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<bool>("clipboardFilled");

    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        QTest::addRow("%s, text, HTML, PNG and a custom type", qPrintable(which)) << which << true;
        QTest::addRow("%s, empty clipboard", qPrintable(which)) << which << false;
    }
}

void TestCapture::copyThroughTheMenuRestoresTheClipboard()
{
    QFETCH(QString, which);
    QFETCH(bool, clipboardFilled);

    const UIElement entry = widget(which, kEntryName);
    const QString contents = QStringLiteral("copy these words please");
    UIElementUtilities::setStringValue(contents, QStringLiteral("AXValue"), entry);
    QVERIFY(QTest::qWaitFor([&] { return valueText(entry) == contents; }));
    activateAndFocus(which, entry);
    QVERIFY(select(entry, 5, 11));

    QStringList targetsBefore;
    if (clipboardFilled) {
        QVERIFY(fillClipboardFromAnotherApplication());
        targetsBefore = DesktopClipboard::targets();
        QVERIFY(targetsBefore.contains(kCustomFormat));
    } else {
        ClipboardSnapshot::clearContents();
        QVERIFY(QTest::qWaitFor([] { return X11WindowQueries().selectionOwner("CLIPBOARD") == 0; }));
    }
    const qsizetype copiesBefore = targetLog(which).count(QStringLiteral("COPY entry"));

    const std::optional<QString> copied =
        AccessibilityManager::clickCopyMenuCommandForApplicationThatContainsAXElement(entry);
    QVERIFY(QTest::qWaitFor(
        [&] { return targetLog(which).count(QStringLiteral("COPY entry")) == copiesBefore + 1; }));
    QCOMPARE(copied, std::optional<QString>(QStringLiteral("these words")));

    if (!clipboardFilled) {
        QCOMPARE(X11WindowQueries().selectionOwner("CLIPBOARD"), 0ul);
        return;
    }
    for (auto it = m_clipboardBefore.cbegin(); it != m_clipboardBefore.cend(); ++it)
        QCOMPARE(DesktopClipboard::bytes(it.key()), std::optional<QByteArray>(it.value()));
    QCOMPARE(DesktopClipboard::targets(), targetsBefore);
}

void TestCapture::pasteReplacesTheSelection_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");
    QTest::addColumn<bool>("intoLastCapture");

    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        for (const QString &title : {kEntryName, kTextViewName}) {
            QTest::addRow("%s %s, given application", qPrintable(which), qPrintable(title))
                << which << title << false;
            QTest::addRow("%s %s, application of the last capture", qPrintable(which),
                          qPrintable(title))
                << which << title << true;
        }
    }
}

void TestCapture::pasteReplacesTheSelection()
{
    QFETCH(QString, which);
    QFETCH(QString, widgetTitle);
    QFETCH(bool, intoLastCapture);

    const UIElement element = widget(which, widgetTitle);
    QVERIFY(setText(element, QStringLiteral("alpha beta gamma")));
    activateAndFocus(which, element);
    QVERIFY(select(element, 6, 4));
    QVERIFY(fillClipboardFromAnotherApplication());
    const QStringList targetsBefore = DesktopClipboard::targets();
    const QString widgetKind = widgetTitle == kEntryName ? QStringLiteral("entry")
                                                         : QStringLiteral("text");
    const qsizetype pastesBefore = targetLog(which).count(QStringLiteral("PASTE ") + widgetKind);

    const QString translation = QStringLiteral("Übersetzung");
    if (intoLastCapture) {
        pointAt(element);
        QVERIFY(AccessibilityManager::getStringForCurrentUIElement());
        AccessibilityManager::clickPasteMenuCommandForApplicationThatContainsAXElement(UIElement(),
                                                                                    translation);
    } else {
        AccessibilityManager::clickPasteMenuCommandForApplicationAXElement(application(which),
                                                                           translation);
    }

    // The text is checked below, after the log says which command ran.
    (void)QTest::qWaitFor(
        [&] { return valueText(element) == QStringLiteral("alpha Übersetzung gamma"); });
    QCOMPARE(targetLog(which).count(QStringLiteral("PASTE ") + widgetKind), pastesBefore + 1);
    QCOMPARE(valueText(element), QStringLiteral("alpha Übersetzung gamma"));
    for (auto it = m_clipboardBefore.cbegin(); it != m_clipboardBefore.cend(); ++it)
        QCOMPARE(DesktopClipboard::bytes(it.key()), std::optional<QByteArray>(it.value()));
    QCOMPARE(DesktopClipboard::targets(), targetsBefore);
}

void TestCapture::editableTextReplacesTheSelection_data()
{
    QTest::addColumn<QString>("which");
    QTest::addColumn<QString>("widgetTitle");

    for (const QString &which : {QStringLiteral("GTK"), QStringLiteral("QT")}) {
        for (const QString &title : {kEntryName, kTextViewName})
            QTest::addRow("%s %s", qPrintable(which), qPrintable(title)) << which << title;
    }
}

// The paste for applications without a Paste command. The text has letters that take two
// bytes in UTF-8 and one beyond the BMP, where GTK (bytes) and Qt (UTF-16 units) count its
// length differently.
void TestCapture::editableTextReplacesTheSelection()
{
    QFETCH(QString, which);
    QFETCH(QString, widgetTitle);

    const UIElement element = widget(which, widgetTitle);
    QVERIFY(setText(element, QStringLiteral("alpha beta gamma")));
    activateAndFocus(which, element);
    QVERIFY(select(element, 6, 4));

    const bool replaced = UIElementUtilities::replaceSelectedText(element, QStringLiteral("Grüße 🙂"));
    QCOMPARE(valueText(element), QStringLiteral("alpha Grüße 🙂 gamma"));
    // And it says so, having read the text back.
    QVERIFY(replaced);
}

void TestCapture::keystrokeCapture_data()
{
    QTest::addColumn<QString>("contents");
    QTest::addColumn<int>("start");
    QTest::addColumn<int>("length");
    QTest::addColumn<std::optional<QString>>("expected");

    QTest::newRow("a selection without a blank line, as copied")
        << QStringLiteral("some “plain” words here") << 5 << 7
        << std::optional<QString>(QStringLiteral("“plain”"));
    const QString passage = QStringLiteral("“A quoted passage.”\n\nExcerpt From: Some Book");
    QTest::newRow("a passage with its attribution: the passage alone")
        << passage << 0 << int(passage.size())
        << std::optional<QString>(QStringLiteral("A quoted passage."));
}

void TestCapture::keystrokeCapture()
{
    QFETCH(QString, contents);
    QFETCH(int, start);
    QFETCH(int, length);
    QFETCH(std::optional<QString>, expected);

    const UIElement element = widget(QStringLiteral("GTK"), kTextViewName);
    QVERIFY(setText(element, contents));
    activateAndFocus(QStringLiteral("GTK"), element);
    QVERIFY(select(element, start, length));
    QVERIFY(fillClipboardFromAnotherApplication());
    const QStringList targetsBefore = DesktopClipboard::targets();

    X11WindowQueries windows;
    const QString activeClass = windows.windowClass(windows.activeWindow());
    QVERIFY(!activeClass.isEmpty());
    QVERIFY(AccessibilityManager::isBooksAppActive({QStringLiteral("Some-reader"), activeClass}));
    QVERIFY(!AccessibilityManager::isBooksAppActive({QStringLiteral("Some-reader")}));
    QVERIFY(!AccessibilityManager::isBooksAppActive({}));

    QCOMPARE(AccessibilityManager::getStringForBooksApp(), expected);
    for (auto it = m_clipboardBefore.cbegin(); it != m_clipboardBefore.cend(); ++it)
        QCOMPARE(DesktopClipboard::bytes(it.key()), std::optional<QByteArray>(it.value()));
    QCOMPARE(DesktopClipboard::targets(), targetsBefore);
}

void TestCapture::stoppedApplicationMakesTheCaptureFail()
{
    const UIElement label = widget(QStringLiteral("GTK"), kLabelText);
    pointAt(label);
    QCOMPARE(AccessibilityManager::getStringForCurrentUIElement(), std::optional<QString>(kLabelText));

    const pid_t pid = pid_t(target(QStringLiteral("GTK")).pid);
    QCOMPARE(::kill(pid, SIGSTOP), 0);
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(AccessibilityManager::getStringForCurrentUIElement(), std::nullopt);
    // How fast is the benchmark's business; this only shows the figure.
    qInfo("capture from a stopped application gave up after %lld ms", timer.elapsed());

    QCOMPARE(::kill(pid, SIGCONT), 0);
    QVERIFY(QTest::qWaitFor(
        [] { return AccessibilityManager::getStringForCurrentUIElement() == kLabelText; }));
}

QTEST_MAIN(TestCapture)
#include "tst_capture.moc"
