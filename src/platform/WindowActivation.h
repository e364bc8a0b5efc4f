#pragma once

#include <QtGlobal>

class QWindow;

// Which window is active, and handing activation back to it: the typing panel remembers
// the window the user was in and, when it had to take the focus itself, gives it back
// before a paste. Main thread only; a backend from Platform.
class WindowActivation
{
public:
    using WindowId = quint64;

    virtual ~WindowActivation() = default;

    virtual bool canActivateWindows() const = 0;
    // Whether a keyboard grab on one of our windows receives the keys typed while another
    // window has the focus. Where it does not (XWayland on GNOME: the compositor sends
    // XWayland no keys while a native window has the focus), the typing panel is a window
    // the compositor manages and takes the focus instead.
    virtual bool keyboardGrabReachesAllKeys() const { return true; }
    // The active window, 0 when none or unknown.
    virtual WindowId activeWindow() = 0;
    // Gives the keyboard focus to one of our windows, one the window manager does not
    // manage (it cannot ask for it otherwise) or one it would not activate on our word.
    virtual void takeFocus(QWindow *window) = 0;
    // Asks the window manager to activate `window`; false when not asked.
    virtual bool requestActivation(WindowId window) = 0;
    // The window is active and holds the keyboard focus.
    virtual bool isActiveWithFocus(WindowId window) = 0;
};
