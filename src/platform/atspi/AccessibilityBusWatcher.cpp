#include "platform/atspi/AccessibilityBusWatcher.h"

#include "common/Log.h"
#include "platform/atspi/AtspiThread.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

namespace {

const QString kLauncherService = QStringLiteral("org.a11y.Bus");

} // namespace

AccessibilityBusWatcher::AccessibilityBusWatcher(const QDBusConnection &sessionBus, QObject *parent)
    : QObject(parent), m_bus(sessionBus)
{
    auto *watcher = new QDBusServiceWatcher(kLauncherService, m_bus,
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &, const QString &, const QString &newOwner) {
                if (!newOwner.isEmpty())
                    compareWithNewBus();
            });
}

QString AccessibilityBusWatcher::serverIdOfAddress(const QString &address)
{
    // Several transports may be listed, each with its own keys; they all lead to one server.
    for (const QString &transport : address.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QString keys = transport.section(QLatin1Char(':'), 1);
        for (const QString &pair : keys.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
            if (pair.startsWith(QLatin1String("guid=")))
                return pair.mid(5);
        }
    }
    return QString();
}

void AccessibilityBusWatcher::compareWithNewBus()
{
    // A process that never read another application has nothing to follow: its first
    // capture connects to whatever bus is there then.
    if (!AtspiThread::exists())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(kLauncherService, QStringLiteral("/org/a11y/bus"),
                                                       QStringLiteral("org.a11y.Bus"),
                                                       QStringLiteral("GetAddress"));
    auto *pending = new QDBusPendingCallWatcher(m_bus.asyncCall(call, 5000), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *watcher) {
        watcher->deleteLater();
        const QDBusPendingReply<QString> reply = *watcher;
        if (reply.isError())
            return;
        const QString newId = serverIdOfAddress(reply.value());
        const QString ownId = AtspiThread::instance().busServerId();
        if (newId.isEmpty() || newId == ownId)
            return;
        tolkaro::logLine(QStringLiteral("The accessibility bus was replaced (%1 is now %2)")
                             .arg(ownId.isEmpty() ? QStringLiteral("none") : ownId, newId));
        emit replaced();
    });
}
