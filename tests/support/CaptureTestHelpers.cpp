#include "CaptureTestHelpers.h"

#include "UIElementSearch.h"
#include "platform/atspi/UIElementUtilities.h"

#include <QProcess>
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

std::optional<QByteArray> clipboardBytesSeenByOthers(const QString &format)
{
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"),
                {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-o"),
                 QStringLiteral("-t"), format});
    QByteArray bytes;
    // The bound is a hang guard, not a speed.
    const bool finished = QTest::qWaitFor(
        [&] {
            bytes += xclip.readAllStandardOutput();
            return xclip.state() == QProcess::NotRunning;
        },
        30000);
    bytes += xclip.readAllStandardOutput();
    if (!finished || xclip.exitCode() != 0)
        return std::nullopt;
    return bytes;
}

QStringList clipboardTargetsSeenByOthers()
{
    QStringList targets =
        QString::fromLatin1(clipboardBytesSeenByOthers(QStringLiteral("TARGETS")).value_or(""))
            .split(u'\n', Qt::SkipEmptyParts);
    targets.sort();
    return targets;
}

} // namespace CaptureTestHelpers
