#include "UIElementHitTest.h"

#include "AtspiGuard.h"
#include "UIElementUtilities.h"

#include <atomic>

using namespace AtspiCall;

namespace {

// Deepest descent through get_accessible_at_point; real trees are far shallower.
constexpr int kMaxPointDepth = 40;
// How deep the walk up to an ancestor with text goes before it gives up on a cycle.
constexpr int kMaxParentDepth = 100;
// How many children a search by extents looks at, where a toolkit gives no element at a point.
constexpr int kMaxChildrenSearched = 64;

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

// The child whose extents contain the point (GTK 4 answers nothing over some of its widgets,
// an entry whose inner text is not in the tree).
UIElement childContaining(const UIElement &parent, const UIElementHitTest::ApplicationPoint &at)
{
    GError *error = nullptr;
    const gint count = atspi_accessible_get_child_count(parent.accessible(), &error);
    if (failed(error) || count > kMaxChildrenSearched)
        return {};
    for (const UIElement &child : UIElementUtilities::childrenOfUIElement(parent)) {
        if (!hasInterface(child.accessible(), "Component"))
            continue;
        const std::optional<bool> inside = contains(child, at);
        if (!inside || gaveUpOnThisThread())
            return {};
        if (!*inside)
            continue;
        // GTK 4 leaves SHOWING out on the widgets inside its windows.
        if (UIElementUtilities::statesOfUIElement(child) &
            (UIElementState::Showing | UIElementState::Visible))
            return child;
    }
    return {};
}

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
        UIElement current = window;
        for (int depth = 0; current && depth < kMaxPointDepth && !gaveUpOnThisThread(); ++depth) {
            const auto component =
                interfaceOf(current.accessible(), atspi_accessible_get_component_iface);
            if (!component)
                break;
            GError *error = nullptr;
            const UIElement child = UIElement::adopt(atspi_component_get_accessible_at_point(
                component.get(), at.point.x(), at.point.y(), coordinateType(at), &error));
            if (failed(error))
                break;
            const UIElement next = child ? child : childContaining(current, at);
            if (!next || next == current)
                break;
            current = next;
        }
        return pointedElement(current, window);
    });
}
