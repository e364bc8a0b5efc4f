#include "CaptureTestHelpers.h"

#include "UIElementSearch.h"
#include "platform/atspi/UIElementUtilities.h"

#include <QTest>

namespace CaptureTestHelpers {

QString valueText(const UIElement &element)
{
    return UIElementSearch::stringOf(
        UIElementUtilities::valueOfAttribute(QStringLiteral("AXValue"), element));
}

bool setText(const UIElement &element, const QString &text)
{
    UIElementUtilities::setStringValue(text, QStringLiteral("AXValue"), element);
    return QTest::qWaitFor([&] { return valueText(element) == text; });
}

bool select(const UIElement &element, int start, int length)
{
    UIElementUtilities::setStringValue(QStringLiteral("pos=%1 len=%2").arg(start).arg(length),
                                       QStringLiteral("AXSelectedTextRange"), element);
    return QTest::qWaitFor([&] {
        const UIElementValue range = UIElementUtilities::valueOfAttribute(
            QStringLiteral("AXSelectedTextRange"), element);
        const auto *selected = std::get_if<AXRange>(&range);
        return selected && (length == 0 ? selected->length == 0
                                        : selected->location == start && selected->length == length);
    });
}

} // namespace CaptureTestHelpers
