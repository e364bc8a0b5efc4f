#include "app/ApplicationBus.h"

#include "app/AppDelegate.h"
#include "common/Log.h"
#include "common/NotificationCenter.h"
#include "typing/SpotlightWindow.h"
#include "typing/SpotlightWindowController.h"
#include "typing/TSTTextGrowth.h"
#include "typing/TypingModeCoordinator.h"
#include "ui/PopOverViewController.h"
#include "ui/PopoverPresenter.h"
#include "ui/PopoverTextField.h"
#include "ui/StatusMenu.h"
#include "ui/TranslationPopover.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMenu>
#include <QSystemTrayIcon>

namespace ApplicationBus {

Claim claimSingleInstance(const QStringList &arguments)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return Claim::NoBus;
    const QString service = QString::fromLatin1(kServiceName);
    // The bus hands the name to exactly one claimant, so two starts at once cannot both win.
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        bus.interface()->registerService(service, QDBusConnectionInterface::DontQueueService,
                                         QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return Claim::Owner;
    if (!reply.isValid())
        return Claim::NoBus;

    QDBusMessage call = QDBusMessage::createMethodCall(service, QString::fromLatin1(kObjectPath),
                                                       QString::fromLatin1(kInterface),
                                                       QStringLiteral("AnotherInstanceStarted"));
    call << arguments;
    bus.call(call, QDBus::Block, 2000);
    return Claim::AlreadyRunning;
}

void releaseSingleInstance()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected() && bus.interface())
        bus.interface()->unregisterService(QString::fromLatin1(kServiceName));
}

} // namespace ApplicationBus

ApplicationBusObject::ApplicationBusObject(AppDelegate &delegate, QObject *parent)
    : QObject(parent), m_delegate(delegate)
{
}

bool ApplicationBusObject::exportOnSessionBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    bool exported = bus.registerObject(QString::fromLatin1(ApplicationBus::kObjectPath), this,
                                       QDBusConnection::ExportScriptableSlots);
    if (qEnvironmentVariable(ApplicationBus::kTestHooksVariable) == QLatin1String("1")) {
        auto *testObject = new ApplicationTestBusObject(m_delegate, this);
        exported = bus.registerObject(QString::fromLatin1(ApplicationBus::kTestObjectPath),
                                      testObject, QDBusConnection::ExportScriptableSlots) &&
                   exported;
    }
    return exported;
}

void ApplicationBusObject::AnotherInstanceStarted(const QStringList &)
{
    tolkaro::logLine(
        QStringLiteral("Another Tolkaro was started and left: this one keeps running"));
}

void ApplicationBusObject::ShowMenu()
{
    if (StatusMenu *menu = m_delegate.statusMenu())
        menu->popUpMenu();
}

void ApplicationBusObject::ToggleTypingMode()
{
    NotificationCenter::defaultCenter().post(
        QString::fromLatin1(NotificationNames::kOpenTypingModeNotification));
}

// ---- Test hooks ----

namespace {

QJsonArray describeMenu(const QMenu *menu)
{
    QJsonArray items;
    if (!menu)
        return items;
    for (const QAction *action : menu->actions()) {
        QJsonObject item;
        item.insert(QStringLiteral("title"), action->text());
        item.insert(QStringLiteral("separator"), action->isSeparator());
        item.insert(QStringLiteral("checkable"), action->isCheckable());
        item.insert(QStringLiteral("checked"), action->isChecked());
        item.insert(QStringLiteral("enabled"), action->isEnabled());
        if (action->menu())
            item.insert(QStringLiteral("submenu"), describeMenu(action->menu()));
        items.append(item);
    }
    return items;
}

} // namespace

ApplicationTestBusObject::ApplicationTestBusObject(AppDelegate &delegate, QObject *parent)
    : QObject(parent), m_delegate(delegate)
{
}

void ApplicationTestBusObject::DisplayPopOver(const QString &text, int x, int y)
{
    m_delegate.popoverPresenter()->displayPopOverWithText(text, QPoint(x, y));
}

void ApplicationTestBusObject::SetPopOverText(const QString &text, bool gray)
{
    if (gray)
        m_delegate.popoverPresenter()->setAnimatedGrayStringValue(text);
    else
        m_delegate.popoverPresenter()->setAnimatedStringValue(text);
}

