#include "app/AppDelegate.h"

#include "capture/AccessibilityManager.h"
#include "common/Log.h"
#include "controller/AccessibilityTextSource.h"
#include "gesture/ModifierGestureDetector.h"
#include "platform/atspi/AccessibilityBusWatcher.h"
#include "platform/ModifierKeyMonitor.h"
#include "platform/Platform.h"
#include "platform/TextCaptureBackend.h"
#include "system/AccessibilityTrust.h"
#include "system/TrustAlerts.h"
#include "system/TrustMonitor.h"
#include "typing/PreferencesWindowController.h"
#include "typing/SpotlightWindowController.h"
#include "typing/TypingModeCoordinator.h"
#include "common/NotificationCenter.h"
#include "languages/LanguageTable.h"
#include "system/LaunchAtLoginController.h"
#include "system/MoveToApplications.h"
#include "system/RestartInPlace.h"
#include "system/DesktopNotifier.h"
#include "system/SecretServiceStore.h"
#include "system/ShortcutFallbackNotice.h"
#include "system/Updater.h"
#include "system/UsageReporter.h"
#include "translation/TranslationChain.h"
#include "translation/TranslationServices.h"
#include "ui/PopoverPresenter.h"
#include "ui/StatusMenu.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QTimer>
#include <QWidget>

#include <algorithm>
#include <chrono>

