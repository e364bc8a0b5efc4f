#include "ui/StatusMenu.h"

#include "languages/LanguageTable.h"

#include <QAction>
#include <QCursor>
#include <QFile>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

namespace StatusMenuTexts {
QString makeTrusted()
{
    return QStringLiteral("Make Tolkaro trusted");
}
QString quit()
{
    return QStringLiteral("Quit Tolkaro");
}
QString myTolkaro()
{
    return QStringLiteral("My Tolkaro");
}
QString checkForUpdates()
{
    return QStringLiteral("Check for updates...");
}
QString autostart()
{
    return QStringLiteral("Autostart when the desktop starts");
}
QString keyboardPreferences()
{
    return QStringLiteral("Keyboard Preferences...");
}
QString destinationLanguage(const QString &flag)
{
    return QStringLiteral("%1 Destination Language").arg(flag);
}
QString alternativeDestinationLanguage(const QString &flag)
{
    return QStringLiteral("%1 Alternative Destination Language").arg(flag);
}
QString alternativeDestinationLanguageAtCreation(const QString &flag)
{
    return QStringLiteral("%1 Alternative destination Language").arg(flag);
}
QString languageItem(const LanguageEntry &entry)
{
    return QStringLiteral("%1 %2").arg(entry.flag, entry.name);
}
QString translationService()
{
    return QStringLiteral("Translation Service");
}
} // namespace StatusMenuTexts

namespace {

constexpr char kStatusIconResource[] = ":/icons/LightAndDarkIcon.svg";
constexpr char kAlternateStatusIconResource[] = ":/icons/AppIcon-Inverted-32.svg";

QString englishFlag()
{
    const std::optional<LanguageEntry> english =
        LanguageTable::languageWithCode(QStringLiteral("en"));
    return english ? english->flag : QString();
}

void checkOnly(QMenu *menu, const QString &code)
{
    for (QAction *item : menu->actions())
        item->setChecked(item->data().toString() == code);
}

} // namespace

using namespace StatusMenuTexts;

StatusMenu::StatusMenu(QObject *parent) : QObject(parent) {}

StatusMenu::~StatusMenu()
{
    // Menus without a widget parent belong to us.
    delete m_statusItem;
    delete m_statusItemMenuAppTrusted;
    delete m_statusItemMenuAppNotTrusted;
}

void StatusMenu::addStatusBarItem(bool launchAtLogin)
{
    if (m_statusItem)
        return;

    m_statusItem = new QSystemTrayIcon(this);
    // A missing image leaves the item without one; nothing else depends on it.
    if (QFile::exists(QString::fromLatin1(kStatusIconResource)))
        m_image = QIcon(QString::fromLatin1(kStatusIconResource));
    m_alternateImage = QFile::exists(QString::fromLatin1(kAlternateStatusIconResource))
                           ? QIcon(QString::fromLatin1(kAlternateStatusIconResource))
                           : m_image;
    m_statusItem->setIcon(m_image);
    m_statusItem->setToolTip(QStringLiteral("Tolkaro"));

    m_statusItemMenuAppNotTrusted = new QMenu;
    m_statusItemMenuAppNotTrusted->setObjectName(QStringLiteral("statusItemMenuAppNotTrusted"));
    m_statusItemMenuAppNotTrusted->setAccessibleName(QStringLiteral("Tolkaro"));
    QAction *makeTrustedItem = m_statusItemMenuAppNotTrusted->addAction(makeTrusted());
    connect(makeTrustedItem, &QAction::triggered, this,
            [this, makeTrustedItem] { emit makeTrustedTriggered(makeTrustedItem); });
    QAction *quitItem = m_statusItemMenuAppNotTrusted->addAction(quit());
    connect(quitItem, &QAction::triggered, this,
            [this, quitItem] { emit quitTriggered(quitItem); });

    m_statusItemMenuAppTrusted = new QMenu;
    m_statusItemMenuAppTrusted->setObjectName(QStringLiteral("statusItemMenuAppTrusted"));
    m_statusItemMenuAppTrusted->setAccessibleName(QStringLiteral("Tolkaro"));
    QMenu *myTolkaroMenu = m_statusItemMenuAppTrusted->addMenu(myTolkaro());
    myTolkaroMenu->setAccessibleName(myTolkaro());
    QAction *updatesItem = myTolkaroMenu->addAction(checkForUpdates());
    connect(updatesItem, &QAction::triggered, this,
            [this, updatesItem] { emit checkForUpdatesTriggered(updatesItem); });
    m_autostartMenuItem = myTolkaroMenu->addAction(autostart());
    m_autostartMenuItem->setCheckable(true);
    m_autostartMenuItem->setChecked(launchAtLogin);
    connect(m_autostartMenuItem, &QAction::triggered, this,
            [this] { emit autostartTriggered(m_autostartMenuItem); });
    m_keyboardPreferencesMenuItem = myTolkaroMenu->addAction(keyboardPreferences());
    connect(m_keyboardPreferencesMenuItem, &QAction::triggered, this,
            [this] { emit keyboardPreferencesTriggered(m_keyboardPreferencesMenuItem); });
    myTolkaroMenu->setToolTipsVisible(true);

    QMenu *destinationMenu = buildLanguageSubmenu();
    QMenu *alternativeMenu = buildLanguageSubmenu();
    connect(destinationMenu, &QMenu::triggered, this,
            [this](QAction *item) { emit languageItemTriggered(item->data().toString()); });
    connect(alternativeMenu, &QMenu::triggered, this,
            [this](QAction *item) { emit language2ItemTriggered(item->data().toString()); });
    destinationMenu->setAccessibleName(QStringLiteral("Destination Language"));
    alternativeMenu->setAccessibleName(QStringLiteral("Alternative Destination Language"));

    const QString flag = englishFlag();
    m_destLanguageMenuItem = m_statusItemMenuAppTrusted->addMenu(destinationMenu);
    m_destLanguageMenuItem->setText(destinationLanguage(flag));
    m_destLanguageMenuItem2 = m_statusItemMenuAppTrusted->addMenu(alternativeMenu);
    m_destLanguageMenuItem2->setText(alternativeDestinationLanguageAtCreation(flag));
    auto *servicesMenu = new QMenu(m_statusItemMenuAppTrusted);
    connect(servicesMenu, &QMenu::triggered, this,
            [this](QAction *item) { emit translationServiceChosen(item->data().toString()); });
    m_translationServiceMenuItem = m_statusItemMenuAppTrusted->addMenu(servicesMenu);
    m_translationServiceMenuItem->setText(translationService());
    m_statusItemMenuAppTrusted->addSeparator();
    QAction *quitItem2 = m_statusItemMenuAppTrusted->addAction(quit());
    connect(quitItem2, &QAction::triggered, this,
            [this, quitItem2] { emit quitTriggered(quitItem2); });

    // The tray shows the attached menu on a secondary click; the primary click opens it too,
    // as users expect of a status item without a window.
    connect(m_statusItem, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger)
                    popUpMenu();
            });

    showImageWhileOpen(m_statusItemMenuAppTrusted);
    showImageWhileOpen(m_statusItemMenuAppNotTrusted);
    showMenuForTrust(true);
    m_statusItem->show();
}

