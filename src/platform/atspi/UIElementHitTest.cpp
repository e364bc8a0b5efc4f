#include "UIElementHitTest.h"

#include "AtspiGuard.h"
#include "UIElementUtilities.h"
#include "pointing/ChildAtPoint.h"

#include <QElapsedTimer>

#include <atomic>

using namespace AtspiCall;

namespace {

// Deepest descent from a window; real trees are far shallower.
constexpr int kMaxPointDepth = 40;
// How deep the walk up to an ancestor with text goes before it gives up on a cycle.
constexpr int kMaxParentDepth = 100;
// How many children of one element a search by extents looks at: a list or a table of
// thousands of rows would cost seconds, and its rows are found by the toolkit's own answer.
constexpr int kMaxChildrenSearched = 64;
// The work one search may do, in elements asked about and in time, so that a huge tree or
// a slow application cannot stall the gesture; the deepest element found so far stands.
constexpr int kMaxElementsVisited = 300;
constexpr qint64 kMaxSearchMs = 500;

AtspiCoordType coordinateType(const UIElementHitTest::ApplicationPoint &at)
{
    return at.windowRelative ? ATSPI_COORD_TYPE_WINDOW : ATSPI_COORD_TYPE_SCREEN;
}

// Whether the element's extents contain the point; nullopt when it cannot say.
std::optional<bool> contains(const UIElement &element, const UIElementHitTest::ApplicationPoint &at)
{
    const auto component = interfaceOf(element.accessible(), atspi_accessible_get_component_iface);
    if (!component)
        return std::nullopt;
    GError *error = nullptr;
    bool inside = false;
    {
        StallGuard guard;
        inside = atspi_component_contains(component.get(), at.point.x(), at.point.y(),
                                          coordinateType(at), &error);
    }
    return failed(error) ? std::nullopt : std::optional<bool>(inside);
}

// Whether the element is on screen. GTK 4 (the toolkit placing elements within their window)
// leaves SHOWING out on the widgets inside its windows, so VISIBLE stands for it there; GTK 3
// keeps VISIBLE on the pages of a notebook that are not shown.
bool isShown(const UIElement &element, const UIElementHitTest::ApplicationPoint &at)
{
    const UIElementStates states = UIElementUtilities::statesOfUIElement(element);
    return states.testFlag(UIElementState::Showing) ||
           (at.windowRelative && states.testFlag(UIElementState::Visible));
}

// What a child tells of its place, in the point's coordinates.
ChildAtPoint::Child placeOf(const UIElement &child, const UIElementHitTest::ApplicationPoint &at)
{
    ChildAtPoint::Child place;
    place.shown = isShown(child, at);
    // A page tab's extents are its tab's, not its page's: it is searched by its page.
    if (!place.shown || roleOf(child.accessible()) == ATSPI_ROLE_PAGE_TAB)
        return place;
    const auto component = interfaceOf(child.accessible(), atspi_accessible_get_component_iface);
    if (!component) {
        place.extents = QRect();
        return place;
    }
    GError *error = nullptr;
    const GMemory<AtspiRect> extents(
        atspi_component_get_extents(component.get(), coordinateType(at), &error));
    if (!failed(error) && extents)
        place.extents = ChildAtPoint::fromReportedExtents(
            QRect(extents->x, extents->y, extents->width, extents->height));
    return place;
}

// The search for the deepest element under a point, with its bound on work.
class PointSearch
{
public:
    // Where the toolkit's own answers are not trusted, children are chosen by their extents
    // alone.
    PointSearch(const UIElementHitTest::ApplicationPoint &at, bool askToolkit)
        : m_at(at), m_askToolkit(askToolkit)
    {
        m_clock.start();
    }

    // The deepest element under the point inside `element`. A `placed` element contains the
    // point and answers for itself when nothing inside it does; one without usable extents
    // (a tab) counts only through a child that contains the point.
    UIElement deepestWithin(const UIElement &element, bool placed, int depth)
    {
        const UIElement self = placed ? element : UIElement();
        if (depth >= kMaxPointDepth || exhausted())
            return self;
        ++m_visited;
        // The toolkit's own answer first: one call where it knows.
        const auto component =
            interfaceOf(element.accessible(), atspi_accessible_get_component_iface);
        if (!component)
            return self;
        GError *error = nullptr;
        const UIElement atPoint =
            m_askToolkit ? UIElement::adopt(atspi_component_get_accessible_at_point(
                               component.get(), m_at.point.x(), m_at.point.y(),
                               coordinateType(m_at), &error))
                         : UIElement();
        if (failed(error))
            return self;
        // Toolkits answer with shown children, but for the pages of a tab (GTK 3 answers
        // with a page that is not shown): asked only there, it costs nothing elsewhere.
        if (atPoint && atPoint != element && (placed || isShown(atPoint, m_at))) {
            if (UIElement found = deepestWithin(atPoint, true, depth + 1))
                return found;
        }
        // No answer, a hidden one, or one whose children all lie elsewhere: the children by
        // the extents they report (GTK 4 answers nothing over some of its widgets, GTK 3
        // nothing inside a notebook, Qt with a hidden widget over the visible ones).
        if (UIElement found = searchChildren(element, atPoint, depth))
            return found;
        return self;
    }

private:
    bool exhausted() const
    {
        return m_visited >= kMaxElementsVisited || m_clock.elapsed() > kMaxSearchMs ||
               gaveUpOnThisThread();
    }

