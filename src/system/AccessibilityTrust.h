#pragma once

#include <QDBusConnection>
#include <QString>

#include <functional>

// Whether Tolkaro may do its work in this session: the desktop's accessibility support is
// switched on (the AT-SPI bus launcher's org.a11y.Status.IsEnabled on the session bus) and
// the key monitor can be installed here. Asking has no side effects; "prompting" switches
// the accessibility support on, since nothing else on this desktop asks the user about it.
// Every question is a short blocking D-Bus call. Main thread only.
class AccessibilityTrust
{
public:
    // How long a call to the accessibility bus launcher may take before it counts as "no".
    static constexpr int kBusCallTimeoutMs = 2000;

    // `keyMonitorCanBeInstalled` answers whether the key monitor would install now.
    explicit AccessibilityTrust(std::function<bool()> keyMonitorCanBeInstalled,
                                const QDBusConnection &sessionBus = QDBusConnection::sessionBus());

    // IsEnabled, and the key monitor can be installed. Checked in that order, so a session
    // without accessibility never probes the X server.
    bool isProcessTrusted() const;

    // IsEnabled as the bus launcher reports it; false when it does not answer.
    bool isAccessibilityEnabled() const;
    // Sets IsEnabled; false (and a log line) when the bus launcher refuses or is absent.
    bool setAccessibilityEnabled(bool enabled);

private:
    std::function<bool()> m_keyMonitorCanBeInstalled;
    QDBusConnection m_bus;
    // The last failure logged, so a bus that stays away is logged once, not every check.
    mutable QString m_lastError;
};
