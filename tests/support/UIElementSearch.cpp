// libatspi pulls in GLib, whose structs have members named like Qt's keywords: it comes first.
#include <atspi/atspi.h>

#include "UIElementSearch.h"

#include "platform/atspi/UIElementUtilities.h"

#include <QGuiApplication>
#include <QScreen>

namespace UIElementSearch {

// The target windows hold a few dozen elements; this bounds a search gone astray.
constexpr int kSearchBudget = 500;

UIElement findByTitle(const UIElement &root, const QString &title)
{
    QList<UIElement> queue{root};
    for (int budget = kSearchBudget; !queue.isEmpty() && budget > 0; --budget) {
        const UIElement element = queue.takeFirst();
        if (UIElementUtilities::titleOfUIElement(element) == title)
            return element;
        queue.append(UIElementUtilities::childrenOfUIElement(element));
    }
    return {};
}

QRectF frameOfUIElement(const UIElement &element)
{
    const std::optional<QRect> extents = UIElementUtilities::extentsOfUIElement(element);
    const QList<QScreen *> screens = QGuiApplication::screens();
    if (!extents || screens.isEmpty())
        return QRectF();
    // Screen pixels back to Qt's coordinates: the inverse of carbonScreenPointFromCocoaScreenPoint.
    const QPointF origin = screens.first()->geometry().topLeft();
    const qreal ratio = screens.first()->devicePixelRatio();
    return QRectF(origin + (QPointF(extents->topLeft()) - origin) / ratio,
                  QSizeF(extents->size()) / ratio);
}

AtspiElement probeOf(const UIElement &element)
{
    AtspiAccessible *accessible = element.accessible();
    return AtspiElement(accessible ? static_cast<AtspiAccessible *>(g_object_ref(accessible))
                                   : nullptr);
}

} // namespace UIElementSearch
