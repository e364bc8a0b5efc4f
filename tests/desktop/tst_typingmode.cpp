// The typing mode on a real desktop: the system-wide shortcut opens the panel while the GTK
// target stays the active window, typed text is translated once by the loopback server,
// Return pastes the translation into the GTK entry with the clipboard left as it was, and
// the shortcut can be re-recorded or found taken.

#include "AtspiProbe.h"
#include "DesktopClipboard.h"
#include "DesktopInput.h"
#include "LoopbackTranslationServer.h"
#include "capture/AccessibilityManager.h"
#include "common/Log.h"
#include "common/NotificationCenter.h"
#include "platform/Platform.h"
#include "platform/x11/X11Input.h"
#include "platform/x11/X11WindowQueries.h"
#include "platform/x11/XTestKeySender.h"
#include "translation/GoogleTranslateByURL.h"
#include "typing/PreferencesWindowController.h"
#include "typing/ShortcutRecorder.h"
#include "typing/SpotlightWindow.h"
#include "typing/SpotlightWindowController.h"
#include "typing/TSTTextGrowth.h"
#include "typing/TypingModeCoordinator.h"
#include "typing/TypingShortcut.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>

#include <X11/keysym.h>
#include <xcb/xcb.h>

#include <memory>

namespace {

xcb_connection_t *qtConnection()
{
    return qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
}

} // namespace

