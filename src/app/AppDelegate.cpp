#include "app/AppDelegate.h"

#include "capture/AccessibilityManager.h"
#include "common/Log.h"
#include "controller/AccessibilityTextSource.h"
#include "gesture/ModifierGestureDetector.h"
#include "platform/atspi/AccessibilityBusWatcher.h"
#include "platform/x11/ModifierKeyMonitor.h"
#include "system/AccessibilityTrust.h"
#include "system/TrustAlerts.h"
#include "system/TrustMonitor.h"
#include "typing/PreferencesWindowController.h"
#include "typing/TypingModeCoordinator.h"
#include "common/NotificationCenter.h"
#include "languages/LanguageTable.h"
#include "system/LaunchAtLoginController.h"
#include "system/MoveToApplications.h"
#include "system/RestartInPlace.h"
#include "system/Updater.h"
#include "system/UsageReporter.h"
#include "translation/GoogleTranslateByURL.h"
#include "ui/AnimatedSetString.h"
#include "ui/PopOverViewController.h"
#include "ui/PopoverTextField.h"
#include "ui/StatusMenu.h"
#include "ui/TranslationPopover.h"

#include <QAction>
#include <QApplication>
#include <QCursor>
#include <QMenu>
#include <QMessageBox>
#include <QTimer>
#include <QWidget>

#include <algorithm>

namespace {

QString welcomeMessage()
{
    return QStringLiteral("Welcome To Tolkaro! \U0001F60B");
}

QString welcomeInformativeText()
{
    return QStringLiteral(
        "To translate some text, point your mouse cursor over a piece of text on your screen, "
        "and quickly do the following: Press Control key \u2192 Release Control key \u2192 "
        "Again press AND HOLD Control key (to read the translation) \u2192 Release Control (to "
        "hide the translation).\n\nIf you've selected a piece of text, you can replace it with "
        "the translation while holding Control by pressing Option \u2325");
}

} // namespace

AppDelegate::AppDelegate(QObject *parent) : QObject(parent) {}

AppDelegate::~AppDelegate()
{
    // The monitor stops before the gesture and controller it feeds go away.
    if (m_keyMonitor)
        m_keyMonitor->remove();
    delete m_popoverWindow;
}

bool AppDelegate::applicationDidFinishLaunching()
{
    // 1. The one translation client, for the gesture and the typing mode alike.
    m_googleTranslator = new GoogleTranslateByURL(m_preferences.translationServiceURL(), this);

    // 2. A self-contained copy started from a download folder offers to move itself.
    if (PFMoveToApplicationsFolderIfNecessary())
        return false;

    // 3. Updates.
    m_sparkleUpdater = new Updater(&m_preferences, nullptr, this);
    m_sparkleUpdater->setSendsSystemProfile(true);
    m_usageReporter = new UsageReporter(&m_preferences, this);

    // 4. The first launch ever: the welcome alert, then start at login.
    if (!m_preferences.hasBeenLaunchedBefore()) {
        showWelcomeAlert();
        if (m_terminated)
            return false;
        m_usageReporter->report(QString::fromLatin1(UsageEvents::kFirstLaunchEver));
        onFirstApplicationLaunchEver();
        m_preferences.setHasBeenLaunchedBefore(true);
    }

    // 5. The very first launch never checks for updates; every later one does, quietly.
    if (m_preferences.hasBeenLaunchedAtLeastOnce())
        m_sparkleUpdater->checkForUpdatesInBackground();
    else
        m_preferences.setHasBeenLaunchedAtLeastOnce(true);

    // 6. The status item, the language table and the menus.
    addStatusBarItem();

    // 7. Accessibility trust; installs the key monitor once trusted.
    createGesturePipeline();
    startRegularlyCheckingIfProcessIsTrusted();

    // 8. The popover's content exists before the first gesture.
    m_popOverViewController = new PopOverViewController(this);
    m_popOverViewController->loadView();
    // Its window is made once the tray icon is up, out of the start-up's way.
    QTimer::singleShot(0, this, [this] {
        if (TranslationPopover *window = popoverWindow())
            window->prepare();
    });

    // 9. A single Control press right after launch completes a double press.
    m_lastControlKeyPressedTime = std::chrono::system_clock::now();
    m_gesture->setLastControlKeyPressedTime(m_lastControlKeyPressedTime);

    // 10, 11.
    addNotificationObservers();

    // 12. Loading the keyboard preferences window (not shown) binds the typing-mode shortcut.
    m_preferencesWindowController = new PreferencesWindowController(m_preferences, this);
    m_preferencesWindowController->window();
    m_typingMode->setShortcutSource(
        [this] { return m_preferencesWindowController->activeShortcut(); });
    return true;
}

