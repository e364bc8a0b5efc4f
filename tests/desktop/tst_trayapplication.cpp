// The tray application as a user meets it: the welcome alert of the first launch, the tray
// icon in the panel, the menus and a language chosen with the pointer surviving a restart,
// the popover at a point that never takes the keyboard from the application in front, and
// a second start that leaves the first alone.

#include "AtspiProbe.h"
#include "DesktopInput.h"
#include "TolkaroUnderTest.h"
#include "platform/x11/X11WindowQueries.h"

#include <QDBusInterface>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace {

const QString kGb = QString::fromUtf8("\U0001F1EC\U0001F1E7");
const QString kDe = QString::fromUtf8("\U0001F1E9\U0001F1EA");
const QString kJp = QString::fromUtf8("\U0001F1EF\U0001F1F5");
const QString kWelcome = QString::fromUtf8("Welcome To Tolkaro! \U0001F60B");
const QString kWelcomeText = QString::fromUtf8(
    "To translate some text, point your mouse cursor over a piece of text on your screen, and "
    "quickly do the following: Press Control key \u2192 Release Control key \u2192 Again press "
    "AND HOLD Control key (to read the translation) \u2192 Release Control (to hide the "
    "translation).\n\nIf you've selected a piece of text, you can replace it with the "
    "translation while holding Control by pressing Option \u2325");

constexpr int kStartTimeout = 15000;

using DesktopInput::inject;
using TolkaroUnderTest::popOverState;
using TolkaroUnderTest::testInterface;

// ---- X11 reads: what the window manager and the tray see ----

// Windows come and go while the tree is walked; a vanished one just answers nothing.
int ignoreXErrors(Display *, XErrorEvent *)
{
    return 0;
}

class X11
{
public:
    X11() : m_display(XOpenDisplay(nullptr)) { XSetErrorHandler(ignoreXErrors); }
    ~X11()
    {
        if (m_display)
            XCloseDisplay(m_display);
    }
    bool isOpen() const { return m_display && m_queries.isValid(); }

    Window activeWindow() const { return m_queries.activeWindow(); }
    QString windowClass(Window window) const { return m_queries.windowClass(window); }

    Window parent(Window window) const
    {
        Window root, parent;
        Window *children = nullptr;
        unsigned int count = 0;
        if (!XQueryTree(m_display, window, &root, &parent, &children, &count))
            return None;
        if (children)
            XFree(children);
        return parent == root ? None : parent;
    }

    // The windows of class `windowClass` anywhere below the root.
    QList<Window> windowsOfClass(const QString &windowClass) const
    {
        QList<Window> found;
        collect(DefaultRootWindow(m_display), windowClass, found);
        return found;
    }

    bool overrideRedirect(Window window) const
    {
        XWindowAttributes attributes;
        return XGetWindowAttributes(m_display, window, &attributes) && attributes.override_redirect;
    }

    bool compositorRuns() const { return m_queries.selectionOwner("_NET_WM_CM_S0") != None; }

    int depth(Window window) const
    {
        XWindowAttributes attributes;
        return XGetWindowAttributes(m_display, window, &attributes) ? attributes.depth : 0;
    }

    QRect geometry(Window window) const
    {
        XWindowAttributes attributes;
        if (!XGetWindowAttributes(m_display, window, &attributes))
            return {};
        return QRect(attributes.x, attributes.y, attributes.width, attributes.height);
    }

    // The screen's brightness (0 to 255) at a point, as a screenshot would show it.
    int brightness(const QPoint &point) const
    {
        XImage *image = XGetImage(m_display, DefaultRootWindow(m_display), point.x(), point.y(), 1,
                                  1, AllPlanes, ZPixmap);
        if (!image)
            return -1;
        const unsigned long colour = XGetPixel(image, 0, 0);
        XDestroyImage(image);
        const int red = (colour >> 16) & 0xff, green = (colour >> 8) & 0xff, blue = colour & 0xff;
        return (red * 11 + green * 16 + blue * 5) / 32;
    }