    UIElement searchChildren(const UIElement &element, const UIElement &tried, int depth)
    {
        GError *error = nullptr;
        const gint count = atspi_accessible_get_child_count(element.accessible(), &error);
        if (failed(error) || count <= 0 || count > kMaxChildrenSearched)
            return {};
        const QList<UIElement> children = UIElementUtilities::childrenOfUIElement(element);
        QList<ChildAtPoint::Child> places;
        for (const UIElement &child : children) {
            if (exhausted())
                return {};
            ++m_visited;
            places.append(child == tried ? ChildAtPoint::Child() : placeOf(child, m_at));
        }
        for (const int index : ChildAtPoint::searchOrder(places, m_at.point)) {
            if (UIElement found =
                    deepestWithin(children[index], places[index].extents.has_value(), depth + 1))
                return found;
        }
        return {};
    }

    const UIElementHitTest::ApplicationPoint m_at;
    const bool m_askToolkit;
    QElapsedTimer m_clock;
    int m_visited = 0;
};

// The window under the point: the active one first when windows overlap.
UIElement windowAt(const UIElement &application, const UIElementHitTest::ApplicationPoint &at)
{
    UIElement window;
    for (const UIElement &candidate : UIElementUtilities::childrenOfUIElement(application)) {
        const bool inside = contains(candidate, at).value_or(false);
        if (gaveUpOnThisThread())
            break;
        if (!inside)
            continue;
        const UIElementStates states = UIElementUtilities::statesOfUIElement(candidate);
        if (!states.testFlag(UIElementState::Showing))
            continue;
        if (!window || states.testFlag(UIElementState::Active))
            window = candidate;
    }
    return window;
}

// The number of characters of the element's text; nullopt without one.
std::optional<gint> characterCount(const UIElement &element)
{
    const auto text = interfaceOf(element.accessible(), atspi_accessible_get_text_iface);
    if (!text)
        return std::nullopt;
    GError *error = nullptr;
    const gint count = atspi_text_get_character_count(text.get(), &error);
    return failed(error) ? std::nullopt : std::optional<gint>(count);
}

// What the user points at, for the element get_accessible_at_point ended with.
UIElement pointedElement(const UIElement &deepest, const UIElement &window)
{
    if (!deepest || deepest == window)
        return deepest;
    // Chromium answers with the run of text under the point where a paragraph mixes text
    // and links: the paragraph, whose hypertext holds the run, is what the user points at.
    if (roleOf(deepest.accessible()) == ATSPI_ROLE_STATIC) {
        const UIElement parent = UIElementUtilities::parentOfUIElement(deepest);
        if (parent && parent != window && hasInterface(parent.accessible(), "Hypertext"))
            return parent;
    }
    // Qt answers with the deepest element at once, and its text views hold a viewport and
    // scroll bars: what the user points at is the text around them.
    if (!hasInterface(deepest.accessible(), "Text")) {
        UIElement ancestor = UIElementUtilities::parentOfUIElement(deepest);
        for (int depth = 0; ancestor && ancestor != window && depth < kMaxParentDepth; ++depth) {
            if (hasInterface(ancestor.accessible(), "Text"))
                return ancestor;
            ancestor = UIElementUtilities::parentOfUIElement(ancestor);
        }
    }
    return deepest;
}

std::atomic<bool> windowCoordinatesOnly{false};

} // namespace

void UIElementHitTest::setWindowCoordinatesOnly(bool windowOnly)
{
    windowCoordinatesOnly = windowOnly;
}

UIElementHitTest::ApplicationPoint UIElementHitTest::applicationPoint(const UIElement &element,
                                                                      const QPoint &screenPoint,
                                                                      const QPoint &windowOrigin,
                                                                      bool windowRelative)
{
    if (windowRelative || windowCoordinatesOnly)
        return {screenPoint - windowOrigin, true};
    const UIElementToolkit toolkit = UIElementUtilities::toolkitOfUIElement(element);
    if (toolkit.name.compare(QLatin1String("gtk"), Qt::CaseInsensitive) != 0 ||
        !toolkit.version.startsWith(QLatin1String("4.")))
        return {screenPoint, false};
    return {screenPoint - windowOrigin, true};
}

UIElement UIElementHitTest::elementAtScreenPoint(const UIElement &application,
                                                 const QPoint &screenPoint,
                                                 const QPoint &windowOrigin,
                                                 bool windowRelative)
{
    if (!application)
        return {};
    return run<UIElement>([=]() -> UIElement {
        const ApplicationPoint at =
            applicationPoint(application, screenPoint, windowOrigin, windowRelative);
        const UIElement window = windowAt(application, at);
        if (!window)
            return {};
        const UIElement pointed =
            pointedElement(PointSearch(at, true).deepestWithin(window, true, 0), window);
        if (characterCount(pointed) != 0 || gaveUpOnThisThread())
            return pointed;
        // An empty text: Qt answers with the first child that claims the point, even one
        // that another child covers (an empty bar beneath a text view). By extents alone, a
        // text may be found.
        const UIElement byExtents =
            pointedElement(PointSearch(at, false).deepestWithin(window, true, 0), window);
        return characterCount(byExtents).value_or(0) > 0 ? byExtents : pointed;
    });
}
