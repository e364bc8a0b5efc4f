#pragma once

#include <QDBusConnection>
#include <QString>

// Tells the user something that happened out of sight, such as a shortcut another program
// already owns. Behind an interface so that tests can see what was told.
class DesktopNotifier
{
public:
    virtual ~DesktopNotifier() = default;
    virtual void notify(const QString &summary, const QString &body) = 0;
};

// The freedesktop way: a desktop notification (org.freedesktop.Notifications on the session
// bus) when a notification server runs or can be started, else a dialog that does not block.
// The Notify call is sent without waiting for its answer; the only blocking call asks the
// bus daemon whether a server is there. Main thread.
class FreedesktopNotifier : public DesktopNotifier
{
public:
    static constexpr char kService[] = "org.freedesktop.Notifications";
    static constexpr char kPath[] = "/org/freedesktop/Notifications";
    // A notification stays as long as the server keeps its own.
    static constexpr int kServerDefaultTimeout = -1;

    explicit FreedesktopNotifier(const QDBusConnection &sessionBus = QDBusConnection::sessionBus());

    void notify(const QString &summary, const QString &body) override;
    bool hasNotificationServer() const;

private:
    QDBusConnection m_bus;
};
