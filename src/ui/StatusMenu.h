#pragma once

#include <QAction>
#include <QMenu>
#include <QObject>
#include <QIcon>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QSystemTrayIcon>

struct LanguageEntry;

// The status item in the panel's tray and its two menus: the full one while Tolkaro may
// read other applications, the short one offering to make it trusted while it may not.
// This is the view; the application controller decides what the actions do and calls the
// show... methods when a choice changes. Main thread only.
class StatusMenu : public QObject
{
    Q_OBJECT
public:
    explicit StatusMenu(QObject *parent = nullptr);
    ~StatusMenu() override;

    // Builds the item and both menus, the language submenus from the language table, and
    // attaches the full menu. launchAtLogin: the autostart item's initial check mark.
    void addStatusBarItem(bool launchAtLogin);

    // Attaches the full menu (trusted) or the short one.
    void showMenuForTrust(bool trusted);
    // Title "<flag> Destination Language" and the one check mark on the entry's item.
    void showDestinationLanguage(const LanguageEntry &entry);
    void showAlternativeDestinationLanguage(const LanguageEntry &entry);
    // The "Translation Service" submenu: the services in the order asked, the first checked.
    void showTranslationServices(const QStringList &order);
    // What this session cannot do, as disabled lines atop the full menu (replacing any
    // shown before), so a missing feature is told rather than silently absent.
    void showSessionLimits(const QStringList &limits);
    // An item among the session's limits that offers to lift one; emits sessionFixChosen().
    void offerSessionFix(const QString &text);
    // Greys an item out and says why in its tooltip.
    static void showUnavailable(QAction *item, const QString &reason);
    // Opens the attached menu at the pointer (a left click, or asked over D-Bus).
    void popUpMenu();

    QSystemTrayIcon *statusItem() const { return m_statusItem; }
    QMenu *statusItemMenuAppTrusted() const { return m_statusItemMenuAppTrusted; }
    QMenu *statusItemMenuAppNotTrusted() const { return m_statusItemMenuAppNotTrusted; }
    QMenu *attachedMenu() const;
    QAction *destLanguageMenuItem() const { return m_destLanguageMenuItem; }
    QAction *destLanguageMenuItem2() const { return m_destLanguageMenuItem2; }
    QAction *autostartMenuItem() const { return m_autostartMenuItem; }
    QAction *keyboardPreferencesMenuItem() const { return m_keyboardPreferencesMenuItem; }
    QAction *translationServiceMenuItem() const { return m_translationServiceMenuItem; }

signals:
    void sessionFixChosen();
    void checkForUpdatesTriggered(QAction *sender);
    void autostartTriggered(QAction *sender);
    void keyboardPreferencesTriggered(QAction *sender);
    void makeTrustedTriggered(QAction *sender);
    void quitTriggered(QAction *sender);
    // A language item was chosen; each item carries its language code.
    void languageItemTriggered(const QString &code);
    void language2ItemTriggered(const QString &code);
    // A service chosen in the "Translation Service" submenu (its name).
    void translationServiceChosen(const QString &name);

private:
    QMenu *buildLanguageSubmenu();
    // The inverted image while a menu of the item is open, as a highlighted item shows.
    void showImageWhileOpen(QMenu *menu);

    QIcon m_image;
    QIcon m_alternateImage;
    QPointer<QSystemTrayIcon> m_statusItem;
    QPointer<QMenu> m_statusItemMenuAppTrusted;
    QPointer<QMenu> m_statusItemMenuAppNotTrusted;
    QPointer<QAction> m_destLanguageMenuItem;
    QPointer<QAction> m_destLanguageMenuItem2;
    QPointer<QAction> m_autostartMenuItem;
    QPointer<QAction> m_keyboardPreferencesMenuItem;
    QList<QAction *> m_sessionLimitLines;
    QPointer<QAction> m_translationServiceMenuItem;
};

// The status menu's own texts.
namespace StatusMenuTexts {
QString makeTrusted();
QString quit();
QString myTolkaro();
QString checkForUpdates();
QString autostart();
QString keyboardPreferences();
QString destinationLanguage(const QString &flag);
QString alternativeDestinationLanguage(const QString &flag);
// The alternative item's title before the first choice; its lower-case "destination" is
// how it has always read.
QString alternativeDestinationLanguageAtCreation(const QString &flag);
QString languageItem(const LanguageEntry &entry);
QString translationService();
} // namespace StatusMenuTexts