class TestTypingMode : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(AtspiProbe::init(),
                 "no accessibility bus: run this under scripts/test-desktop.sh");
        QVERIFY(m_windows.isValid() && m_keys.isValid() && m_server.isListening());
        AtspiElement entry;
        QVERIFY(QTest::qWaitFor([&] { return !(entry = gtkEntry()).isNull(); }, 10000));
        const std::optional<X11WindowQueries::Window> window = m_windows.topLevelWindowAt(
            entry.screenRect().center(), QCoreApplication::applicationPid());
        QVERIFY(window && window->pid == entry.processId());
        m_gtkWindow = xcb_window_t(window->id);

        m_coordinator = std::make_unique<TypingModeCoordinator>(
            &m_client, [] { return QStringLiteral("de"); },
            [](const QString &text) {
                AccessibilityManager::clickPasteMenuCommandForApplicationAXElement(
                    AccessibilityManager::getActiveApplicationElement(), text);
            },
            Platform::instance());
        // As the application does: the shortcut's notification toggles the panel.
        NotificationCenter::defaultCenter().addObserver(
            QLatin1String(NotificationNames::kOpenTypingModeNotification), m_coordinator.get(),
            [this](const QVariantMap &) { m_coordinator->showSpotlightTranslationPopup(); });
        tolkaro::setLogSink([this](const QString &line) {
            QMutexLocker locker(&m_logMutex);
            m_log.append(line);
        });
    }

    void init()
    {
        {
            QMutexLocker locker(&m_logMutex);
            m_log.clear();
        }
        m_preferences = std::make_unique<Preferences>(m_configDir.filePath(
            QStringLiteral("%1.ini").arg(QString::fromLatin1(QTest::currentTestFunction()))));
        m_preferencesWindow = std::make_unique<PreferencesWindowController>(*m_preferences);
        // Loading the window binds the shortcut, as start-up does.
        m_preferencesWindow->window();
        m_coordinator->setShortcutSource([this] { return m_preferencesWindow->activeShortcut(); });
        m_server.clearRequests();
        QVERIFY(activateGtkTarget());
        QVERIFY(QTest::qWaitFor([&] { return gtkEntry().setText(QString()); }, 5000));
        QVERIFY(QTest::qWaitFor([&] { return gtkEntry().grabFocus(); }, 5000));
    }

    void cleanup()
    {
        if (SpotlightWindowController *spotlight = m_coordinator->spotlight())
            spotlight->close();
        m_preferencesWindow.reset();
        m_preferences.reset();
        QTRY_VERIFY(m_keys.pressedKeyCodes().isEmpty());
    }

    void typingTranslatesOnceAndReturnPastes()
    {
        const QByteArray clipboardBefore = "what the user had copied";
        QVERIFY(DesktopClipboard::setText(clipboardBefore));

        QVERIFY(openPanel());
        SpotlightWindowController *spotlight = m_coordinator->spotlight();
        const QRect collapsed = spotlight->window()->geometry();

        QVERIFY(typeText(QStringLiteral("abc"), 30));
        QTRY_COMPARE(m_server.requestCount(), 1);
        QCOMPARE(m_server.requests().constFirst().queryText(), QStringLiteral("abc"));
        const QString translation =
            LoopbackTranslationServer::echoTranslation(QStringLiteral("abc"));
        QTRY_COMPARE(spotlight->detailsTextField()->text(), translation);
        // It grows downwards from where it stood, asked once, the target still active.
        QTRY_VERIFY(spotlight->window()->height() > collapsed.height());
        QCOMPARE(spotlight->window()->geometry().topLeft(), collapsed.topLeft());
        QCOMPARE(m_server.requestCount(), 1);
        QCOMPARE(m_windows.activeWindow(), m_gtkWindow);

        QVERIFY(tap(XK_Return));
        QTRY_VERIFY(!panelShown());
        QCOMPARE(entryTextOnceItIs(translation), translation);
        QCOMPARE(DesktopClipboard::bytes(), std::optional<QByteArray>(clipboardBefore));
        QVERIFY(log().contains(QStringLiteral("Pasted ") + tolkaro::privateText(translation)));
    }

    void recordedShortcutTakesOverAtOnce()
    {
        m_preferencesWindow->showWindow();
        QWidget *window = m_preferencesWindow->window();
        QTRY_VERIFY(window->isActiveWindow());
        ShortcutRecorder *recorder = m_preferencesWindow->typingModeShortcutView();
        auto *button = recorder->findChild<QPushButton *>(QStringLiteral("recordButton"));
        QVERIFY(button);
        const QPoint center = button->mapToGlobal(button->rect().center());
        auto record = [&](quint32 keySym, const QList<quint32> &modifiers) {
            return DesktopInput::click(center) &&
                   QTest::qWaitFor([&] { return recorder->isRecording(); }) &&
                   tap(keySym, modifiers) &&
                   QTest::qWaitFor([&] { return !recorder->isRecording(); });
        };

        // While recording, the recorder holds the keyboard and the binding is paused: the
        // current shortcut is recorded rather than opening the panel.
        QVERIFY(record(XK_space, {XK_Alt_L}));
        QTest::qWait(300);
        QVERIFY(!panelShown());
        QCOMPARE(m_preferences->typingModeKeyboardShortcut(),
                 std::optional(TypingShortcut::defaultShortcut()));

        QVERIFY(record(XK_t, {XK_Control_L, XK_Shift_L}));
        const StoredShortcut recorded{XK_t, quint32(Qt::ControlModifier | Qt::ShiftModifier)};
        QCOMPARE(m_preferencesWindow->activeShortcut(), recorded);
        QCOMPARE(m_preferences->typingModeKeyboardShortcut(), std::optional(recorded));
        window->hide();
        QVERIFY(activateGtkTarget());

        // The old shortcut does nothing now; the new one opens the panel and closes it again.
        QVERIFY(tap(XK_space, {XK_Alt_L}));
        QTest::qWait(500);
        QVERIFY(!panelShown());
        QVERIFY(openPanel(XK_t, {XK_Control_L, XK_Shift_L}));
        QVERIFY(tap(XK_t, {XK_Control_L, XK_Shift_L}));
        QTRY_VERIFY(!panelShown());

        // Clearing removes the user's own shortcut: the default is back, and is not written.
        auto *clear = recorder->findChild<QToolButton *>(QStringLiteral("clearButton"));
        QVERIFY(clear && clear->isEnabled());
        clear->click();
        QVERIFY(!m_preferences->settings().contains(
            QLatin1String(PreferenceKeys::kTypingModeKeyboardShortcut)));
        QVERIFY(openPanel());
        QVERIFY(tap(XK_Escape));
        QTRY_VERIFY(!panelShown());
    }

    void shortcutOwnedByAnotherProgramFallsBack()
    {
        // The controller of init() holds Alt+Space; start over with a desktop owning it, as one
        // that binds the key does: a passive grab of its own client.
        m_preferencesWindow.reset();
        xcb_connection_t *desktop = xcb_connect(nullptr, nullptr);
        const auto disconnect = qScopeGuard([&] { xcb_disconnect(desktop); });
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(desktop)).data->root;
        const quint16 numLock = X11Input::numLockMask(desktop);
        const QList<xcb_keycode_t> keyCodes = X11Input::keyCodesForKeySym(desktop, XK_space);
        QVERIFY(!keyCodes.isEmpty());
        for (xcb_keycode_t keyCode : keyCodes) {
            for (quint16 variant :
                 TypingShortcut::grabModifierVariants(TypingShortcut::X11Mask::kMod1, numLock))
                xcb_grab_key(desktop, 1, root, variant, keyCode, XCB_GRAB_MODE_ASYNC,
                             XCB_GRAB_MODE_ASYNC);
        }
        std::free(xcb_get_input_focus_reply(desktop, xcb_get_input_focus(desktop), nullptr));
        m_preferencesWindow = std::make_unique<PreferencesWindowController>(*m_preferences);
        m_preferencesWindow->window();

        QCOMPARE(m_preferencesWindow->activeShortcut(), TypingShortcut::fallbackShortcut());
        QCOMPARE(log().filter(QStringLiteral("used by another program")).size(), 1);
        m_preferences->synchronize();
        QVERIFY(!m_preferences->settings().contains(
            QLatin1String(PreferenceKeys::kTypingModeKeyboardShortcut)));
        auto *note = m_preferencesWindow->typingModeShortcutView()->findChild<QLabel *>(
            QStringLiteral("note"));
        QVERIFY(note && note->text().contains(QStringLiteral("Ctrl+Alt+Space")));

        QVERIFY(openPanel(XK_space, {XK_Control_L, XK_Alt_L}));
        QVERIFY(tap(XK_Escape));
        QTRY_VERIFY(!panelShown());
    }

    void refusedGrabTakesTheFocusAndGivesItBack()
    {
        // Another client holds the whole keyboard while the panel opens (as a desktop does
        // while running the command bound to a key).
        xcb_connection_t *other = xcb_connect(nullptr, nullptr);
        const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
        std::free(
            xcb_grab_keyboard_reply(other,
                                    xcb_grab_keyboard(other, 1, root, XCB_CURRENT_TIME,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                    nullptr));

        m_coordinator->showSpotlightTranslationPopup();
        SpotlightWindowController *spotlight = m_coordinator->spotlight();
        QVERIFY(panelShown());
        QTRY_VERIFY(spotlight->window()->tookFocus());
        QVERIFY(!spotlight->window()->holdsKeyboardGrab());
        xcb_ungrab_keyboard(other, XCB_CURRENT_TIME);
        xcb_disconnect(other);
        QTRY_VERIFY(spotlight->window()->isActiveWindow());

        QVERIFY(typeText(QStringLiteral("hi")));
        const QString translation =
            LoopbackTranslationServer::echoTranslation(QStringLiteral("hi"));
        QTRY_COMPARE(spotlight->detailsTextField()->text(), translation);
        QVERIFY(tap(XK_Return));
        QTRY_VERIFY(!panelShown());
        // The target is active and has the keyboard again when the paste is asked for.
        QCOMPARE(m_windows.activeWindow(), m_gtkWindow);
        QVERIFY(X11Input::inputFocusIsWithin(qtConnection(), m_gtkWindow));
        QCOMPARE(entryTextOnceItIs(translation), translation);
    }

    // No pointer grab: a click on another application closes the panel and still lands there
    // (here it moves the focus from the entry to the text view under the pointer, so what is
    // typed next goes into the text view). The view is looked up once: a search of the
    // desktop's applications costs more than the wait allows.
    void clickOutsideClosesAndReachesTheApplication()
    {
        AtspiElement textView;
        QVERIFY(QTest::qWaitFor(
            [&] {
                textView = AtspiProbe::targetApplication(QStringLiteral("GTK"))
                               .find(QStringLiteral("Target text view"));
                return !textView.isNull();
            },
            5000));
        QVERIFY(textView.setText(QString()));
        QVERIFY(openPanel());

        QVERIFY(DesktopInput::click(textView.screenRect().center()));
        QTRY_VERIFY(!panelShown());
        QVERIFY(DesktopInput::xdotool(QStringLiteral("type xyz")));
        // Read from the target's own log: its accessibility answers lag while the machine is busy.
        const auto viewLogged = [] {
            QFile log(qEnvironmentVariable("TOLKARO_GTK_TARGET_LOG"));
            return log.open(QIODevice::ReadOnly) && log.readAll().contains("\nVIEW xyz\n");
        };
        QTRY_VERIFY(viewLogged());
    }

private:
    AtspiElement gtkEntry() const
    {
        return AtspiProbe::targetApplication(QStringLiteral("GTK"))
            .find(QStringLiteral("Target entry"), QStringLiteral("text"));
    }
    bool activateGtkTarget()
    {
        X11Input::requestActivation(qtConnection(), m_gtkWindow);
        return QTest::qWaitFor([&] { return m_windows.activeWindow() == m_gtkWindow; }, 5000);
    }

    bool tap(quint32 keySym, const QList<quint32> &modifiers = {})
    {
        const bool sent = m_keys.tapKeysym(keySym, modifiers);
        m_keys.sync();
        return sent;
    }

    bool typeText(const QString &text, int gapMs = 0)
    {
        for (qsizetype index = 0; index < text.size(); ++index) {
            if (index > 0)
                QTest::qWait(gapMs);
            if (!tap(text[index].unicode()))
                return false;
        }
        return true;
    }

    bool panelShown() const
    {
        return m_coordinator->spotlight() && m_coordinator->spotlight()->isVisible();
    }
    // The shortcut opens the panel, which takes the keyboard.
    bool openPanel(quint32 keySym = XK_space, const QList<quint32> &modifiers = {XK_Alt_L})
    {
        return tap(keySym, modifiers) && QTest::qWaitFor([&] {
                   return panelShown() && m_coordinator->spotlight()->window()->holdsKeyboardGrab();
               });
    }

    // The GTK entry's text as soon as it equals `expected`, else the last text read. One
    // read per answer: right after a paste a second lookup can meet a stale accessible.
    QString entryTextOnceItIs(const QString &expected) const
    {
        QString text;
        (void)QTest::qWaitFor(
            [&] {
                text = gtkEntry().text();
                return text == expected;
            },
            5000);
        return text;
    }

    QStringList log()
    {
        QMutexLocker locker(&m_logMutex);
        return m_log;
    }

    xcb_window_t m_gtkWindow = 0;
    X11WindowQueries m_windows;
    XTestKeySender m_keys;
    LoopbackTranslationServer m_server;
    GoogleTranslateByURL m_client{m_server.baseUrl()};
    std::unique_ptr<TypingModeCoordinator> m_coordinator;
    QTemporaryDir m_configDir;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<PreferencesWindowController> m_preferencesWindow;
    QStringList m_log;
    QMutex m_logMutex;
};

QTEST_MAIN(TestTypingMode)
#include "tst_typingmode.moc"
