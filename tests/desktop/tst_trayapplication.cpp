// The tray application as a user meets it: the welcome alert of the first launch, the tray
// icon in the panel, the menus and a language chosen with the pointer surviving Quit and a
// restart, the popover at a point that never takes the keyboard from the application in
// front (where it stands on every screen is the placement unit test's), and a second start
// that leaves the first alone.

#include "AtspiProbe.h"
#include "DesktopInput.h"
#include "TolkaroUnderTest.h"
#include "platform/x11/X11WindowQueries.h"

#include <QImage>
#include <QtTest>

using namespace TolkaroUnderTest;

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

using WindowId = unsigned long;

// The windows as the window manager, the tray and a screenshot see them, through xwininfo
// and xdotool. What xwininfo says of a window: "Map State" is "IsViewable", "Depth" "32"...;
// with "-children", its "Parent window id". Empty for a window that is gone.
QMap<QString, QString> windowInfo(WindowId window, const QString &option = QStringLiteral("-stats"))
{
    QProcess xwininfo;
    xwininfo.start(QStringLiteral("xwininfo"),
                   {option, QStringLiteral("-id"), QString::number(window)});
    xwininfo.waitForFinished(10000);
    QMap<QString, QString> values;
    for (const QString &line : QString::fromUtf8(xwininfo.readAllStandardOutput()).split(u'\n')) {
        const qsizetype colon = line.indexOf(u':');
        if (colon > 0)
            values.insert(line.left(colon).trimmed(), line.mid(colon + 1).trimmed());
    }
    return values;
}

bool isViewable(WindowId window)
{
    return windowInfo(window).value(QStringLiteral("Map State")) == QLatin1String("IsViewable");
}

// The parent window, 0 for a top-level one.
WindowId parentOf(WindowId window)
{
    const QString parent =
        windowInfo(window, QStringLiteral("-children")).value(QStringLiteral("Parent window id"));
    return parent.contains(QLatin1String("(the root window)"))
               ? 0
               : parent.section(u' ', 0, 0).toULong(nullptr, 16);
}

QList<WindowId> windowsOfClass(const QString &windowClass)
{
    QProcess xdotool;
    xdotool.start(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--class"),
                                              QLatin1Char('^') + windowClass + QLatin1Char('$')});
    xdotool.waitForFinished(10000);
    QList<WindowId> windows;
    for (const QByteArray &id : xdotool.readAllStandardOutput().split('\n'))
        if (!id.isEmpty())
            windows.append(id.toULong());
    return windows;
}

QStringList titlesOf(const QJsonArray &items)
{
    QStringList titles;
    for (const QJsonValue &item : items)
        titles << (item["separator"].toBool() ? QStringLiteral("---") : item["title"].toString());
    return titles;
}

QStringList checkedOf(const QJsonValue &item)
{
    QStringList checked;
    for (const QJsonValue &child : item["submenu"].toArray()) {
        if (child["checked"].toBool())
            checked << child["title"].toString();
    }
    return checked;
}

} // namespace

