#pragma once

#include "controller/TranslationController.h"
#include "settings/Preferences.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <memory>

class AccessibilityBusWatcher;
class AccessibilityTextSource;
class AccessibilityTrust;
class Translator;
class LaunchAtLoginController;
class LanguageSelection;
class MessageBoxTrustAlerts;
class ModifierGestureDetector;
class ModifierKeyMonitor;
class Platform;
class PopoverPresenter;
class PreferencesWindowController;
class TrustMonitor;
class TypingModeCoordinator;
class QAction;
class StatusMenu;
class Updater;
class UsageReporter;
struct LanguageEntry;

// The application's composition root: starts everything in order, owns every long-lived
// object (preferences, platform seams, translation client, languages, status item and
// menus, popover presenter, updater, typing mode) for the life of the process, wires them
// together, answers the status menu's actions and flushes the preferences when the process
// ends. Main thread only.
//
// The gesture flows one way: key source -> gesture detector -> translation controller ->
// capture -> translation client -> popover presenter.
class AppDelegate : public QObject
{
    Q_OBJECT
public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    // The start-up sequence, in its fixed order. Answers false when the process should
    // end at once (a moved copy was started instead).
    bool applicationDidFinishLaunching();
    // Flushes the preferences; the application calls it on its way out, however it ends.
    void applicationWillTerminate();

    void onFirstApplicationLaunchEver();

    // Status item and menus; the language table's choices shown in them.
    void addStatusBarItem();
    LanguageEntry getPreviouslyUsedLanguage() const;
    LanguageEntry getPreviouslyUsedLanguage2() const;
    void setLanguage(const LanguageEntry &entry);
    void setLanguage2(const LanguageEntry &entry);

    // Status menu actions (sender: the menu item; a language by its code).
    void checkForUpdates(QAction *sender);
    void setAutostartAtLogin(QAction *sender);
    void selectedLanguage(const QString &code);
    void selectedLanguage2(const QString &code);
    void showPreferencesWindow(QAction *sender);
    void makeTrustedMenuItem(QAction *sender);
    void openPreferences(QAction *sender);
    void terminate(QAction *sender);
    // A service chosen in the status menu: it is asked first from now on.
    void selectedTranslationService(const QString &name);
    // The services made again from the settings (after a choice or a changed key).
    void applyTranslationServices();

    // Accessibility trust: which menu is shown, whether the key monitor runs.
    void startRegularlyCheckingIfProcessIsTrusted();

    // The accessibility bus was replaced: Tolkaro starts itself again, once nothing of it
    // is on screen, since only a new process can read applications on the new bus.
    void restartToFollowAccessibilityBus();
    static constexpr std::chrono::milliseconds kRestartRetryPeriod{1000};

    // The typing mode opens or closes (its shortcut, or asked over D-Bus).
    void showSpotlightTranslationPopup();

    Preferences &preferences() { return m_preferences; }
    LanguageSelection *languages() const { return m_languages; }
    StatusMenu *statusMenu() const { return m_statusMenu; }
    PopoverPresenter *popoverPresenter() const { return m_popoverPresenter; }
    TranslationController *translationController() const { return m_translationController; }
    TypingModeCoordinator *typingMode() const { return m_typingMode; }

signals:
    // The welcome alert is on screen (tests dismiss it).
    void welcomeAlertShown();
    // Just before this process is replaced by a new start of Tolkaro (the application gives
    // up its one-instance name here).
    void aboutToRestart();
    void restartFailed();

private:
    // The key monitor, the gesture detector, the translation controller and the typing mode
    // behind them, ready before the trust monitor first installs the key monitor.
    void createGesturePipeline();
    LaunchAtLoginController *launchAtLoginController();
    void showWelcomeAlert();
    void addNotificationObservers();
    // Greys out in the status menu what this session cannot do, saying why.
    void showSessionLimits();
    void offerSessionFix();

    Preferences m_preferences;
    Platform &m_platform;
    Translator *m_translator = nullptr;
    Updater *m_updater = nullptr;
    UsageReporter *m_usageReporter = nullptr;
    LanguageSelection *m_languages = nullptr;
    StatusMenu *m_statusMenu = nullptr;
    PopoverPresenter *m_popoverPresenter = nullptr;
    bool m_terminated = false;

    std::unique_ptr<AccessibilityTextSource> m_textSource;
    TranslationController *m_translationController = nullptr;
    std::unique_ptr<ModifierGestureDetector> m_gesture;
    std::unique_ptr<ModifierKeyMonitor> m_keyMonitor;
    std::unique_ptr<AccessibilityTrust> m_trust;
    std::unique_ptr<MessageBoxTrustAlerts> m_trustAlerts;
    TrustMonitor *m_trustMonitor = nullptr;
    AccessibilityBusWatcher *m_accessibilityBusWatcher = nullptr;
    bool m_restartPending = false;
    TypingModeCoordinator *m_typingMode = nullptr;
    PreferencesWindowController *m_preferencesWindowController = nullptr;
    // One controller for the life of the process: its watcher keeps the autostart item's
    // mark in step with the autostart entry, however that changes.
    LaunchAtLoginController *m_launchAtLogin = nullptr;
};
