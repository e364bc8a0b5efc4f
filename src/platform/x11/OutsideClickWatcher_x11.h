#pragma once

#include "platform/OutsideClickWatcher.h"

class QSocketNotifier;

// X11: XInput 2.2 raw button events on the root window over a connection of its own, which
// arrive without any grab, whoever holds the pointer.
class OutsideClickWatcherX11 : public OutsideClickWatcher
{
    Q_OBJECT
public:
    explicit OutsideClickWatcherX11(QObject *parent = nullptr);
    ~OutsideClickWatcherX11() override;

    bool canWatchClicks() override;
    void start() override;
    void stop() override;

private:
    bool connectToDisplay();
    void readEvents();

    struct X11State;
    X11State *m_x11 = nullptr;
    QSocketNotifier *m_notifier = nullptr;
    bool m_triedToConnect = false;
};