    bool isViewable(Window window) const
    {
        XWindowAttributes attributes;
        return XGetWindowAttributes(m_display, window, &attributes) &&
               attributes.map_state == IsViewable;
    }

private:
    void collect(Window window, const QString &windowClass, QList<Window> &found) const
    {
        if (this->windowClass(window) == windowClass)
            found.append(window);
        Window root, parent;
        Window *children = nullptr;
        unsigned int count = 0;
        if (!XQueryTree(m_display, window, &root, &parent, &children, &count))
            return;
        for (unsigned int i = 0; i < count; ++i)
            collect(children[i], windowClass, found);
        if (children)
            XFree(children);
    }

    Display *m_display;
    // Active window, class and selection owner, as tolkaro's own capture reads them.
    mutable X11WindowQueries m_queries;
};

// ---- One tolkaro process with its own configuration ----

class Tolkaro
{
public:
    explicit Tolkaro(const QString &configHome)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome);
        environment.insert(QStringLiteral("TOLKARO_TEST_HOOKS"), QStringLiteral("1"));
        m_process.setProcessEnvironment(environment);
        m_process.setProgram(QStringLiteral(TOLKARO_BINARY));
    }
    ~Tolkaro() { stop(); }

    void start() { m_process.start(); }
    qint64 pid() const { return m_process.processId(); }
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    QProcess &process() { return m_process; }

    // SIGTERM, as a session end does; answers the exit code.
    int stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return m_process.exitCode();
        m_process.terminate();
        if (!m_process.waitForFinished(10000)) {
            m_process.kill();
            m_process.waitForFinished(5000);
            return -1;
        }
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }

private:
    QProcess m_process;
};

QVariantMap statusItemState()
{
    QDBusInterface test = testInterface();
    const QDBusReply<QVariantMap> reply = test.call(QStringLiteral("StatusItemState"));
    return reply.isValid() ? reply.value() : QVariantMap();
}

// The popover's body on screen, from its state.
QRect bodyOf(const QVariantMap &state)
{
    return QRect(state.value(QStringLiteral("x")).toInt(), state.value(QStringLiteral("y")).toInt(),
                 state.value(QStringLiteral("width")).toInt(),
                 state.value(QStringLiteral("height")).toInt());
}

QJsonArray menuLayout()
{
    QDBusInterface test = testInterface();
    const QDBusReply<QString> reply = test.call(QStringLiteral("MenuLayout"));
    return QJsonDocument::fromJson(reply.value().toUtf8()).array();
}

QRect menuItemGeometry(const QStringList &titles)
{
    QDBusInterface test = testInterface();
    const QDBusReply<QVariantList> reply = test.call(QStringLiteral("MenuItemGeometry"), titles);
    const QVariantList values = reply.value();
    if (values.size() != 4)
        return {};
    return QRect(values[0].toInt(), values[1].toInt(), values[2].toInt(), values[3].toInt());
}

QStringList titlesOf(const QJsonArray &items)
{
    QStringList titles;
    for (const QJsonValue &item : items)
        titles << (item[QStringLiteral("separator")].toBool()
                       ? QStringLiteral("---")
                       : item[QStringLiteral("title")].toString());
    return titles;
}

QStringList checkedOf(const QJsonArray &items)
{
    QStringList checked;
    for (const QJsonValue &item : items) {
        if (item[QStringLiteral("checked")].toBool())
            checked << item[QStringLiteral("title")].toString();
    }
    return checked;
}

QString screenshotPath(const QString &name)
{
    return QStringLiteral(TOLKARO_DESKTOP_TEST_OUTPUT_DIR "/tst_trayapplication-%1.png").arg(name);
}

bool takeScreenshot(const QString &path)
{
    return QProcess::execute(QStringLiteral("import"),
                             {QStringLiteral("-window"), QStringLiteral("root"), path}) == 0;
}

} // namespace

