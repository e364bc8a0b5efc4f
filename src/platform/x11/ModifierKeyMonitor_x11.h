#pragma once

#include "platform/x11/ModifierKeyMonitor.h"

#include <xcb/xcb.h>

#include <array>
#include <bitset>
#include <vector>

class QSocketNotifier;

// The X11 key monitor: XInput 2.2 raw key events of all master keyboards, selected on the
// root window over a connection of its own and read when its socket becomes readable. Raw
// events arrive whichever application has the focus, and even while another client holds a
// keyboard grab; no key is grabbed, so nothing is taken away from the applications.
//
// Keys are told apart by the keysym at the first level of their key code, looked up afresh
// whenever the keyboard mapping changes, and reported with the virtual key codes and flag
// bits the gesture expects: left/right Control 59/62, left/right Alt (Option) 58/61, and
// the fn stand-in key as fn (63). Shift (56/60) and Super (Command, 55/54) changes are
// reported as well, as modifier changes. Any other key is dropped on arrival and never
// stored or logged. Key events announced by Tolkaro's own key sender are passed over (see
// SyntheticKeyEvents.h).
class ModifierKeyMonitorX11 : public ModifierKeyMonitor
{
    Q_OBJECT

public:
    // An empty display name means $DISPLAY. The fn stand-in is an X keysym name; an unknown
    // name leaves fn without a key.
    ModifierKeyMonitorX11(const QString &displayName, const QString &fnStandInKey,
                          QObject *parent = nullptr);
    ~ModifierKeyMonitorX11() override;

    bool install() override;
    void remove() override;
    bool isInstalled() const override { return m_connection != nullptr; }
    bool canInstall() const override;

    void setFnStandInKey(const QString &keysymName);

private:
    struct KeyRole
    {
        quint16 keyCode = 0; // 0: not a modifier this monitor reports
        quint64 flag = 0;
    };

    void readEvents();
    void handleEvent(const xcb_generic_event_t *event);
    void handleRawKey(bool pressed, quint32 keycode, quint16 sourceDevice);
    void refreshKeyRoles();
    void refreshXTestDevices();
    void resyncPressedKeys();
    quint64 heldFlags() const;
    void disconnectFromServer();

    QString m_displayName;
    xcb_keysym_t m_fnStandInKeysym = 0;
    xcb_connection_t *m_connection = nullptr;
    quint8 m_xinputOpcode = 0;
    QSocketNotifier *m_notifier = nullptr;
    std::array<KeyRole, 256> m_roles{};
    std::bitset<256> m_pressed; // only keys with a role are ever set
    std::vector<quint16> m_xtestDevices;
};