void AppDelegate::applicationWillTerminate()
{
    m_terminated = true;
    m_preferences.synchronize();
}

void AppDelegate::showWelcomeAlert()
{
    QMessageBox alert;
    alert.setObjectName(QStringLiteral("WelcomeAlert"));
    alert.setWindowTitle(QStringLiteral("Tolkaro"));
    alert.setIconPixmap(QApplication::windowIcon().pixmap(64, 64));
    alert.setText(welcomeMessage());
    alert.setInformativeText(welcomeInformativeText());
    alert.setStandardButtons(QMessageBox::Ok);
    alert.setDefaultButton(QMessageBox::Ok);
    QMetaObject::invokeMethod(this, &AppDelegate::welcomeAlertShown, Qt::QueuedConnection);
    alert.exec();
}

LaunchAtLoginController *AppDelegate::launchAtLoginController()
{
    if (!m_launchAtLogin)
        m_launchAtLogin = new LaunchAtLoginController(this);
    return m_launchAtLogin;
}

void AppDelegate::onFirstApplicationLaunchEver()
{
    launchAtLoginController()->setLaunchAtLogin(true);
}

void AppDelegate::addNotificationObservers()
{
    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.addObserver(QString::fromLatin1(NotificationNames::kOpenTypingModeNotification), this,
                       [this](const QVariantMap &) { showSpotlightTranslationPopup(); });
    center.addObserver(
        QString::fromLatin1(NotificationNames::kSpotlightTranslationPerformedSuccessfully), this,
        [this](const QVariantMap &userInfo) {
            const QString result =
                userInfo.value(QString::fromLatin1(NotificationUserInfoKeys::kTranslationResult))
                    .toString();
            if (result.isEmpty() || !m_translationController)
                return;
            // Into the application of the last capture, as the gesture's paste.
            AccessibilityManager::clickPasteMenuCommandForApplicationThatContainsAXElement(
                m_translationController->currentlyProcessedElement(), result);
        });
}

// ---- Status item and languages ----

void AppDelegate::addStatusBarItem()
{
    m_statusMenu = new StatusMenu(this);
    LaunchAtLoginController *launchAtLogin = launchAtLoginController();
    m_statusMenu->addStatusBarItem(launchAtLogin->launchAtLogin());
    connect(launchAtLogin, &LaunchAtLoginController::launchAtLoginChanged, this,
            [this, launchAtLogin] {
                if (QAction *item = m_statusMenu->autostartMenuItem())
                    item->setChecked(launchAtLogin->launchAtLogin());
            });

    connect(m_statusMenu, &StatusMenu::checkForUpdatesTriggered, this,
            &AppDelegate::checkForUpdates);
    connect(m_statusMenu, &StatusMenu::autostartTriggered, this, &AppDelegate::setAutostartWithOSX);
    connect(m_statusMenu, &StatusMenu::keyboardPreferencesTriggered, this,
            &AppDelegate::showPreferencesWindow);
    connect(m_statusMenu, &StatusMenu::makeTrustedTriggered, this,
            &AppDelegate::makeTrustedMenuItem);
    connect(m_statusMenu, &StatusMenu::quitTriggered, this, &AppDelegate::terminate);
    connect(m_statusMenu, &StatusMenu::languageItemTriggered, this, &AppDelegate::selectedLanguage);
    connect(m_statusMenu, &StatusMenu::language2ItemTriggered, this,
            &AppDelegate::selectedLanguage2);

    m_languages = new LanguageSelection(m_preferences, this);
    connect(m_languages, &LanguageSelection::languageChanged, m_statusMenu,
            &StatusMenu::showDestinationLanguage);
    connect(m_languages, &LanguageSelection::language2Changed, m_statusMenu,
            &StatusMenu::showAlternativeDestinationLanguage);

    setLanguage(getPreviouslyUsedLanguage());
    setLanguage2(getPreviouslyUsedLanguage2());
}