class TestTrayApplication : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void terminationDuringTheWelcomeAlertLeavesItForNextTime();
    void firstLaunchWelcomesThenRegistersTheTrayIcon();
    void menusHoldTheirItems();
    void languageChosenWithThePointerSurvivesARestart();
    void popoverNeverTakesTheKeyboard();
    void popoverStaysOnScreen_data();
    void popoverStaysOnScreen();
    void clickElsewhereClosesThePopover();
    void secondStartLeavesTheFirstAlone();
    void quitFromTheMenuEndsCleanly();
    void popoverUnderACompositorIsRoundAndShadowed();

private:
    // Starts tolkaro on `configHome` and waits until its tray icon is embedded in the tray.
    bool startAndWaitForTray(Tolkaro &tolkaro);
    bool trayIconEmbedded() const;
    // The popover as X sees it: a viewable window of ours outside the tray.
    Window popoverWindow() const;
    // Opens the status menu with a click on the tray icon and clicks the item at the path of
    // titles, pointing at each parent on the way as a hand would.
    bool clickMenuItem(const QStringList &titles);
    // Clicks the GTK target's entry, so that it is the focused widget of the active window.
    bool focusGtkEntry();

    X11 m_x11;
    QTemporaryDir m_configHome;
    std::unique_ptr<Tolkaro> m_running;
    AtspiElement m_gtkEntry;
};

void TestTrayApplication::initTestCase()
{
    QVERIFY2(m_x11.isOpen(), "no X display: run inside scripts/test-desktop.sh");
    QVERIFY(AtspiProbe::init());
    QVERIFY(m_configHome.isValid());
}

bool TestTrayApplication::trayIconEmbedded() const
{
    // The icon's window sits inside the tray's window tree (XEmbed), not on the root.
    for (Window window : m_x11.windowsOfClass(QStringLiteral("Tolkaro"))) {
        for (Window up = m_x11.parent(window); up != None; up = m_x11.parent(up)) {
            if (m_x11.windowClass(up).compare(QStringLiteral("trayer"), Qt::CaseInsensitive) == 0)
                return m_x11.isViewable(window);
        }
    }
    return false;
}

Window TestTrayApplication::popoverWindow() const
{
    for (Window window : m_x11.windowsOfClass(QStringLiteral("Tolkaro"))) {
        if (m_x11.parent(window) == None && m_x11.isViewable(window))
            return window;
    }
    return None;
}

bool TestTrayApplication::startAndWaitForTray(Tolkaro &tolkaro)
{
    tolkaro.start();
    if (!tolkaro.process().waitForStarted(kStartTimeout))
        return false;
    return QTest::qWaitFor(
        [&] {
            return statusItemState().value(QStringLiteral("visible")).toBool() &&
                   trayIconEmbedded();
        },
        kStartTimeout);
}

bool TestTrayApplication::clickMenuItem(const QStringList &titles)
{
    const QVariantMap icon = statusItemState();
    const QRect iconRect(
        icon.value(QStringLiteral("x")).toInt(), icon.value(QStringLiteral("y")).toInt(),
        icon.value(QStringLiteral("width")).toInt(), icon.value(QStringLiteral("height")).toInt());
    if (iconRect.isEmpty()) {
        qWarning() << "no tray icon geometry";
        return false;
    }
    if (!inject(
            {QStringLiteral("click:%1,%2").arg(iconRect.center().x()).arg(iconRect.center().y())}))
        return false;
    QRect item;
    for (int depth = 1; depth <= titles.size(); ++depth) {
        const QStringList path = titles.mid(0, depth);
        if (!QTest::qWaitFor([&] { return !(item = menuItemGeometry(path)).isEmpty(); }, 5000)) {
            qWarning() << "not on screen:" << path;
            return false;
        }
        // Into the item from its left end first, so the pointer never crosses a sibling
        // whose submenu would replace the one wanted.
        if (!inject({QStringLiteral("move:%1,%2").arg(item.left() + 10).arg(item.center().y()),
                     QStringLiteral("sleep:50"),
                     QStringLiteral("move:%1,%2").arg(item.center().x()).arg(item.center().y())}))
            return false;
    }
    return inject({QStringLiteral("sleep:100"),
                   QStringLiteral("click:%1,%2").arg(item.center().x()).arg(item.center().y())});
}

