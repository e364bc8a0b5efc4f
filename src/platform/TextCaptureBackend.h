#pragma once

#include "platform/PointerLocator.h"

#include <QPoint>
#include <QString>

#include <Qt>

#include <chrono>
#include <optional>

// What text capture needs from the windowing system, beside AT-SPI: whose window is under
// the pointer, which window is active, who owns the PRIMARY selection, the modifier keys,
// and synthetic keystrokes (through the platform's key sender). One backend per session,
// handed out by Platform; the null one can do nothing, so the interface can grey out what
// this session cannot do. Main thread only.
class TextCaptureBackend
{
public:
    virtual ~TextCaptureBackend() = default;

    // The backend of this process's platform.
    static TextCaptureBackend &instance();

    // Text under the pointer can be read at all (a display and the accessibility bus).
    virtual bool isValid() const = 0;
    // A selection can be replaced in another application (AT-SPI or synthetic keystrokes).
    virtual bool canReplaceSelection() const = 0;

    using WindowAtPoint = PointerLocator::WindowAtPoint;
    virtual WindowAtPoint windowAtPoint(const QPoint &screenPoint) = 0;
    // The process and the window class (WM_CLASS) of the active window; 0 and empty when
    // no window is active.
    virtual qint64 activeWindowProcess() = 0;
    virtual QString activeWindowClass() = 0;
    // The process owning the PRIMARY selection, 0 when nobody owns it.
    virtual qint64 primarySelectionOwnerProcess() = 0;
    // PRIMARY is owned by the top-level window under the point or a window inside it (a
    // program without accessibility is known by its window: it may not name its process).
    virtual bool primarySelectionOwnedAt(const QPoint &screenPoint)
    {
        Q_UNUSED(screenPoint);
        return false;
    }
    // PRIMARY's text, read by the backend itself; nothing when it cannot (then the toolkit's
    // clipboard reads it).
    virtual std::optional<QString> primarySelectionText() { return std::nullopt; }
    // How many times PRIMARY has changed hands since the backend began watching; a backend
    // that cannot watch answers 0, so PRIMARY is never fresh there.
    virtual quint64 primarySelectionChanges() { return 0; }
    // Any Shift, Control, Alt or Super key is down.
    virtual bool modifierKeysDown() = 0;
    // Releases every modifier key the server thinks is down.
    virtual void releaseHeldModifiers() = 0;
    // Sends Ctrl and a letter key (Qt::Key_C, Qt::Key_V) to the focused window.
    virtual bool sendControlKeystroke(Qt::Key key) = 0;
    // What Tolkaro puts on the clipboard reaches the active window (KWin hands the clipboard
    // of an X11 client to native Wayland windows only while an X11 window is active).
    virtual bool clipboardReachesActiveWindow() { return true; }
    // How long a clipboard Tolkaro just set takes to reach the other applications (a
    // Wayland compositor hands XWayland's clipboard on to its own clients a moment later).
    virtual std::chrono::milliseconds clipboardHandOverDelay() const
    {
        return std::chrono::milliseconds(0);
    }
};
