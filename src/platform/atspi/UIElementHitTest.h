#pragma once

#include "UIElement.h"

#include <QPoint>

// Finding the element of an application under a screen point (get_accessible_at_point from
// the window under the point down to the deepest element), and how an application wants a
// screen point given. Threads and failures as in UIElementUtilities.
class UIElementHitTest
{
public:
    // The deepest element of the application at a point in screen pixels, or null. GTK 4
    // places its elements relative to their window, whose top-left corner on the screen is
    // windowOrigin; windowRelative says every toolkit does (native Wayland windows).
    static UIElement elementAtScreenPoint(const UIElement &application, const QPoint &point,
                                          const QPoint &windowOrigin = QPoint(),
                                          bool windowRelative = false);

    // Where to ask the element's application about a screen point: GTK 4 knows only
    // positions within its windows (it has no global coordinates), every other toolkit
    // screen positions, unless windowRelative says the window is a native Wayland one.
    struct ApplicationPoint
    {
        QPoint point;
        bool windowRelative = false;
    };
    static ApplicationPoint applicationPoint(const UIElement &element, const QPoint &screenPoint,
                                             const QPoint &windowOrigin,
                                             bool windowRelative = false);
    // In a Wayland session no toolkit knows where its windows are: every point is asked
    // relative to the window (set once by the platform, before any capture).
    static void setWindowCoordinatesOnly(bool windowOnly);
};
