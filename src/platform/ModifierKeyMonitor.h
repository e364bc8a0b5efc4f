#pragma once

#include "gesture/ModifierGestureDetector.h"

#include <QObject>

// The key source: watches the gesture keys of the whole session and reports each change as
// a GestureKeyEvent. Only gesture keys ever leave a backend; every other key is dropped
// where it arrives. Main thread only: events are delivered by the main event loop, one at a
// time, in the order they happened. Backends come from Platform.
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
    // What the user must set up before install() can work in this session (a desktop helper
    // to install or switch on), in a sentence for the permission dialog; empty when nothing
    // can be done about it or nothing needs doing.
    virtual QString setupNeeded() const { return {}; }
    // Does what setupNeeded() asks where Tolkaro can do it for the user; false when it could
    // not (or the user must log in again first).
    virtual bool runSetup() { return false; }

signals:
    void keyEvent(const GestureKeyEvent &event);
};
