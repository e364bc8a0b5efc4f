#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QString>

// Notices when the accessibility bus this process reads other applications through has been
// replaced by a new one (its launcher was restarted, or it was not there when Tolkaro
// started). libatspi connects once and then stays with that bus for the life of the process:
// after a restart every question it asks fails with "The application no longer exists".
// Nothing short of a new process follows the new bus, so the application restarts itself
// when this watcher says so.
//
// It costs nothing while the bus stays: the session bus tells it when the launcher's name
// changes hands, and only then is the new bus's address asked for and compared.
class AccessibilityBusWatcher : public QObject
{
    Q_OBJECT

public:
    explicit AccessibilityBusWatcher(const QDBusConnection &sessionBus = QDBusConnection::sessionBus(),
                                     QObject *parent = nullptr);

    // The GUID in a D-Bus address ("unix:path=...,guid=..."), empty when it has none.
    static QString serverIdOfAddress(const QString &address);

signals:
    // A bus other than the one libatspi connected to is now the session's accessibility bus.
    void replaced();

private:
    void compareWithNewBus();

    QDBusConnection m_bus;
};
