#include "presentation/PopoverPlacement.h"

#include <algorithm>

namespace PopoverPlacement {
namespace {

// Clamps a span [start, start + length) into [low, high). A span longer than the range
// starts at low, so its beginning (where text starts) stays visible.
int clampSpan(int start, int length, int low, int high)
{
    if (length >= high - low)
        return low;
    return std::clamp(start, low, high - length);
}

} // namespace

Placement placePopover(QPoint pointer, QSize popoverSize, QRect screen)
{
    const QRect area =
        screen.adjusted(kScreenMargin, kScreenMargin, -kScreenMargin, -kScreenMargin);
    const int areaBottom = area.y() + area.height();
    const int areaRight = area.x() + area.width();

    Placement placement;
    placement.topLeft.setX(
        clampSpan(pointer.x() - popoverSize.width() / 2, popoverSize.width(), area.x(), areaRight));

    const int belowTop = pointer.y() + kGapBelowPointer;
    const int aboveTop = pointer.y() - kGapAbovePointer - popoverSize.height();
    if (belowTop + popoverSize.height() <= areaBottom) {
        placement.topLeft.setY(belowTop);
    } else if (aboveTop >= area.y()) {
        placement.topLeft.setY(aboveTop);
        placement.abovePointer = true;
    } else {
        // Fits on neither side: take the roomier side and keep it on the screen, covering
        // the pointer if it must.
        const int roomBelow = areaBottom - belowTop;
        const int roomAbove = pointer.y() - kGapAbovePointer - area.y();
        placement.abovePointer = roomAbove > roomBelow;
        const int wanted = placement.abovePointer ? aboveTop : belowTop;
        placement.topLeft.setY(clampSpan(wanted, popoverSize.height(), area.y(), areaBottom));
    }
    return placement;
}

} // namespace PopoverPlacement

QRectF themedWindowMapRect(QSizeF windowSize)
{
    const qreal w = windowSize.width();
    const qreal h = windowSize.height();
    if (w > h)
        return QRectF(0, -(w - h) * 0.5, w, w);
    return QRectF(-(h - w) * 0.5, 0, h, h);
}
