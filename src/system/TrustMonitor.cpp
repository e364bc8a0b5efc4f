#include "system/TrustMonitor.h"

#include "common/Log.h"
#include "platform/ModifierKeyMonitor.h"
#include "system/AccessibilityTrust.h"
#include "system/TrustAlerts.h"
#include "system/UsageReporter.h"

#include <QTimer>

TrustMonitor::TrustMonitor(AccessibilityTrust &trust, ModifierKeyMonitor &keyMonitor,
                           TrustAlerts &alerts, Hooks hooks, std::chrono::milliseconds checkPeriod,
                           QObject *parent)
    : QObject(parent), m_trust(trust), m_keyMonitor(keyMonitor), m_alerts(alerts),
      m_hooks(std::move(hooks)), m_checkPeriod(checkPeriod)
{
}

void TrustMonitor::startRegularlyCheckingIfProcessIsTrusted()
{
    if (m_terminated)
        return;
    // A session whose X server offers no raw key events (no display, no XInput 2.2) stays
    // so whatever the user grants: asking for the permission would lead nowhere.
    const QString setup = m_keyMonitor.setupNeeded();
    if (!m_keyMonitor.isInstalled() && !m_keyMonitor.canInstall() && setup.isEmpty()) {
        m_alerts.showMonitorFailureAlert();
        terminate();
        return;
    }
    const bool trusted = m_trust.isProcessTrusted();
    if (trusted) {
        // Set on every check, changed or not: cheap, and it heals a menu swapped elsewhere.
        if (m_hooks.showStatusMenu)
            m_hooks.showStatusMenu(true);
        if (!m_keyMonitor.isInstalled() && !m_keyMonitor.install()) {
            m_alerts.showMonitorFailureAlert();
            terminate();
            return;
        }
    } else {
        tolkaro::logLine(QStringLiteral("Checking... Tolkaro is not trusted"));
        if (m_hooks.showStatusMenu)
            m_hooks.showStatusMenu(false);
        if (m_keyMonitor.isInstalled())
            m_keyMonitor.remove();
        // Asked once: a permission withdrawn later only changes the menu. A helper to set up
        // is asked about once accessibility is on, and declining it leaves the short menu.
        if (!setup.isEmpty() && m_trust.isAccessibilityEnabled()) {
            if (!m_setupDialogShown) {
                m_setupDialogShown = true;
                if (m_alerts.askForSetup(setup))
                    m_keyMonitor.runSetup();
            }
        } else if (!m_permissionDialogShown) {
            m_permissionDialogShown = true;
            if (!runPermissionDialog())
                return;
        }
    }
    emit checked(trusted);
    // Armed after any alert has closed, so checks never overlap.
    QTimer::singleShot(m_checkPeriod, this,
                       &TrustMonitor::startRegularlyCheckingIfProcessIsTrusted);
}

void TrustMonitor::makeTrustedMenuItem()
{
    m_trust.setAccessibilityEnabled(true);
}

bool TrustMonitor::runPermissionDialog()
{
    if (!m_alerts.askForPermission()) {
        report(UsageEvents::kAccessibilityConsentDeclined);
        m_alerts.showRefusalAlert();
        terminate();
        return false;
    }
    report(UsageEvents::kAccessibilityConsentGiven);
    m_trust.setAccessibilityEnabled(true);
    return true;
}

void TrustMonitor::terminate()
{
    m_terminated = true;
    if (m_hooks.terminate)
        m_hooks.terminate();
}

void TrustMonitor::report(const char *event)
{
    if (m_hooks.reportUsageEvent)
        m_hooks.reportUsageEvent(QString::fromLatin1(event));
}