class TestTrayApplication : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(m_x11.isValid(), "no X display: run inside scripts/test-desktop.sh");
        QVERIFY(AtspiProbe::init());
        QVERIFY(m_configHome.isValid());
    }

    void cleanupTestCase() { stop(m_tolkaro); }

    void firstLaunchWelcomesThenRegistersTheTrayIcon()
    {
        const QString autostart =
            m_configHome.filePath(QStringLiteral("autostart/tolkaro.desktop"));
        // SIGTERM while the modal alert is up ends the process at once and cleanly; the welcome
        // was not read, so it is not marked as read and comes again.
        QVERIFY(launchTolkaro());
        QVERIFY(!welcomeAlert().isNull());
        QCOMPARE(stop(m_tolkaro), 0);
        QCOMPARE(storedValue(QStringLiteral("HasBeenLaunchedBefore")).toBool(), false);
        QVERIFY(!QFile::exists(autostart));

        // The welcome alert comes first, with its exact words; the tray waits for it.
        QVERIFY(launchTolkaro());
        const AtspiElement alert = welcomeAlert();
        QCOMPARE(alert.roleName(), QStringLiteral("alert"));
        QVERIFY(!alert.find(kWelcome, QStringLiteral("label")).isNull());
        QVERIFY(!alert.find(kWelcomeText, QStringLiteral("label")).isNull());
        QVERIFY(!trayIconEmbedded());
        QVERIFY(alert.find(QStringLiteral("OK"), QStringLiteral("push button"))
                    .doAction(QStringLiteral("Press")));
        QTRY_VERIFY_WITH_TIMEOUT(trayIconEmbedded(), kStartTimeout);
        QVERIFY(call<QVariantMap>(QStringLiteral("StatusItemState"))
                    .value(QStringLiteral("hasIcon"))
                    .toBool());
        // The first launch turned start at login on.
        QVERIFY2(QFile::exists(autostart), qPrintable(autostart));

        // SIGTERM ends it cleanly, with both launch keys on disk: the next launch goes straight
        // to the tray.
        QCOMPARE(stop(m_tolkaro), 0);
        QVERIFY(storedValue(QStringLiteral("HasBeenLaunchedBefore")).toBool());
        QVERIFY(storedValue(QStringLiteral("HasBeenLaunchedAtLeastOnce")).toBool());
        QVERIFY(startAndWaitForTray());
        QVERIFY(welcomeAlert(0).isNull());
    }

    void menusHoldTheirItems()
    {
        const QJsonArray menu = menuLayout();
        QCOMPARE(titlesOf(menu),
                 (QStringList{QStringLiteral("My Tolkaro"),
                              kGb + QStringLiteral(" Destination Language"),
                              kGb + QStringLiteral(" Alternative Destination Language"),
                              QStringLiteral("Translation Service"), QStringLiteral("---"),
                              QStringLiteral("Quit Tolkaro")}));
        QCOMPARE(titlesOf(menu[0][QStringLiteral("submenu")].toArray()),
                 (QStringList{QStringLiteral("Check for updates..."),
                              QStringLiteral("Autostart when the desktop starts"),
                              QStringLiteral("Keyboard Preferences...")}));
        // The first launch turned autostart on, and the item reads it.
        QCOMPARE(checkedOf(menu[0]),
                 QStringList{QStringLiteral("Autostart when the desktop starts")});
        const QStringList languages = titlesOf(menu[1][QStringLiteral("submenu")].toArray());
        QCOMPARE(titlesOf(menu[2][QStringLiteral("submenu")].toArray()), languages);
        // The desktop's language is "C", which no entry matches: English.
        QCOMPARE(checkedOf(menu[1]), QStringList{kGb + QStringLiteral(" English")});
        QCOMPARE(checkedOf(menu[2]), QStringList{kGb + QStringLiteral(" English")});
    }

    void popoverNeverTakesTheKeyboardAndAClickElsewhereClosesIt()
    {
        QVERIFY(focusGtkEntry());
        const WindowId active = m_x11.activeWindow();
        QVERIFY(active != 0);
        auto keyboardStaysWithTheTarget = [&] {
            return m_x11.activeWindow() == active && m_gtkEntry.isFocused();
        };

        const QRect entry = m_gtkEntry.screenRect();
        const QPoint point(entry.center().x(), entry.bottom() + 8);
        const QString source = QStringLiteral("The quick brown fox jumps over the lazy dog.");

        QDBusInterface test = testInterface();
        test.call(QStringLiteral("DisplayPopOver"), source, point.x(), point.y());
        QTRY_VERIFY(popoverShown());
        QCOMPARE(popoverText(), source);
        WindowId popover = 0;
        QTRY_VERIFY((popover = popoverWindow()) != 0);
        QCOMPARE(windowInfo(popover).value(QStringLiteral("Override Redirect State")),
                 QStringLiteral("yes"));
        QVERIFY(keyboardStaysWithTheTarget());
        // Nor when it grows for a longer text.
        test.call(QStringLiteral("SetPopOverText"), source.repeated(3), false);
        QTRY_COMPARE(popoverText(), source.repeated(3));
        QVERIFY(keyboardStaysWithTheTarget());

        // A click inside the popover leaves it open, nor does the wheel turned over the target
        // close it: scrolling is not a click.
        QVERIFY(DesktopInput::click(rectOf(popOverState()).topLeft() + QPoint(5, 5)));
        QVERIFY(DesktopInput::moveTo(entry.center()));
        QVERIFY(DesktopInput::xdotool(QStringLiteral("click 5")));
        QTest::qWait(300);
        QVERIFY(popoverShown());

        // A click in the target closes the window; the popover counts as shown until hidden.
        QVERIFY(focusGtkEntry());
        QTRY_VERIFY(!isViewable(popover));
        QVERIFY(popOverState().value(QStringLiteral("shown")).toBool());
        test.call(QStringLiteral("HidePopOver"));
        QVERIFY(!popOverState().value(QStringLiteral("shown")).toBool());
        QVERIFY(keyboardStaysWithTheTarget());
    }

    void secondStartLeavesTheFirstAlone()
    {
        QProcess second;
        QVERIFY(launch(second, QStringLiteral(TOLKARO_BINARY), m_configHome.path()));
        QVERIFY(second.waitForFinished(kStartTimeout));
        QCOMPARE(stop(second), 0);
        QVERIFY(second.readAllStandardOutput().contains("Tolkaro is already running."));

        QCOMPARE(m_tolkaro.state(), QProcess::Running);
        QVERIFY(trayIconEmbedded());
    }

    void languageChosenWithThePointerSurvivesQuitAndRestart()
    {
        QVERIFY(clickMenuItem(
            {kGb + QStringLiteral(" Destination Language"), kDe + QStringLiteral(" German")}));
        QTRY_COMPARE(titlesOf(menuLayout()).value(1),
                     kDe + QStringLiteral(" Destination Language"));
        QVERIFY(clickMenuItem({kGb + QStringLiteral(" Alternative Destination Language"),
                               kJp + QStringLiteral(" Japanese")}));
        QTRY_COMPARE(titlesOf(menuLayout()).value(2),
                     kJp + QStringLiteral(" Alternative Destination Language"));

        // Quit ends the process cleanly, the choice on disk.
        QVERIFY(clickMenuItem({QStringLiteral("Quit Tolkaro")}));
        QVERIFY(m_tolkaro.waitForFinished(kStartTimeout));
        QCOMPARE(stop(m_tolkaro), 0);
        QCOMPARE(storedValue(QStringLiteral("previouslyUsedLanguageCode")).toString(),
                 QStringLiteral("de"));
        QVERIFY(!trayIconEmbedded());

        // German stays; the alternative starts as English again, whatever was chosen.
        QVERIFY(startAndWaitForTray());
        const QJsonArray menu = menuLayout();
        QCOMPARE(titlesOf(menu).value(1), kDe + QStringLiteral(" Destination Language"));
        QCOMPARE(checkedOf(menu[1]), QStringList{kDe + QStringLiteral(" German")});
        QCOMPARE(titlesOf(menu).value(2),
                 kGb + QStringLiteral(" Alternative Destination Language"));
        QCOMPARE(checkedOf(menu[2]), QStringList{kGb + QStringLiteral(" English")});
        QCOMPARE(stop(m_tolkaro), 0);
    }

    void popoverUnderACompositorIsRoundAndShadowed()
    {
        // A compositing manager: the popover then has an alpha channel, its corners show what
        // lies beneath and a shadow darkens the desktop around it.
        QProcess compositor;
        compositor.start(QStringLiteral("xcompmgr"), {QStringLiteral("-n")});
        QVERIFY2(compositor.waitForStarted(5000), "xcompmgr is missing: scripts/install-deps.sh");
        const auto stopCompositor = qScopeGuard([&] {
            compositor.terminate();
            compositor.waitForFinished(5000);
        });
        QTRY_VERIFY(m_x11.selectionOwner("_NET_WM_CM_S0") != 0);
        QVERIFY(startAndWaitForTray());

        // Over a plain part of the desktop, so that whatever differs from it is the popover's.
        const QPoint point(640, 560);
        testInterface().call(QStringLiteral("DisplayPopOver"), QStringLiteral("Composited"),
                             point.x(), point.y());
        WindowId popover = 0;
        QTRY_VERIFY((popover = popoverWindow()) != 0);
        QCOMPARE(windowInfo(popover).value(QStringLiteral("Depth")), QStringLiteral("32"));
        QTest::qWait(300); // the compositor paints on its own schedule
        const QRect body = rectOf(popOverState());
        const QString shot =
            QStringLiteral(TOLKARO_DESKTOP_TEST_OUTPUT_DIR "/tst_trayapplication-composited.png");
        QCOMPARE(QProcess::execute(QStringLiteral("import"),
                                   {QStringLiteral("-window"), QStringLiteral("root"), shot}),
                 0);
        qInfo().noquote() << "composited popover screenshot:" << shot;

        // The rounded corner's outermost pixel lets the desktop through (a little shadowed),
        // the body's middle is the popover's own, and below the body lies a shadow.
        const QImage screen(shot);
        const auto brightness = [&](const QPoint &point) { return qGray(screen.pixel(point)); };
        const int desktop = brightness(QPoint(640, 700));
        const int corner = brightness(body.topLeft());
        const int middle = brightness(QPoint(body.left() + 3, body.center().y()));
        const int below = brightness(QPoint(body.center().x(), body.bottom() + 3));
        QVERIFY2(corner < middle, qPrintable(QStringLiteral("%1 %2").arg(corner).arg(middle)));
        QVERIFY2(qAbs(corner - desktop) < 40,
                 qPrintable(QStringLiteral("%1 %2").arg(corner).arg(desktop)));
        QVERIFY2(below < desktop, qPrintable(QStringLiteral("%1 %2").arg(below).arg(desktop)));
        QCOMPARE(stop(m_tolkaro), 0);
    }

