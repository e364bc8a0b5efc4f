#pragma once

#include "platform/GlobalHotKey.h"

#include <QDBusConnection>

// The typing-mode shortcut through KDE's global shortcut service (org.kde.kglobalaccel,
// which KWin hosts in a Wayland session): registered as Tolkaro's "Typing panel" action, so
// it shows, and can be changed, in the desktop's shortcut settings. The service refuses a
// combination another action holds, which is how a taken shortcut is found out. Main
// thread; the service's signal is delivered by the main event loop.
class GlobalHotKeyKGlobalAccel : public GlobalHotKey
{
    Q_OBJECT

public:
    explicit GlobalHotKeyKGlobalAccel(const QDBusConnection &bus = QDBusConnection::sessionBus(),
                                      QObject *parent = nullptr);
    ~GlobalHotKeyKGlobalAccel() override;

    bool isValid() const override;
    BindResult bind(const StoredShortcut &shortcut) override;
    void unbind() override;
    StoredShortcut boundShortcut() const override { return m_shortcut; }

    // The service's key code (a Qt key with Qt modifiers) for a shortcut; 0 when the key has
    // no Qt name Tolkaro knows (letters, digits, space, F1 to F35 and a few others do).
    static int qtKeyCode(const StoredShortcut &shortcut);

private slots:
    void shortcutPressed(const QString &component, const QString &action, qlonglong timestamp);

private:
    QDBusConnection m_bus;
    StoredShortcut m_shortcut;
    bool m_connected = false;
};
