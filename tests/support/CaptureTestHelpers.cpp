#include "CaptureTestHelpers.h"

#include "DesktopClipboard.h"
#include "DesktopInput.h"
#include "UIElementSearch.h"
#include "platform/atspi/UIElementUtilities.h"

#include <QFile>
#include <QTest>

#include <algorithm>

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

bool clickToFocus(const UIElement &element)
{
    return DesktopInput::click(UIElementUtilities::frameOfUIElement(element).center().toPoint()) &&
           QTest::qWaitFor([&] {
               const UIElementValue focused =
                   UIElementUtilities::valueOfAttribute(QStringLiteral("AXFocused"), element);
               return std::get_if<double>(&focused) && std::get<double>(focused) == 1;
           });
}

bool ClipboardOwner::own(const ClipboardFormats &formats)
{
    stop();
    m_formats = formats;
    QStringList arguments{QStringLiteral("--own-clipboard")};
    for (qsizetype i = 0; i < formats.size(); ++i) {
        const QString path = m_files.filePath(QStringLiteral("format%1").arg(i));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(formats[i].second) != formats[i].second.size())
            return false;
        arguments << QStringLiteral("%1=%2").arg(formats[i].first, path);
    }
    m_process.start(m_probePath, arguments);
    QByteArray output;
    // The smallest format, to be quick.
    const auto smallest = std::min_element(formats.cbegin(), formats.cend(), [](auto &a, auto &b) {
        return a.second.size() < b.second.size();
    });
    const bool owning = QTest::qWaitFor(
        [&] {
            output += m_process.readAllStandardOutput();
            return output.contains("OWNING");
        },
        30000);
    if (!owning ||
        !QTest::qWaitFor([&] { return DesktopClipboard::bytes(smallest->first) == smallest->second; },
                         30000))
        return false;
    m_targets = DesktopClipboard::targets();
    return true;
}

void ClipboardOwner::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000))
        m_process.kill();
    m_process.waitForFinished(5000);
}

QString ClipboardOwner::changes() const
{
    for (const auto &[format, bytes] : m_formats) {
        const std::optional<QByteArray> now = DesktopClipboard::bytes(format);
        if (!now)
            return QStringLiteral("unreadable: ") + format;
        if (*now != bytes)
            return QStringLiteral("changed: %1, now %2 bytes").arg(format).arg(now->size());
    }
    const QStringList targets = DesktopClipboard::targets();
    return targets == m_targets ? QString()
                                : QStringLiteral("formats now: ") + targets.join(u' ');
}

} // namespace CaptureTestHelpers