void ApplicationTestBusObject::HidePopOver()
{
    m_delegate.popoverPresenter()->hidePopOver();
}

void ApplicationTestBusObject::TranslateText(const QString &text, int x, int y)
{
    TranslationController *controller = m_delegate.translationController();
    if (!controller)
        return;
    m_delegate.popoverPresenter()->displayPopOverWithText(text, QPoint(x, y));
    controller->startTranslatingText(text);
}

QVariantMap ApplicationTestBusObject::PopOverState()
{
    QVariantMap state;
    state.insert(QStringLiteral("shown"), m_delegate.popoverPresenter()->isPopoverShown());
    PopOverViewController *controller = m_delegate.popoverPresenter()->popOverViewController();
    if (controller && controller->textField()) {
        state.insert(QStringLiteral("text"), controller->textField()->text());
        state.insert(QStringLiteral("color"),
                     controller->textField()->palette().color(QPalette::WindowText).name());
    }
    const TranslationPopover *window = m_delegate.popoverPresenter()->popover();
    state.insert(QStringLiteral("windowVisible"), window && window->isVisible());
    if (window) {
        const QRect body = window->bodyGeometry();
        state.insert(QStringLiteral("x"), body.x());
        state.insert(QStringLiteral("y"), body.y());
        state.insert(QStringLiteral("width"), body.width());
        state.insert(QStringLiteral("height"), body.height());
        state.insert(QStringLiteral("abovePointer"), window->isAbovePointer());
    }
    return state;
}

QVariantMap ApplicationTestBusObject::TypingPanelState()
{
    const TypingModeCoordinator *typing = m_delegate.typingMode();
    const SpotlightWindowController *panel = typing ? typing->spotlight() : nullptr;
    if (!panel || !panel->window())
        return {{QStringLiteral("visible"), false}};
    return {{QStringLiteral("visible"), panel->window()->isVisible()},
            {QStringLiteral("active"), panel->window()->isActiveWindow()},
            {QStringLiteral("text"), panel->inputTextField()->toPlainText()},
            {QStringLiteral("translation"), panel->detailsTextField()->text()}};
}

QString ApplicationTestBusObject::MenuLayout()
{
    const StatusMenu *menu = m_delegate.statusMenu();
    const QJsonArray items = describeMenu(menu ? menu->attachedMenu() : nullptr);
    return QString::fromUtf8(QJsonDocument(items).toJson(QJsonDocument::Compact));
}

QVariantMap ApplicationTestBusObject::StatusItemState()
{
    QVariantMap state;
    const StatusMenu *menu = m_delegate.statusMenu();
    state.insert(QStringLiteral("systemTrayAvailable"), QSystemTrayIcon::isSystemTrayAvailable());
    state.insert(QStringLiteral("visible"),
                 menu && menu->statusItem() && menu->statusItem()->isVisible());
    state.insert(QStringLiteral("hasIcon"),
                 menu && menu->statusItem() && !menu->statusItem()->icon().isNull());
    if (menu && menu->statusItem()) {
        const QRect geometry = menu->statusItem()->geometry();
        state.insert(QStringLiteral("x"), geometry.x());
        state.insert(QStringLiteral("y"), geometry.y());
        state.insert(QStringLiteral("width"), geometry.width());
        state.insert(QStringLiteral("height"), geometry.height());
    }
    return state;
}

QVariantList ApplicationTestBusObject::MenuItemGeometry(const QStringList &titles)
{
    const StatusMenu *statusMenu = m_delegate.statusMenu();
    QMenu *menu = statusMenu ? statusMenu->attachedMenu() : nullptr;
    for (int i = 0; menu && i < titles.size(); ++i) {
        if (!menu->isVisible())
            return {};
        QAction *found = nullptr;
        for (QAction *action : menu->actions()) {
            if (action->text() == titles[i])
                found = action;
        }
        if (!found)
            return {};
        if (i + 1 == titles.size()) {
            const QRect local = menu->actionGeometry(found);
            const QPoint topLeft = menu->mapToGlobal(local.topLeft());
            return {topLeft.x(), topLeft.y(), local.width(), local.height()};
        }
        menu = found->menu();
    }
    return {};
}
