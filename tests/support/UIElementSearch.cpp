#include "UIElementSearch.h"

#include "platform/atspi/UIElementUtilities.h"

namespace UIElementSearch {

// The target windows hold a few dozen elements; this bounds a search gone astray.
constexpr int kSearchBudget = 500;

QString stringOf(const UIElementValue &value)
{
    const auto *text = std::get_if<QString>(&value);
    return text ? *text : QString();
}

UIElement findByTitle(const UIElement &root, const QString &title)
{
    QList<UIElement> queue{root};
    for (int budget = kSearchBudget; !queue.isEmpty() && budget > 0; --budget) {
        const UIElement element = queue.takeFirst();
        if (stringOf(UIElementUtilities::titleOfUIElement(element)) == title)
            return element;
        const UIElementValue children =
            UIElementUtilities::valueOfAttribute(QStringLiteral("AXChildren"), element);
        if (const auto *list = std::get_if<QList<UIElement>>(&children))
            queue.append(*list);
    }
    return {};
}

} // namespace UIElementSearch
