#include "pointing/ChildAtPoint.h"

#include <algorithm>

std::optional<QRect> ChildAtPoint::fromReportedExtents(const QRect &reported)
{
    if (reported.width() < 0 || reported.height() < 0)
        return std::nullopt;
    return reported;
}

QList<int> ChildAtPoint::searchOrder(const QList<Child> &children, const QPoint &point)
{
    QList<int> containing;
    QList<int> unplaced;
    for (int i = 0; i < int(children.size()); ++i) {
        const Child &child = children[i];
        if (!child.shown)
            continue;
        if (!child.extents)
            unplaced.append(i);
        else if (!child.extents->isEmpty() && child.extents->contains(point))
            containing.append(i);
    }
    const auto area = [&](int i) {
        return qint64(children[i].extents->width()) * children[i].extents->height();
    };
    std::stable_sort(containing.begin(), containing.end(), [&](int a, int b) {
        return area(a) < area(b) || (area(a) == area(b) && a > b);
    });
    return containing + unplaced;
}
