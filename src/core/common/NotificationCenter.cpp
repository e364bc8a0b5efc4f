#include "common/NotificationCenter.h"

NotificationCenter &NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

void NotificationCenter::addObserver(const QString &name, QObject *context, Handler handler)
{
    m_observers[name].append({context, context != nullptr, std::move(handler)});
}

void NotificationCenter::removeObservers(QObject *context)
{
    for (QList<Observer> &observers : m_observers) {
        observers.removeIf([context](const Observer &o) { return o.context == context; });
    }
}

void NotificationCenter::post(const QString &name, const QVariantMap &userInfo)
{
    auto it = m_observers.find(name);
    if (it == m_observers.end())
        return;
    // Drop observers whose context has gone, then deliver to a copy: a handler may add or
    // remove observers while we walk the list.
    it->removeIf([](const Observer &o) { return o.hasContext && o.context.isNull(); });
    const QList<Observer> observers = *it;
    for (const Observer &observer : observers) {
        if (observer.hasContext && observer.context.isNull())
            continue;
        observer.handler(userInfo);
    }
}
