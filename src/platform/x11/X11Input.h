#pragma once

#include <QList>

#include <xcb/xcb.h>

// Keyboard and focus requests shared by the hot key and the typing panel: which key codes
// type a key symbol, whether a key is down, which modifier bit Num Lock sets, which window
// is active and asking the window manager to activate another. Each takes the connection to use
// (its own, or Qt's); blocking round trips, main thread.
namespace X11Input {

// Key codes whose first group types keySym at level 1 or 2 (a letter matches either case).
QList<xcb_keycode_t> keyCodesForKeySym(xcb_connection_t *connection, quint32 keySym);

// Whether any key producing keySym is down at this moment.
bool isKeySymDown(xcb_connection_t *connection, quint32 keySym);

// The core modifier bit Num Lock sets (usually Mod2), 0 when no key is Num Lock.
quint16 numLockMask(xcb_connection_t *connection);

// _NET_ACTIVE_WINDOW of the first screen's root, 0 when none or no EWMH manager.
xcb_window_t activeWindow(xcb_connection_t *connection);

// Whether the X input focus is on `window` or inside it.
bool inputFocusIsWithin(xcb_connection_t *connection, xcb_window_t window);

// Asks the window manager to activate `window` (a _NET_ACTIVE_WINDOW client message from
// a pager, which managers honour without focus-stealing checks). False when not sent.
bool requestActivation(xcb_connection_t *connection, xcb_window_t window);

} // namespace X11Input