bool TestTrayApplication::focusGtkEntry()
{
    if (m_gtkEntry.isNull()) {
        const AtspiElement application = AtspiProbe::applicationByPid(
            qEnvironmentVariable("TOLKARO_GTK_TARGET_PID").toLongLong());
        const AtspiElement window =
            AtspiProbe::window(application, qEnvironmentVariable("TOLKARO_GTK_TARGET_TITLE"));
        m_gtkEntry = window.find(QStringLiteral("Target entry"));
    }
    const QRect rect = m_gtkEntry.screenRect();
    if (rect.isEmpty())
        return false;
    if (!DesktopInput::click(rect.center()))
        return false;
    return QTest::qWaitFor([&] { return m_gtkEntry.isFocused(); }, 5000);
}

void TestTrayApplication::terminationDuringTheWelcomeAlertLeavesItForNextTime()
{
    QTemporaryDir configHome;
    Tolkaro tolkaro(configHome.path());
    tolkaro.start();
    QVERIFY(tolkaro.process().waitForStarted(kStartTimeout));
    QVERIFY(QTest::qWaitFor(
        [&] {
            return !AtspiProbe::window(AtspiProbe::applicationByPid(tolkaro.pid()),
                                       QStringLiteral("Tolkaro"))
                        .isNull();
        },
        kStartTimeout));

    // SIGTERM while the modal alert is up ends the process at once and cleanly; the
    // welcome was not read, so it is not marked as read.
    QCOMPARE(tolkaro.stop(), 0);
    QSettings stored(configHome.filePath(QStringLiteral("Tolkaro/Tolkaro.conf")),
                     QSettings::IniFormat);
    QCOMPARE(stored.value(QStringLiteral("HasBeenLaunchedBefore"), false).toBool(), false);
    QVERIFY(!QFile::exists(configHome.filePath(QStringLiteral("autostart/tolkaro.desktop"))));
}

void TestTrayApplication::firstLaunchWelcomesThenRegistersTheTrayIcon()
{
    m_running = std::make_unique<Tolkaro>(m_configHome.path());
    m_running->start();
    QVERIFY(m_running->process().waitForStarted(kStartTimeout));

    // The welcome alert comes first, with its exact words; the tray waits for it.
    AtspiElement alert;
    QVERIFY(QTest::qWaitFor(
        [&] {
            alert = AtspiProbe::window(AtspiProbe::applicationByPid(m_running->pid()),
                                       QStringLiteral("Tolkaro"));
            return !alert.isNull();
        },
        kStartTimeout));
    QCOMPARE(alert.roleName(), QStringLiteral("alert"));
    QVERIFY(!alert.find(kWelcome, QStringLiteral("label")).isNull());
    QVERIFY(!alert.find(kWelcomeText, QStringLiteral("label")).isNull());
    QVERIFY(!trayIconEmbedded());

    const AtspiElement ok = alert.find(QStringLiteral("OK"), QStringLiteral("push button"));
    QVERIFY(!ok.isNull());
    QVERIFY(ok.doAction(QStringLiteral("Press")));

    QTRY_VERIFY_WITH_TIMEOUT(trayIconEmbedded(), kStartTimeout);
    const QVariantMap state = statusItemState();
    QVERIFY(state.value(QStringLiteral("systemTrayAvailable")).toBool());
    QVERIFY(state.value(QStringLiteral("hasIcon")).toBool());

    // The first launch turned start at login on.
    const QString autostart = m_configHome.filePath(QStringLiteral("autostart/tolkaro.desktop"));
    QVERIFY2(QFile::exists(autostart), qPrintable(autostart));

    // SIGTERM ends it cleanly, with both launch keys on disk.
    QCOMPARE(m_running->stop(), 0);
    QSettings stored(m_configHome.filePath(QStringLiteral("Tolkaro/Tolkaro.conf")),
                     QSettings::IniFormat);
    QCOMPARE(stored.value(QStringLiteral("HasBeenLaunchedBefore")).toBool(), true);
    QCOMPARE(stored.value(QStringLiteral("HasBeenLaunchedAtLeastOnce")).toBool(), true);

    // The second launch goes straight to the tray: no alert before it.
    m_running = std::make_unique<Tolkaro>(m_configHome.path());
    QVERIFY(startAndWaitForTray(*m_running));
    QVERIFY(AtspiProbe::window(AtspiProbe::applicationByPid(m_running->pid()),
                               QStringLiteral("Tolkaro"))
                .isNull());
}

