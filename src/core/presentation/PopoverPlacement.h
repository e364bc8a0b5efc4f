#pragma once

#include <QPoint>
#include <QRect>
#include <QRectF>
#include <QSize>
#include <QSizeF>

// Where the translation popover goes: centred under the pointer, kept on the screen that
// holds the pointer, and flipped above the pointer when it would leave the bottom. Pure
// geometry in one coordinate system (X11: origin top left, y grows downwards).
namespace PopoverPlacement {

// Room left between the pointer's hot spot and the popover: below it the arrow cursor's
// own picture hangs down, above it only the hot spot matters.
inline constexpr int kGapBelowPointer = 18;
inline constexpr int kGapAbovePointer = 6;
// The popover never touches the screen's edge.
inline constexpr int kScreenMargin = 4;

struct Placement
{
    QPoint topLeft;
    bool abovePointer = false;
    bool operator==(const Placement &) const = default;
};

// pointer: the hot spot; popoverSize: the window's size; screen: the available area of
// the screen under the pointer.
Placement placePopover(QPoint pointer, QSize popoverSize, QRect screen);

} // namespace PopoverPlacement

// The square a themed window's world map is drawn into: side max(width, height), centred
// on the window, so a wide window crops the map at top and bottom.
QRectF themedWindowMapRect(QSizeF windowSize);
