#pragma once

#include <QPoint>
#include <QString>

#include <cstdint>
#include <memory>
#include <optional>

// What text capture needs from the windowing system, beside AT-SPI: whose window is under
// the pointer, which window is active, who owns the PRIMARY selection, the modifier keys,
// and synthetic keystrokes. One backend per windowing system, chosen at run time by
// instance(): X11 when there is an X display, else a backend that can do nothing, so the
// interface can grey out what this session cannot do. Main thread only.
class TextCaptureBackend
{
public:
    virtual ~TextCaptureBackend() = default;

    // The chosen backend for this process.
    static TextCaptureBackend &instance();

    // Text under the pointer can be read at all (a display and the accessibility bus).
    virtual bool isValid() const = 0;
    // A selection can be replaced in another application (AT-SPI or synthetic keystrokes).
    virtual bool canReplaceSelection() const = 0;

    // The topmost window under a point in screen pixels, never one of this process: its
    // process (0 when there is none) and its top-left corner on the screen.
    struct WindowAtPoint
    {
        qint64 pid = 0;
        QPoint origin;
    };
    virtual WindowAtPoint windowAtPoint(const QPoint &screenPoint) = 0;
    // The process and the window class (WM_CLASS) of the active window; 0 and empty when
    // no window is active.
    virtual qint64 activeWindowProcess() = 0;
    virtual QString activeWindowClass() = 0;
    // The process owning the PRIMARY selection, 0 when nobody owns it.
    virtual qint64 primarySelectionOwnerProcess() = 0;
    // Any Shift, Control, Alt or Super key is down.
    virtual bool modifierKeysDown() = 0;
    // Releases every modifier key the server thinks is down (the user's Alt would turn a
    // synthetic Ctrl+C into Ctrl+Alt+C).
    virtual void releaseHeldModifiers() = 0;
    // Sends Ctrl and the key (an X keysym) to the focused window.
    virtual bool sendControlKeystroke(uint32_t keysym) = 0;
};