void TestTrayApplication::menusHoldTheirItems()
{
    QVERIFY(m_running && m_running->isRunning());
    const QJsonArray menu = menuLayout();
    QCOMPARE(titlesOf(menu), (QStringList{QStringLiteral("My Tolkaro"),
                                          kGb + QStringLiteral(" Destination Language"),
                                          kGb + QStringLiteral(" Alternative Destination Language"),
                                          QStringLiteral("---"), QStringLiteral("Quit Tolkaro")}));
    QCOMPARE(titlesOf(menu[0][QStringLiteral("submenu")].toArray()),
             (QStringList{QStringLiteral("Check for updates..."),
                          QStringLiteral("Autostart when the desktop starts"),
                          QStringLiteral("Keyboard Preferences...")}));
    // The first launch turned autostart on, and the item reads it.
    QCOMPARE(checkedOf(menu[0][QStringLiteral("submenu")].toArray()),
             QStringList{QStringLiteral("Autostart when the desktop starts")});

    const QJsonArray destination = menu[1][QStringLiteral("submenu")].toArray();
    const QJsonArray alternative = menu[2][QStringLiteral("submenu")].toArray();
    QCOMPARE(destination.size(), 38);
    QCOMPARE(titlesOf(destination), titlesOf(alternative));
    QCOMPARE(destination[0][QStringLiteral("title")].toString(),
             QString::fromUtf8("\U0001F1F5\U0001F1F8 Arabic"));
    QCOMPARE(destination[37][QStringLiteral("title")].toString(),
             QString::fromUtf8("\U0001F1FB\U0001F1F3 Vietnamese"));
    // The desktop's language is "C", which no entry matches: English.
    QCOMPARE(checkedOf(destination), QStringList{kGb + QStringLiteral(" English")});
    QCOMPARE(checkedOf(alternative), QStringList{kGb + QStringLiteral(" English")});
}

void TestTrayApplication::languageChosenWithThePointerSurvivesARestart()
{
    QVERIFY(m_running && m_running->isRunning());
    const QString destinationItem = kGb + QStringLiteral(" Destination Language");
    const QString alternativeItem = kGb + QStringLiteral(" Alternative Destination Language");

    // Click the icon in the tray, point at the submenu's item, click the language.
    auto choose = [&](const QString &parent, const QString &language) {
        return clickMenuItem({parent, language});
    };

    QVERIFY(choose(destinationItem, kDe + QStringLiteral(" German")));
    QTRY_COMPARE_WITH_TIMEOUT(titlesOf(menuLayout()).value(1),
                              kDe + QStringLiteral(" Destination Language"), 5000);
    QCOMPARE(checkedOf(menuLayout()[1][QStringLiteral("submenu")].toArray()),
             QStringList{kDe + QStringLiteral(" German")});

    QVERIFY(choose(alternativeItem, kJp + QStringLiteral(" Japanese")));
    QTRY_COMPARE_WITH_TIMEOUT(titlesOf(menuLayout()).value(2),
                              kJp + QStringLiteral(" Alternative Destination Language"), 5000);

    QCOMPARE(m_running->stop(), 0);
    m_running = std::make_unique<Tolkaro>(m_configHome.path());
    QVERIFY(startAndWaitForTray(*m_running));

    // German stays; the alternative starts as English again, whatever was chosen.
    const QJsonArray menu = menuLayout();
    QCOMPARE(titlesOf(menu).value(1), kDe + QStringLiteral(" Destination Language"));
    QCOMPARE(checkedOf(menu[1][QStringLiteral("submenu")].toArray()),
             QStringList{kDe + QStringLiteral(" German")});
    QCOMPARE(titlesOf(menu).value(2), kGb + QStringLiteral(" Alternative Destination Language"));
    QCOMPARE(checkedOf(menu[2][QStringLiteral("submenu")].toArray()),
             QStringList{kGb + QStringLiteral(" English")});
    QSettings stored(m_configHome.filePath(QStringLiteral("Tolkaro/Tolkaro.conf")),
                     QSettings::IniFormat);
    QCOMPARE(stored.value(QStringLiteral("previouslyUsedLanguageCode")).toString(),
             QStringLiteral("de"));
}

