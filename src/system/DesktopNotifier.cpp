#include "system/DesktopNotifier.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QMessageBox>
#include <QVariantMap>

FreedesktopNotifier::FreedesktopNotifier(const QDBusConnection &sessionBus) : m_bus(sessionBus) {}

bool FreedesktopNotifier::hasNotificationServer() const
{
    QDBusConnectionInterface *daemon = m_bus.isConnected() ? m_bus.interface() : nullptr;
    if (!daemon)
        return false;
    const QString service = QString::fromLatin1(kService);
    return daemon->isServiceRegistered(service).value() ||
           daemon->activatableServiceNames().value().contains(service);
}

void FreedesktopNotifier::notify(const QString &summary, const QString &body)
{
    if (hasNotificationServer()) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QString::fromLatin1(kService), QString::fromLatin1(kPath),
            QString::fromLatin1(kService), QStringLiteral("Notify"));
        call << QStringLiteral("Tolkaro") << 0u << QStringLiteral("tolkaro") << summary << body
             << QStringList()
             << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("tolkaro")}}
             << kServerDefaultTimeout;
        m_bus.asyncCall(call);
        return;
    }
    auto *box = new QMessageBox(QMessageBox::Information, QStringLiteral("Tolkaro"), summary);
    box->setInformativeText(body);
    box->setAttribute(Qt::WA_DeleteOnClose);
    // A message box is modal by default: this one must not block the typing panel.
    box->setWindowModality(Qt::NonModal);
    box->setObjectName(QStringLiteral("DesktopNotifierDialog"));
    box->show();
}
