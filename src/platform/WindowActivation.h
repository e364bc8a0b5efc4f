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
    // The active window, 0 when none or unknown.
    virtual WindowId activeWindow() = 0;
    // Gives the keyboard focus to one of our windows that the window manager does not
    // manage (it cannot ask for it otherwise).
    virtual void takeFocus(QWindow *window) = 0;
    // Asks the window manager to activate `window`; false when not asked.
    virtual bool requestActivation(WindowId window) = 0;
    // The window is active and holds the keyboard focus.
    virtual bool isActiveWithFocus(WindowId window) = 0;
};