void TestTrayApplication::popoverNeverTakesTheKeyboard()
{
    QVERIFY(m_running && m_running->isRunning());
    QVERIFY(focusGtkEntry());
    const Window active = m_x11.activeWindow();
    QVERIFY(active != None);
    auto keyboardStaysWithTheTarget = [&] {
        return m_x11.activeWindow() == active && m_gtkEntry.isFocused();
    };

    const QRect entry = m_gtkEntry.screenRect();
    const QPoint point(entry.center().x(), entry.bottom() + 8);
    const QString source = QStringLiteral("The quick brown fox jumps over the lazy dog.");
    const QString translation =
        QStringLiteral("Der schnelle braune Fuchs springt über den faulen Hund, und zwar nicht nur "
                       "einmal, sondern immer wieder, bis der Hund endlich aufwacht.");

    QDBusInterface test = testInterface();
    QVERIFY(test.call(QStringLiteral("DisplayPopOver"), source, point.x(), point.y()).type() !=
            QDBusMessage::ErrorMessage);
    QVariantMap state;
    QTRY_VERIFY((state = popOverState()).value(QStringLiteral("windowVisible")).toBool());
    QCOMPARE(state.value(QStringLiteral("text")).toString(), source);
    Window popover = None;
    QTRY_VERIFY((popover = popoverWindow()) != None);
    QVERIFY(m_x11.overrideRedirect(popover));
    // It hangs below the point, centred on it.
    const QRect body = bodyOf(state);
    QVERIFY(body.top() > point.y());
    QVERIFY(qAbs(body.center().x() - point.x()) <= 1);
    QVERIFY(keyboardStaysWithTheTarget());

    // Cross-fade to the translation; the popover grows around the same point.
    QVERIFY(test.call(QStringLiteral("SetPopOverText"), translation, false).type() !=
            QDBusMessage::ErrorMessage);
    QTRY_COMPARE(popOverState().value(QStringLiteral("text")).toString(), translation);
    QVERIFY(keyboardStaysWithTheTarget());
    QTest::qWait(400); // let the fade-in finish before the picture
    const QString shot = screenshotPath(QStringLiteral("popover"));
    QVERIFY(takeScreenshot(shot));
    qInfo().noquote() << "popover screenshot:" << shot;

    // A message in gray.
    QVERIFY(
        test.call(QStringLiteral("SetPopOverText"), QStringLiteral("No text to translate"), true)
            .type() != QDBusMessage::ErrorMessage);
    QTRY_COMPARE(popOverState().value(QStringLiteral("text")).toString(),
                 QStringLiteral("No text to translate"));
    QCOMPARE(popOverState().value(QStringLiteral("color")).toString(), QStringLiteral("#808080"));

    QVERIFY(test.call(QStringLiteral("HidePopOver")).type() != QDBusMessage::ErrorMessage);
    QTRY_VERIFY(!m_x11.isViewable(popover));
    QCOMPARE(popoverWindow(), Window(None));
    QVERIFY(!popOverState().value(QStringLiteral("shown")).toBool());
    QVERIFY(keyboardStaysWithTheTarget());
}