void StatusMenu::showImageWhileOpen(QMenu *menu)
{
    connect(menu, &QMenu::aboutToShow, this, [this] {
        if (m_statusItem)
            m_statusItem->setIcon(m_alternateImage);
    });
    connect(menu, &QMenu::aboutToHide, this, [this] {
        if (m_statusItem)
            m_statusItem->setIcon(m_image);
    });
}

QMenu *StatusMenu::buildLanguageSubmenu()
{
    // Parented to the full menu so that it lives and dies with it.
    auto *menu = new QMenu(m_statusItemMenuAppTrusted);
    for (const LanguageEntry &entry : LanguageTable::entries()) {
        QAction *item = menu->addAction(languageItem(entry));
        item->setCheckable(true);
        item->setData(entry.code);
    }
    return menu;
}

void StatusMenu::showMenuForTrust(bool trusted)
{
    if (!m_statusItem)
        return;
    QMenu *menu = trusted ? m_statusItemMenuAppTrusted : m_statusItemMenuAppNotTrusted;
    if (m_statusItem->contextMenu() != menu)
        m_statusItem->setContextMenu(menu);
}

QMenu *StatusMenu::attachedMenu() const
{
    return m_statusItem ? m_statusItem->contextMenu() : nullptr;
}

void StatusMenu::showDestinationLanguage(const LanguageEntry &entry)
{
    if (!m_destLanguageMenuItem)
        return;
    m_destLanguageMenuItem->setText(destinationLanguage(entry.flag));
    checkOnly(m_destLanguageMenuItem->menu(), entry.code);
}

void StatusMenu::showAlternativeDestinationLanguage(const LanguageEntry &entry)
{
    if (!m_destLanguageMenuItem2)
        return;
    m_destLanguageMenuItem2->setText(alternativeDestinationLanguage(entry.flag));
    checkOnly(m_destLanguageMenuItem2->menu(), entry.code);
}

void StatusMenu::showSessionLimits(const QStringList &limits)
{
    if (!m_statusItemMenuAppTrusted)
        return;
    qDeleteAll(m_sessionLimitLines);
    m_sessionLimitLines.clear();
    QAction *first = m_statusItemMenuAppTrusted->actions().value(0);
    for (const QString &limit : limits) {
        auto *line = new QAction(limit, m_statusItemMenuAppTrusted);
        line->setEnabled(false);
        m_statusItemMenuAppTrusted->insertAction(first, line);
        m_sessionLimitLines << line;
    }
    if (!limits.isEmpty())
        m_sessionLimitLines << m_statusItemMenuAppTrusted->insertSeparator(first);
}

void StatusMenu::offerSessionFix(const QString &text)
{
    if (!m_statusItemMenuAppTrusted || text.isEmpty())
        return;
    auto *item = new QAction(text, m_statusItemMenuAppTrusted);
    connect(item, &QAction::triggered, this, &StatusMenu::sessionFixChosen);
    m_statusItemMenuAppTrusted->insertAction(m_sessionLimitLines.value(m_sessionLimitLines.size() - 1), item);
    m_sessionLimitLines.insert(m_sessionLimitLines.size() - 1, item);
}

void StatusMenu::showUnavailable(QAction *item, const QString &reason)
{
    if (!item)
        return;
    item->setEnabled(false);
    item->setToolTip(reason);
}

void StatusMenu::popUpMenu()
{
    if (QMenu *menu = attachedMenu())
        menu->popup(QCursor::pos());
}

void StatusMenu::showTranslationServices(const QStringList &order)
{
    if (!m_translationServiceMenuItem)
        return;
    QMenu *menu = m_translationServiceMenuItem->menu();
    menu->clear();
    for (const QString &name : order) {
        QAction *item = menu->addAction(name);
        item->setData(name);
        item->setCheckable(true);
    }
    checkOnly(menu, 0);
}
