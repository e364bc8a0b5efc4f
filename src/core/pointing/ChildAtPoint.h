#pragma once

#include <QList>
#include <QPoint>
#include <QRect>

#include <optional>

// Which children of an element the search for the element under a point goes into, from
// what the children report of themselves. Toolkits' own answer to "what is at this point"
// fails in real trees: a hidden widget that still claims its old place, a tab whose extents
// are (-1, -1, -1, -1) or only its label's, a bar overlapping a larger view.
namespace ChildAtPoint {

// What one child reports.
struct Child
{
    // On screen: SHOWING, or VISIBLE where a toolkit leaves SHOWING out (GTK 4).
    bool shown = false;
    // Its extents; nullopt when they could not be read or do not describe it (a page tab's
    // are its label's): such a child is searched by its own children's extents.
    std::optional<QRect> extents;
};

// Extents as a toolkit reports them; nullopt for the placeholder of a container that does
// not know its place (negative width or height, as GTK 3 reports a notebook page).
std::optional<QRect> fromReportedExtents(const QRect &reported);

// The children to search, best first: shown children whose extents contain the point,
// the smallest first (of equal ones the later, which toolkits paint on top); then shown
// children without usable extents, in their order. Children that are not shown, whose
// extents are empty or lie elsewhere, are left out. Indices into `children`.
QList<int> searchOrder(const QList<Child> &children, const QPoint &point);

} // namespace ChildAtPoint