void TestTrayApplication::popoverStaysOnScreen_data()
{
    QTest::addColumn<QPoint>("point");
    QTest::addColumn<bool>("above");
    // The placement's boundaries are the unit test's; here, the corners of the real screen.
    QTest::newRow("bottom right corner: above and inside") << QPoint(1279, 799) << true;
    QTest::newRow("top left corner: below and inside") << QPoint(0, 0) << false;
}

void TestTrayApplication::popoverStaysOnScreen()
{
    QFETCH(QPoint, point);
    QFETCH(bool, above);
    QVERIFY(m_running && m_running->isRunning());
    QDBusInterface test = testInterface();
    test.call(QStringLiteral("DisplayPopOver"), QStringLiteral("Edge of the screen"), point.x(),
              point.y());
    QVariantMap state;
    QTRY_VERIFY((state = popOverState()).value(QStringLiteral("windowVisible")).toBool());
    const QRect body = bodyOf(state);
    QVERIFY2(QRect(0, 0, 1280, 800).contains(body), qPrintable(QStringLiteral("%1,%2 %3x%4")
                                                                   .arg(body.x())
                                                                   .arg(body.y())
                                                                   .arg(body.width())
                                                                   .arg(body.height())));
    QCOMPARE(state.value(QStringLiteral("abovePointer")).toBool(), above);
    QVERIFY(!body.contains(point));
    test.call(QStringLiteral("HidePopOver"));
}

void TestTrayApplication::clickElsewhereClosesThePopover()
{
    QVERIFY(m_running && m_running->isRunning());
    QVERIFY(focusGtkEntry());
    QDBusInterface test = testInterface();
    test.call(QStringLiteral("DisplayPopOver"), QStringLiteral("Click elsewhere"), 300, 200);
    QTRY_VERIFY(popOverState().value(QStringLiteral("windowVisible")).toBool());

    // A click inside the popover leaves it open.
    const QVariantMap state = popOverState();
    const QPoint inside(state.value(QStringLiteral("x")).toInt() + 5,
                        state.value(QStringLiteral("y")).toInt() + 5);
    QVERIFY(DesktopInput::click(inside));
    QTest::qWait(300);
    QVERIFY(popOverState().value(QStringLiteral("windowVisible")).toBool());

    // Nor does the wheel turned over the target: scrolling is not a click.
    const QRect entry = m_gtkEntry.screenRect();
    QVERIFY(inject({QStringLiteral("move:%1,%2").arg(entry.center().x()).arg(entry.center().y()),
                    QStringLiteral("button:5:down"), QStringLiteral("button:5:up")}));
    QTest::qWait(300);
    QVERIFY(popOverState().value(QStringLiteral("windowVisible")).toBool());

    // A click in the target closes the window; the popover counts as shown until hidden.
    QVERIFY(focusGtkEntry());
    QTRY_VERIFY(!popOverState().value(QStringLiteral("windowVisible")).toBool());
    QVERIFY(popOverState().value(QStringLiteral("shown")).toBool());
    test.call(QStringLiteral("HidePopOver"));
    QVERIFY(!popOverState().value(QStringLiteral("shown")).toBool());
}

void TestTrayApplication::secondStartLeavesTheFirstAlone()
{
    QVERIFY(m_running && m_running->isRunning());
    Tolkaro second(m_configHome.path());
    second.start();
    QVERIFY(second.process().waitForFinished(kStartTimeout));
    QCOMPARE(second.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.process().exitCode(), 0);
    QVERIFY(second.process().readAllStandardOutput().contains("Tolkaro is already running."));

    QVERIFY(m_running->isRunning());
    QVERIFY(statusItemState().value(QStringLiteral("visible")).toBool());
    QVERIFY(trayIconEmbedded());
}

