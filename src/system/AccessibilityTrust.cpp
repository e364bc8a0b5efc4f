#include "system/AccessibilityTrust.h"

#include "common/Log.h"

#include <QDBusMessage>
#include <QDBusVariant>

namespace {
const QString kA11yBusService = QStringLiteral("org.a11y.Bus");
const QString kA11yBusPath = QStringLiteral("/org/a11y/bus");
const QString kA11yStatusInterface = QStringLiteral("org.a11y.Status");
const QString kIsEnabledProperty = QStringLiteral("IsEnabled");
const QString kPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
} // namespace

AccessibilityTrust::AccessibilityTrust(std::function<bool()> keyMonitorCanBeInstalled,
                                       const QDBusConnection &sessionBus)
    : m_keyMonitorCanBeInstalled(std::move(keyMonitorCanBeInstalled)), m_bus(sessionBus)
{
}

bool AccessibilityTrust::isProcessTrusted() const
{
    return isAccessibilityEnabled() && m_keyMonitorCanBeInstalled && m_keyMonitorCanBeInstalled();
}

bool AccessibilityTrust::isAccessibilityEnabled() const
{
    QDBusMessage get = QDBusMessage::createMethodCall(kA11yBusService, kA11yBusPath,
                                                      kPropertiesInterface, QStringLiteral("Get"));
    get << kA11yStatusInterface << kIsEnabledProperty;
    const QDBusMessage reply = m_bus.call(get, QDBus::Block, kBusCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        const QString error =
            QStringLiteral("Cannot read whether accessibility is enabled: ") + reply.errorMessage();
        if (error != m_lastError)
            tolkaro::logLine(error);
        m_lastError = error;
        return false;
    }
    m_lastError.clear();
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

bool AccessibilityTrust::setAccessibilityEnabled(bool enabled)
{
    QDBusMessage set = QDBusMessage::createMethodCall(kA11yBusService, kA11yBusPath,
                                                      kPropertiesInterface, QStringLiteral("Set"));
    set << kA11yStatusInterface << kIsEnabledProperty << QVariant::fromValue(QDBusVariant(enabled));
    const QDBusMessage reply = m_bus.call(set, QDBus::Block, kBusCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        tolkaro::logLine(QStringLiteral("Cannot change whether accessibility is enabled: ") +
                         reply.errorMessage());
        return false;
    }
    return true;
}
