#pragma once

#include <QObject>

// The outside-click seam: tells when any mouse button goes down anywhere on the screen,
// without a grab, so a transient window can close on a click elsewhere while the click
// still reaches the application under the pointer. Watching happens only between start()
// and stop(), so a hidden window costs no wake-ups. Main thread only. Backends come from
// Platform; the null one never reports (canWatchClicks() is false).
class OutsideClickWatcher : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;
    ~OutsideClickWatcher() override = default;

    // False where clicks cannot be watched (no display, no XInput 2.2).
    virtual bool canWatchClicks() = 0;
    virtual void start() = 0;
    virtual void stop() = 0;

signals:
    // A primary, middle or secondary button went down (wheel steps are not clicks).
    void buttonPressed();
};