void TestTrayApplication::quitFromTheMenuEndsCleanly()
{
    QVERIFY(m_running && m_running->isRunning());
    // Something for the way out to write.
    QVERIFY(clickMenuItem(
        {kDe + QStringLiteral(" Destination Language"), kJp + QStringLiteral(" Japanese")}));
    QTRY_COMPARE(titlesOf(menuLayout()).value(1), kJp + QStringLiteral(" Destination Language"));

    QVERIFY(clickMenuItem({QStringLiteral("Quit Tolkaro")}));
    QVERIFY(m_running->process().waitForFinished(kStartTimeout));
    QCOMPARE(m_running->process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_running->process().exitCode(), 0);
    QSettings stored(m_configHome.filePath(QStringLiteral("Tolkaro/Tolkaro.conf")),
                     QSettings::IniFormat);
    QCOMPARE(stored.value(QStringLiteral("previouslyUsedLanguageCode")).toString(),
             QStringLiteral("ja"));
    QVERIFY(!trayIconEmbedded());
}

void TestTrayApplication::popoverUnderACompositorIsRoundAndShadowed()
{
    // A compositing manager: the popover then has an alpha channel, its corners show what
    // lies beneath and a shadow darkens the desktop around it.
    QProcess compositor;
    compositor.start(QStringLiteral("xcompmgr"), {QStringLiteral("-n")});
    QVERIFY2(compositor.waitForStarted(5000), "xcompmgr is missing: scripts/install-deps.sh");
    QTRY_VERIFY(m_x11.compositorRuns());

    QTemporaryDir configHome;
    Tolkaro tolkaro(configHome.path());
    tolkaro.start();
    QVERIFY(tolkaro.process().waitForStarted(kStartTimeout));
    const AtspiElement alert = [&] {
        AtspiElement found;
        [[maybe_unused]] const bool shown = QTest::qWaitFor(
            [&] {
                found = AtspiProbe::window(AtspiProbe::applicationByPid(tolkaro.pid()),
                                           QStringLiteral("Tolkaro"));
                return !found.isNull();
            },
            kStartTimeout);
        return found;
    }();
    QVERIFY(alert.find(QStringLiteral("OK"), QStringLiteral("push button"))
                .doAction(QStringLiteral("Press")));
    QTRY_VERIFY_WITH_TIMEOUT(trayIconEmbedded(), kStartTimeout);

    // Over a plain part of the desktop, so that whatever differs from it is the popover's.
    const QPoint point(640, 560);
    const int desktop = m_x11.brightness(QPoint(640, 700));
    testInterface().call(QStringLiteral("DisplayPopOver"), QStringLiteral("Composited"), point.x(),
                         point.y());
    Window popover = None;
    QTRY_VERIFY((popover = popoverWindow()) != None);
    QCOMPARE(m_x11.depth(popover), 32);
    QTest::qWait(300); // the compositor paints on its own schedule
    const QVariantMap state = popOverState();
    const QRect body = bodyOf(state);
    QVERIFY(m_x11.geometry(popover).contains(body));
    QVERIFY(m_x11.geometry(popover) != body);
    const QString shot = screenshotPath(QStringLiteral("composited"));
    QVERIFY(takeScreenshot(shot));
    qInfo().noquote() << "composited popover screenshot:" << shot;

    // The rounded corner's outermost pixel lets the desktop through (a little shadowed),
    // the body's middle is the popover's own, and below the body lies a shadow.
    const int corner = m_x11.brightness(body.topLeft());
    const int middle = m_x11.brightness(QPoint(body.left() + 3, body.center().y()));
    const int below = m_x11.brightness(QPoint(body.center().x(), body.bottom() + 3));
    QVERIFY2(corner < middle, qPrintable(QStringLiteral("%1 %2").arg(corner).arg(middle)));
    QVERIFY2(qAbs(corner - desktop) < 40,
             qPrintable(QStringLiteral("%1 %2").arg(corner).arg(desktop)));
    QVERIFY2(below < desktop, qPrintable(QStringLiteral("%1 %2").arg(below).arg(desktop)));

    testInterface().call(QStringLiteral("HidePopOver"));
    QCOMPARE(tolkaro.stop(), 0);
    compositor.terminate();
    compositor.waitForFinished(5000);
}

QTEST_GUILESS_MAIN(TestTrayApplication)
#include "tst_trayapplication.moc"
