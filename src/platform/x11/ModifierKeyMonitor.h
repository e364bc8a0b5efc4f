#pragma once

#include "gesture/ModifierGestureDetector.h"

#include <QObject>
#include <QString>

#include <memory>

// Watches the modifier keys of the whole session and reports each change as a
// ModifierEvent: the flags held after it and the key that changed. Only modifier changes
// ever leave a backend; every other key is dropped where it arrives. Main thread only:
// events are delivered by the main event loop, one at a time, in the order they happened.
class ModifierKeyMonitor : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    ~ModifierKeyMonitor() override = default;

    // Starts watching; false when this session offers no way to do it. Installing an
    // installed monitor does nothing and answers true.
    virtual bool install() = 0;
    // Stops watching. The gesture state above is left as it is.
    virtual void remove() = 0;
    virtual bool isInstalled() const = 0;
    // Whether install() would succeed now, without installing.
    virtual bool canInstall() const = 0;

    // The backend for this session: X11 (XInput 2.2 raw key events), with the key that
    // stands in for fn given by its X keysym name ("Super_L").
    static std::unique_ptr<ModifierKeyMonitor> create(const QString &fnStandInKey,
                                                      QObject *parent = nullptr);

signals:
    void modifierEvent(const ModifierEvent &event);
};
