#pragma once

#include <QPoint>

#include <optional>

// The pointer and the window under it. Main thread only; a backend from Platform.
class PointerLocator
{
public:
    virtual ~PointerLocator() = default;

    virtual bool canLocatePointer() const = 0;
    // The pointer in global screen coordinates (Qt's logical pixels when a GUI runs);
    // nothing when this session does not tell.
    virtual std::optional<QPoint> pointerPosition() = 0;

    // The topmost window under a point in screen pixels, never one of this process: its
    // process (0 when there is none) and its top-left corner on the screen.
    struct WindowAtPoint
    {
        qint64 pid = 0;
        QPoint origin;
        // Its toolkit knows only positions within the window (native Wayland windows).
        bool windowRelative = false;
    };
    virtual WindowAtPoint windowAtPoint(const QPoint &screenPoint) = 0;
};