LanguageEntry AppDelegate::getPreviouslyUsedLanguage() const
{
    return m_languages->getPreviouslyUsedLanguage(LanguageSelection::systemPreferredLanguages());
}

LanguageEntry AppDelegate::getPreviouslyUsedLanguage2() const
{
    return m_languages->getPreviouslyUsedLanguage2();
}

void AppDelegate::setLanguage(const LanguageEntry &entry)
{
    m_languages->setLanguage(entry);
}

void AppDelegate::setLanguage2(const LanguageEntry &entry)
{
    m_languages->setLanguage2(entry);
}

void AppDelegate::selectedLanguage(QAction *sender)
{
    const int position = StatusMenu::positionInMenu(sender);
    if (position < 0 || position >= LanguageTable::entries().size())
        return;
    setLanguage(LanguageTable::entries().at(position));
}

void AppDelegate::selectedLanguage2(QAction *sender)
{
    const int position = StatusMenu::positionInMenu(sender);
    if (position < 0 || position >= LanguageTable::entries().size())
        return;
    setLanguage2(LanguageTable::entries().at(position));
}

void AppDelegate::checkForUpdates(QAction *)
{
    if (m_sparkleUpdater)
        m_sparkleUpdater->checkForUpdates();
}

void AppDelegate::setAutostartWithOSX(QAction *sender)
{
    if (!sender)
        return;
    // A checkable item has already flipped its mark when this runs: the new mark is the
    // wish. It is not read back from the autostart entries.
    launchAtLoginController()->setLaunchAtLogin(sender->isChecked());
}

void AppDelegate::showPreferencesWindow(QAction *)
{
    if (m_preferencesWindowController)
        m_preferencesWindowController->showWindow();
}

void AppDelegate::makeTrustedMenuItem(QAction *)
{
    if (m_trustMonitor)
        m_trustMonitor->makeTrustedMenuItem();
}

void AppDelegate::openPreferences(QAction *) {}

void AppDelegate::terminate(QAction *)
{
    // Also reached from SIGTERM and SIGINT; a start-up still inside its modal alert sees
    // the flag and stops there.
    m_terminated = true;
    QCoreApplication::quit();
}

void AppDelegate::createGesturePipeline()
{
    m_textSource = std::make_unique<AccessibilityTextSource>(m_preferences);
    m_translationController = new TranslationController(*m_googleTranslator, *m_languages,
                                                         m_preferences, *this, *m_textSource, this);
    m_translationController->setUsageReport(
        [this](const QString &event, const QVariantMap &fields) {
            m_usageReporter->report(event, fields);
        });

    m_typingMode = new TypingModeCoordinator(
        m_googleTranslator, [this] { return m_languages->currentDstLanguageCode(); },
        &AccessibilityTextSource::pasteIntoActiveApplication, this);
    connect(m_typingMode, &TypingModeCoordinator::usageEvent, this,
            [this](const QString &event) { m_usageReporter->report(event); });
    m_translationController->setFnHooks([this] { m_typingMode->fnKeyPressed(); },
                                        [this] { m_typingMode->fnKeyReleased(); });

    m_gesture = std::make_unique<ModifierGestureDetector>(*m_translationController);
    m_translationController->setFnStateSource([this] { return m_gesture->fnIsPressed(); });

    m_keyMonitor = ModifierKeyMonitor::create(m_preferences.fnStandInKey());
    connect(m_keyMonitor.get(), &ModifierKeyMonitor::modifierEvent, this,
            [this](const ModifierEvent &event) { m_gesture->keyboardTapEvent(event); });
}