private:
    bool launchTolkaro()
    {
        return launch(m_tolkaro, QStringLiteral(TOLKARO_BINARY), m_configHome.path());
    }
    // Starts tolkaro and waits until its tray icon is embedded in the tray.
    bool startAndWaitForTray()
    {
        return launchTolkaro() &&
               QTest::qWaitFor([&] { return trayIconEmbedded(); }, kStartTimeout);
    }

    bool trayIconEmbedded() const
    {
        // The icon's window sits inside the tray's window tree (XEmbed), not on the root.
        for (WindowId window : windowsOfClass(QStringLiteral("Tolkaro"))) {
            for (WindowId up = parentOf(window); up != 0; up = parentOf(up)) {
                if (m_x11.windowClass(up).toLower() == QLatin1String("trayer"))
                    return isViewable(window);
            }
        }
        return false;
    }

    // The running tolkaro's welcome alert, once it is up; null when it does not come.
    AtspiElement welcomeAlert(int timeoutMs = kStartTimeout) const
    {
        AtspiElement alert;
        (void)QTest::qWaitFor(
            [&] {
                alert = AtspiProbe::window(AtspiProbe::applicationByPid(m_tolkaro.processId()),
                                           QStringLiteral("Tolkaro"));
                return !alert.isNull();
            },
            timeoutMs);
        return alert;
    }

    QVariant storedValue(const QString &key) const
    {
        return QSettings(m_configHome.filePath(QStringLiteral("Tolkaro/Tolkaro.conf")),
                         QSettings::IniFormat)
            .value(key);
    }

    // The popover as X sees it: a viewable window of ours outside the tray.
    WindowId popoverWindow() const
    {
        for (WindowId window : windowsOfClass(QStringLiteral("Tolkaro"))) {
            if (parentOf(window) == 0 && isViewable(window))
                return window;
        }
        return 0;
    }

    // Opens the status menu with a click on the tray icon and clicks the item at the path of
    // titles, pointing at each parent on the way as a hand would.
    bool clickMenuItem(const QStringList &titles)
    {
        const QRect icon = rectOf(call<QVariantMap>(QStringLiteral("StatusItemState")));
        if (icon.isEmpty() || !DesktopInput::click(icon.center()))
            return false;
        QRect item;
        for (int depth = 1; depth <= titles.size(); ++depth) {
            const QStringList path = titles.mid(0, depth);
            const auto itemOnScreen = [&] {
                const QVariantList values =
                    call<QVariantList>(QStringLiteral("MenuItemGeometry"), path);
                if (values.size() == 4)
                    item = QRect(values[0].toInt(), values[1].toInt(), values[2].toInt(),
                                 values[3].toInt());
                return values.size() == 4 && !item.isEmpty();
            };
            if (!QTest::qWaitFor(itemOnScreen, 5000)) {
                qWarning() << "not on screen:" << path;
                return false;
            }
            // Into the item from its left end first, so the pointer never crosses a sibling
            // whose submenu would replace the one wanted.
            if (!DesktopInput::moveTo(QPoint(item.left() + 10, item.center().y())))
                return false;
            QTest::qWait(50);
            if (!DesktopInput::moveTo(item.center()))
                return false;
        }
        QTest::qWait(100);
        return DesktopInput::click(item.center());
    }

    // Clicks the GTK target's entry, so that it is the focused widget of the active window.
    bool focusGtkEntry()
    {
        if (m_gtkEntry.isNull()) {
            m_gtkEntry = AtspiProbe::targetApplication(QStringLiteral("GTK"))
                             .find(QStringLiteral("Target entry"));
        }
        return DesktopInput::click(m_gtkEntry.screenRect().center()) &&
               QTest::qWaitFor([&] { return m_gtkEntry.isFocused(); }, 5000);
    }

    // The active window, classes and selection owners as tolkaro's capture reads them.
    mutable X11WindowQueries m_x11;
    QTemporaryDir m_configHome;
    QProcess m_tolkaro;
    AtspiElement m_gtkEntry;
};

QTEST_GUILESS_MAIN(TestTrayApplication)
#include "tst_trayapplication.moc"
