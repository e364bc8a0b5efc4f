#pragma once

#include "controller/TranslationController.h"
#include "settings/Preferences.h"

#include <QObject>
#include <QPoint>
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
class PreferencesWindowController;
class TrustMonitor;
class TypingModeCoordinator;
class PopOverViewController;
class QAction;
class StatusMenu;
class TranslationPopover;
class Updater;
class UsageReporter;
struct LanguageEntry;

// The application's one controller: starts everything in order, owns every long-lived
// object (preferences, translation client, languages, status item and menus, popover,
// updater) for the life of the process, answers the status menu's actions and flushes
// the preferences when the process ends. Main thread only.
//
// The gesture flows one way: key monitor -> gesture detector -> translation controller ->
// capture -> translation client -> popover (this object presents it).
class AppDelegate : public QObject, public TranslationPresenter
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

    // Status menu actions (sender: the menu item).
    void checkForUpdates(QAction *sender);
    void setAutostartWithOSX(QAction *sender);
    void selectedLanguage(QAction *sender);
    void selectedLanguage2(QAction *sender);
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

    // TranslationPresenter: the popover at the pointer.
    bool isPopoverShown() const override { return m_popover != nullptr; }
    void displayPopOverWithText(const QString &text, const QPoint &position) override;
    void hidePopOver() override;
    void setAnimatedStringValue(const QString &text) override;
    void setAnimatedGrayStringValue(const QString &text) override;
    QPoint pointerPosition() const override;

    Preferences &preferences() { return m_preferences; }
    LanguageSelection *languages() const { return m_languages; }
    StatusMenu *statusMenu() const { return m_statusMenu; }
    PopOverViewController *popOverViewController() const { return m_popOverViewController; }
    // The popover window while it is displayed, else null. A click elsewhere hides the
    // window but leaves this set until hidePopOver().
    TranslationPopover *popover() const { return m_popover; }
    Translator *googleTranslator() const { return m_googleTranslator; }
    TranslationController *translationController() const { return m_translationController; }
    std::chrono::system_clock::time_point lastControlKeyPressedTime() const
    {
        return m_lastControlKeyPressedTime;
    }

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
    TranslationPopover *popoverWindow();

    Preferences m_preferences;
    Translator *m_googleTranslator = nullptr;
    Updater *m_sparkleUpdater = nullptr;
    UsageReporter *m_usageReporter = nullptr;
    LanguageSelection *m_languages = nullptr;
    StatusMenu *m_statusMenu = nullptr;
    PopOverViewController *m_popOverViewController = nullptr;
    // The popover's window is made on first use and then kept: showing it must be instant.
    TranslationPopover *m_popoverWindow = nullptr;
    TranslationPopover *m_popover = nullptr;
    std::chrono::system_clock::time_point m_lastControlKeyPressedTime;
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
