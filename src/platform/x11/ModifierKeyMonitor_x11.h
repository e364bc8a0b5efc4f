#pragma once

#include "platform/ModifierKeyMonitor.h"

#include <xcb/xcb.h>

#include <array>
#include <bitset>
#include <deque>
#include <optional>
#include <vector>

class QSocketNotifier;

// The X11 key monitor: XInput 2.2 raw key events of all master keyboards, selected on the
// root window over a connection of its own and read when its socket becomes readable. Raw
// events arrive whichever application has the focus, and even while another client holds a
// keyboard grab; no key is grabbed, so nothing is taken away from the applications.
//
// Keys are told apart by the keysym at the first level of their key code, looked up afresh
// whenever the keyboard mapping changes, and reported as the gesture's keys: left and right
// Control, left and right Alt (Meta and ISO_Level3_Shift count as Alt), and the configured
// alternative-language key. Any other key is dropped on arrival and never stored or logged. Key
// events announced by Tolkaro's own key sender are passed over (see SyntheticKeyEvents.h).
class ModifierKeyMonitorX11 : public ModifierKeyMonitor
{
    Q_OBJECT

public:
    // An empty display name means $DISPLAY. The alternative-language key is an X keysym
    // name; an unknown name leaves it without a key.
    ModifierKeyMonitorX11(const QString &displayName, const QString &alternativeKey,
                          QObject *parent = nullptr);
    ~ModifierKeyMonitorX11() override;

    bool install() override;
    void remove() override;
    bool isInstalled() const override { return m_connection != nullptr; }
    bool canInstall() const override;

    void setAlternativeLanguageKey(const QString &keysymName);

private:
    // What a key code means to the gesture; no value: not a key it knows.
    using KeyRole = std::optional<GestureKey>;

    void readEvents();
    void catchUpWithServer(quint64 announcedMark);
    void handleEvent(const xcb_generic_event_t *event);
    void handleRawKey(bool pressed, quint32 keycode, quint16 sourceDevice);
    void refreshKeyRoles();
    void refreshXTestDevices();
    void resyncPressedKeys();
    GestureKeys heldKeys() const;
    void disconnectFromServer();

    QString m_displayName;
    xcb_keysym_t m_alternativeKeysym = 0;
    xcb_connection_t *m_connection = nullptr;
    quint8 m_xinputOpcode = 0;
    QSocketNotifier *m_notifier = nullptr;
    std::array<KeyRole, 256> m_roles{};
    std::bitset<256> m_pressed; // only keys with a role are ever set
    std::vector<quint16> m_xtestDevices;
    // Events read ahead by catchUpWithServer(), each batch followed by a null event carrying
    // the mark of the announcements that expire there.
    std::deque<std::pair<xcb_generic_event_t *, quint64>> m_caughtUp;
};
