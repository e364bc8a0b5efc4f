#pragma once

#include "platform/GlobalHotKey.h"

#include <QList>
#include <QTimer>

#include <xcb/xcb.h>

class QSocketNotifier;

// The X11 hot key: a passive key grab on the root window, over a connection of its own read
// when its socket becomes readable. Each combination is grabbed four times, with and without
// Caps Lock and Num Lock, since the server compares the whole modifier state. Another
// client's grab on the same combination makes the server refuse ours (BadAccess): that is
// how "the desktop already uses this shortcut" is found out.
//
// A press activates the grab, which would hold the whole keyboard until the key goes up;
// it is let go at once so the typing panel can take the keyboard for itself. Presses of
// the same key are then ignored until it has been released, so a held key repeating
// does not open and close the panel over and over.
class GlobalHotKeyX11 : public GlobalHotKey
{
    Q_OBJECT

public:
    // An empty display name means $DISPLAY.
    explicit GlobalHotKeyX11(const QString &displayName = QString(), QObject *parent = nullptr);
    ~GlobalHotKeyX11() override;

    bool isValid() const override { return m_connection != nullptr; }
    BindResult bind(const StoredShortcut &shortcut) override;
    void unbind() override;
    StoredShortcut boundShortcut() const override { return m_shortcut; }

private:
    struct Grab
    {
        xcb_keycode_t keyCode;
        quint16 modifiers;
    };

    void readEvents();
    void handleKeyPress(const xcb_key_press_event_t *event);
    void checkActivationKeyReleased();
    void ungrabAll();

    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_root = XCB_WINDOW_NONE;
    QSocketNotifier *m_notifier = nullptr;
    StoredShortcut m_shortcut;
    quint16 m_modifierMask = 0;
    quint16 m_lockMasks = 0;
    QList<Grab> m_grabs;
    // The key that last activated the shortcut, while it is still held.
    xcb_keycode_t m_heldKeyCode = 0;
    QTimer m_releasePoll;
};
