#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <functional>

// The application's named notifications and their user-info keys: only those that cross
// between owners. The typing panel and its coordinator talk by signals instead (editing
// finished with its text, Return with its translation).
namespace NotificationNames {
inline constexpr char kOpenTypingModeNotification[] = "OpenTypingModeNotification";
inline constexpr char kSpotlightTranslationPerformedSuccessfully[] =
    "SpotlightTranslationPerformedSuccessfully";
} // namespace NotificationNames

namespace NotificationUserInfoKeys {
inline constexpr char kTranslationResult[] = "TranslationResult";
} // namespace NotificationUserInfoKeys

// A process-wide hub of named notifications, for senders that should not know who listens
// (the typing-mode shortcut, the D-Bus command). Delivery is synchronous, on the posting
// thread, in the order the observers were added. An observer lives as long as its context
// object; a null context means for the life of the process.
class NotificationCenter
{
public:
    using Handler = std::function<void(const QVariantMap &userInfo)>;

    static NotificationCenter &defaultCenter();

    void addObserver(const QString &name, QObject *context, Handler handler);
    void removeObservers(QObject *context);
    void post(const QString &name, const QVariantMap &userInfo = {});

private:
    struct Observer
    {
        QPointer<QObject> context;
        bool hasContext = false;
        Handler handler;
    };
    QHash<QString, QList<Observer>> m_observers;
};