void AppDelegate::startRegularlyCheckingIfProcessIsTrusted()
{
    ModifierKeyMonitor *keyMonitor = m_keyMonitor.get();
    m_trust = std::make_unique<AccessibilityTrust>(
        [keyMonitor] { return keyMonitor->canInstall(); });
    m_trustAlerts = std::make_unique<MessageBoxTrustAlerts>();
    TrustMonitor::Hooks hooks;
    hooks.showStatusMenu = [this](bool trusted) {
        if (m_statusMenu)
            m_statusMenu->showMenuForTrust(trusted);
    };
    hooks.reportUsageEvent = [this](const QString &event) { m_usageReporter->report(event); };
    hooks.terminate = [this] { terminate(nullptr); };
    m_trustMonitor = new TrustMonitor(*m_trust, *m_keyMonitor, *m_trustAlerts, std::move(hooks),
                                      TrustMonitor::kCheckPeriod, this);
    m_trustMonitor->startRegularlyCheckingIfProcessIsTrusted();

    m_accessibilityBusWatcher = new AccessibilityBusWatcher(QDBusConnection::sessionBus(), this);
    connect(m_accessibilityBusWatcher, &AccessibilityBusWatcher::replaced, this,
            &AppDelegate::restartToFollowAccessibilityBus);
}

void AppDelegate::restartToFollowAccessibilityBus()
{
    if (m_terminated)
        return;
    // Never under the user's hands: a popover, the typing panel, a menu or an alert on
    // screen waits for the user to finish.
    const QWidgetList windows = QApplication::topLevelWidgets();
    const bool busy = isPopoverShown() ||
                      std::any_of(windows.cbegin(), windows.cend(), [](const QWidget *window) {
                          // The tray icon's own window (on XEmbed trays) is always there.
                          return window->isVisible() && !window->inherits("QSystemTrayIconSys");
                      });
    if (busy) {
        if (!m_restartPending)
            QTimer::singleShot(kRestartRetryPeriod, this, [this] {
                m_restartPending = false;
                restartToFollowAccessibilityBus();
            });
        m_restartPending = true;
        return;
    }
    tolkaro::logLine(QStringLiteral("Starting again to read applications on the new accessibility bus"));
    m_preferences.synchronize();
    emit aboutToRestart();
    const QString failure = restartInPlace();
    // Still here: this process goes on as it was, only without reading other applications.
    tolkaro::logLine(QStringLiteral("Could not start again: %1").arg(failure));
    emit restartFailed();
}

void AppDelegate::showSpotlightTranslationPopup()
{
    if (m_typingMode)
        m_typingMode->showSpotlightTranslationPopup();
}

// ---- Popover ----

TranslationPopover *AppDelegate::popoverWindow()
{
    if (!m_popoverWindow && m_popOverViewController) {
        m_popOverViewController->loadView();
        m_popoverWindow = new TranslationPopover(m_popOverViewController->view());
    }
    return m_popoverWindow;
}

void AppDelegate::displayPopOverWithText(const QString &text, const QPoint &position)
{
    TranslationPopover *window = popoverWindow();
    if (!window)
        return;
    AnimatedSetString::setStringValue(m_popOverViewController->textField(), text);
    window->showAtPoint(position);
    m_popover = window;
}

void AppDelegate::hidePopOver()
{
    if (m_popover)
        m_popover->closePopover();
    m_popover = nullptr;
}

void AppDelegate::setAnimatedStringValue(const QString &text)
{
    if (m_popOverViewController)
        AnimatedSetString::setAnimatedStringValue(m_popOverViewController->textField(), text);
}

void AppDelegate::setAnimatedGrayStringValue(const QString &text)
{
    if (m_popOverViewController)
        AnimatedSetString::setAnimatedAttributedStringValue(m_popOverViewController->textField(),
                                                            {text, grayTextColor()});
}

QPoint AppDelegate::pointerPosition() const
{
    return QCursor::pos();
}
