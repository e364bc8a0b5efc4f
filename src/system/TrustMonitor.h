#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

class AccessibilityTrust;
class ModifierKeyMonitor;
class TrustAlerts;

// Watches the accessibility permission for the life of the process: one check at start-up,
// then one every checkPeriod on a one-shot timer that each check re-arms. While Tolkaro is
// trusted the key monitor stays installed and the normal status menu is shown; while it is
// not, the monitor is removed, the reduced menu is shown and, once per monitor (one per
// process in the application), the user is asked to grant the permission. Declining ends
// the application, and so does a key monitor that cannot be installed, trusted or not.
//
// One key monitor serves where two were needed elsewhere: raw X input events reach it
// whichever application is in front, Tolkaro's own windows included. The gesture state
// lives above the monitor and survives its removal. Main thread only; the alerts are modal
// and the next check is armed after they close, so checks never overlap.
class TrustMonitor : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds kCheckPeriod{5000};

    // What the monitor drives in the application.
    struct Hooks
    {
        // Shows the trusted (true) or the not-trusted (false) status menu.
        std::function<void(bool trusted)> showStatusMenu;
        // Reports a usage event (may be empty).
        std::function<void(const QString &event)> reportUsageEvent;
        // Ends the application; no check runs after it.
        std::function<void()> terminate;
    };

    TrustMonitor(AccessibilityTrust &trust, ModifierKeyMonitor &keyMonitor, TrustAlerts &alerts,
                 Hooks hooks, std::chrono::milliseconds checkPeriod = kCheckPeriod,
                 QObject *parent = nullptr);

    // One check; called once at start-up, then only by its own timer.
    void startRegularlyCheckingIfProcessIsTrusted();
    // The not-trusted menu's "Make Tolkaro trusted": switches accessibility on; the next
    // check picks up the change.
    void makeTrustedMenuItem();

    bool hasShownPermissionDialog() const { return m_permissionDialogShown; }

signals:
    // After every completed check, with what it found.
    void checked(bool trusted);

private:
    // Answers false when the user declined and the application is ending.
    bool runPermissionDialog();
    void terminate();
    void report(const char *event);

    AccessibilityTrust &m_trust;
    ModifierKeyMonitor &m_keyMonitor;
    TrustAlerts &m_alerts;
    Hooks m_hooks;
    std::chrono::milliseconds m_checkPeriod;
    bool m_permissionDialogShown = false;
    bool m_setupDialogShown = false;
    bool m_terminated = false;
};
