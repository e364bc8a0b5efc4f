#pragma once

#include <QObject>

class QSocketNotifier;

// Tells when any mouse button goes down anywhere on the display, without a grab, so a
// transient window can close on a click elsewhere while the application the user works
// in keeps the pointer and the keyboard. X11: XInput 2.2 raw button events on the root
// window over a connection of its own. Events are selected only between start() and
// stop(), so a hidden popover costs no wake-ups. Main thread only.
class OutsideClickWatcher : public QObject
{
    Q_OBJECT
public:
    explicit OutsideClickWatcher(QObject *parent = nullptr);
    ~OutsideClickWatcher() override;

    // False where clicks cannot be watched (no X11 display, no XInput 2.2).
    bool canWatchClicks();

    void start();
    void stop();

signals:
    // A primary, middle or secondary button went down (wheel steps are not clicks).
    void buttonPressed();

private:
    bool connectToDisplay();
    void readEvents();

    struct X11State;
    X11State *m_x11 = nullptr;
    QSocketNotifier *m_notifier = nullptr;
    bool m_triedToConnect = false;
};