namespace {

constexpr auto kPrimaryWatchDelay = std::chrono::seconds(2);

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

AppDelegate::AppDelegate(QObject *parent) : QObject(parent), m_platform(Platform::instance()) {}

AppDelegate::~AppDelegate()
{
    // The monitor stops before the gesture and controller it feeds go away.
    if (m_keyMonitor)
        m_keyMonitor->remove();
}

bool AppDelegate::applicationDidFinishLaunching()
{
    // 1. The one translation client, for the gesture and the typing mode alike.
    m_preferences.setSecretStore(std::make_shared<SecretServiceStore>());
    TranslationChain *chain =
        TranslationServices::createChain(TranslationServices::readSettings(m_preferences), this);
    m_translator = chain;
    // An answer from a service other than the one chosen is named under the translation.
    connect(chain, &TranslationChain::answered, this,
            [this](const QString &serviceName, bool byFirstService) {
                const QString note = byFirstService ? QString() : serviceName;
                if (m_popoverPresenter)
                    m_popoverPresenter->setServiceNote(note);
                if (m_typingMode && m_typingMode->spotlight())
                    m_typingMode->spotlight()->setServiceNote(note);
            });

    // 2. A self-contained copy started from a download folder offers to move itself.
    if (PFMoveToApplicationsFolderIfNecessary())
        return false;

    // 3. Updates.
    m_updater = new Updater(&m_preferences, nullptr, this);
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
        m_updater->checkForUpdatesInBackground();
    else
        m_preferences.setHasBeenLaunchedAtLeastOnce(true);

    // 6. The status item, the language table and the menus.
    addStatusBarItem();

    // 7. Accessibility trust; installs the key monitor once trusted.
    m_popoverPresenter = new PopoverPresenter(m_platform, this);
    createGesturePipeline();
    startRegularlyCheckingIfProcessIsTrusted();

    // 8. The popover's content exists before the first gesture; its window is made once the
    // tray icon is up, out of the start-up's way.
    m_popoverPresenter->prepare();
    // A selection counts from PRIMARY only when it changed hands since the watching began:
    // begun soon after start, out of its way, not at the first gesture.
    QTimer::singleShot(kPrimaryWatchDelay, this,
                       [this] { m_platform.textCapture().primarySelectionChanges(); });

    // 9. A single Control press right after launch completes a double press.
    m_gesture->setLastControlKeyPressedTime(std::chrono::steady_clock::now());

    // 10, 11.
    addNotificationObservers();

    // 12. Loading the keyboard preferences window (not shown) binds the typing-mode shortcut.
    m_preferencesWindowController = new PreferencesWindowController(m_preferences, this);
    connect(m_preferencesWindowController, &PreferencesWindowController::shortcutFallbackChanged,
            new ShortcutFallbackNotice(m_preferences, std::make_unique<FreedesktopNotifier>(), this),
            &ShortcutFallbackNotice::tell);
    m_preferencesWindowController->window();
    connect(m_preferencesWindowController, &PreferencesWindowController::translationServicesChanged,
            this, &AppDelegate::applyTranslationServices);
    m_typingMode->setShortcutSource(
        [this] { return m_preferencesWindowController->activeShortcut(); });
    showSessionLimits();
    return true;
}

void AppDelegate::showSessionLimits()
{
    // Only what is known without waking anything up: reading other applications is found
    // out at the first gesture, which says so in the popover.
    QStringList limits = m_platform.sessionLimits();
    if (!m_keyMonitor->isInstalled() && !m_keyMonitor->canInstall())
        limits << QStringLiteral("This session does not let Tolkaro watch the Control key: the "
                                 "translation gesture is off");
    m_statusMenu->showSessionLimits(limits);
    m_statusMenu->offerSessionFix(m_platform.sessionFixOffer());
    if (!m_preferencesWindowController->canBindShortcuts())
        StatusMenu::showUnavailable(
            m_statusMenu->keyboardPreferencesMenuItem(),
            QStringLiteral("This session offers no system-wide shortcuts: bind \"tolkaro "
                           "--typing-mode\" to a key in your desktop's keyboard settings."));
}

void AppDelegate::offerSessionFix()
{
    // The desktop's own setting: changed only when the user says so, here and now.
    const QString offer = m_platform.sessionFixOffer();
    if (offer.isEmpty() ||
        QMessageBox::question(nullptr, QStringLiteral("Tolkaro"),
                              QStringLiteral("%1\n\nTolkaro will change this setting of your "
                                             "desktop for you.")
                                  .arg(offer)) != QMessageBox::Yes)
        return;
    if (!m_platform.applySessionFix())
        QMessageBox::warning(nullptr, QStringLiteral("Tolkaro"),
                             QStringLiteral("The setting could not be changed; change it in "
                                            "your desktop's settings."));
    showSessionLimits();
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
    connect(m_statusMenu, &StatusMenu::sessionFixChosen, this, &AppDelegate::offerSessionFix);
    LaunchAtLoginController *launchAtLogin = launchAtLoginController();
    m_statusMenu->addStatusBarItem(launchAtLogin->launchAtLogin());
    connect(launchAtLogin, &LaunchAtLoginController::launchAtLoginChanged, this,
            [this, launchAtLogin] {
                if (QAction *item = m_statusMenu->autostartMenuItem())
                    item->setChecked(launchAtLogin->launchAtLogin());
            });

    connect(m_statusMenu, &StatusMenu::checkForUpdatesTriggered, this,
            &AppDelegate::checkForUpdates);
    connect(m_statusMenu, &StatusMenu::autostartTriggered, this, &AppDelegate::setAutostartAtLogin);
    connect(m_statusMenu, &StatusMenu::keyboardPreferencesTriggered, this,
            &AppDelegate::showPreferencesWindow);
    connect(m_statusMenu, &StatusMenu::makeTrustedTriggered, this,
            &AppDelegate::makeTrustedMenuItem);
    connect(m_statusMenu, &StatusMenu::quitTriggered, this, &AppDelegate::terminate);
    connect(m_statusMenu, &StatusMenu::languageItemTriggered, this, &AppDelegate::selectedLanguage);
    connect(m_statusMenu, &StatusMenu::language2ItemTriggered, this,
            &AppDelegate::selectedLanguage2);
    connect(m_statusMenu, &StatusMenu::translationServiceChosen, this,
            &AppDelegate::selectedTranslationService);
    m_statusMenu->showTranslationServices(
        TranslationServices::allInOrder(m_preferences.translationServices()));

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

void AppDelegate::selectedLanguage(const QString &code)
{
    if (const std::optional<LanguageEntry> entry = LanguageTable::languageWithCode(code))
        setLanguage(*entry);
}

void AppDelegate::selectedLanguage2(const QString &code)
{
    if (const std::optional<LanguageEntry> entry = LanguageTable::languageWithCode(code))
        setLanguage2(*entry);
}

void AppDelegate::selectedTranslationService(const QString &name)
{
    m_preferences.setTranslationServices(
        TranslationServices::chosenFirst(m_preferences.translationServices(), name));
    applyTranslationServices();
}

void AppDelegate::applyTranslationServices()
{
    if (auto *chain = qobject_cast<TranslationChain *>(m_translator))
        TranslationServices::refillChain(*chain, TranslationServices::readSettings(m_preferences));
    if (m_statusMenu)
        m_statusMenu->showTranslationServices(
            TranslationServices::allInOrder(m_preferences.translationServices()));
}

void AppDelegate::checkForUpdates(QAction *)
{
    if (m_updater)
        m_updater->checkForUpdates();
}

void AppDelegate::setAutostartAtLogin(QAction *sender)
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
    m_translationController =
        new TranslationController(*m_translator, *m_languages, m_preferences,
                                  *m_popoverPresenter, *m_textSource, this);
    m_translationController->setUsageReport(
        [this](const QString &event, const QVariantMap &fields) {
            m_usageReporter->report(event, fields);
        });

    m_typingMode = new TypingModeCoordinator(
        m_translator, [this] { return m_languages->currentDstLanguageCode(); },
        &AccessibilityTextSource::pasteIntoActiveApplication, m_platform, this);
    connect(m_typingMode, &TypingModeCoordinator::usageEvent, this,
            [this](const QString &event) { m_usageReporter->report(event); });

    m_gesture = std::make_unique<ModifierGestureDetector>(*m_translationController);
    m_keyMonitor = m_platform.createKeySource(m_preferences.fnStandInKey());
    connect(m_keyMonitor.get(), &ModifierKeyMonitor::keyEvent, this,
            [this](const GestureKeyEvent &event) { m_gesture->keyboardTapEvent(event); });
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
    const bool busy = m_popoverPresenter->isPopoverShown() ||
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
    // The panel's first text goes out on a connection opened while the user types it.
    if (m_translator)
        m_translator->prepare();
    if (m_typingMode)
        m_typingMode->showSpotlightTranslationPopup();
}
