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
    return UIElementSearch::withProbe<QString>(element,
                                               [](const AtspiElement &probe) { return probe.text(); });
}

bool setText(const UIElement &element, const QString &text)
{
    UIElementSearch::withProbe<bool>(element,
                                     [&](const AtspiElement &probe) { return probe.setText(text); });
    return QTest::qWaitFor([&] { return valueText(element) == text; });
}

bool select(const UIElement &element, int start, int length)
{
    UIElementSearch::withProbe<bool>(element, [&](const AtspiElement &probe) {
        return probe.selectText(start, start + length);
    });
    return QTest::qWaitFor([&] {
        return UIElementSearch::withProbe<bool>(element, [&](const AtspiElement &probe) {
            return probe.selectedText() == probe.text().mid(start, length);
        });
    });
}

bool clickToFocus(const UIElement &element)
{
    return DesktopInput::click(UIElementSearch::frameOfUIElement(element).center().toPoint()) &&
           QTest::qWaitFor([&] {
               return UIElementUtilities::statesOfUIElement(element).testFlag(
                   UIElementState::Focused);
           });
}

bool ClipboardOwner::own(const ClipboardFormats &formats)
{
    stop();
    m_formats = formats;
    QStringList arguments;
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

QList<PointedWindow> pointedWindows()
{
    const QString python = QStringLiteral("/usr/bin/python3");
    const QString gtk = qEnvironmentVariable("TOLKARO_GTK_TARGET");
    const QString qt = qEnvironmentVariable("TOLKARO_QT_TARGET");
    const QString mode = QStringLiteral("--mode");
    return {{QStringLiteral("GTK 3 notebook of text views, second tab shown"), python,
             {gtk, mode, QStringLiteral("notebook")}},
            {QStringLiteral("GTK 3 long document scrolled to its end"), python,
             {gtk, mode, QStringLiteral("long")}},
            {QStringLiteral("VTE terminals in a notebook"), python,
             {gtk, mode, QStringLiteral("terminal"), QStringLiteral("--geometry"),
              QStringLiteral("40,40,900,420")}},
            {QStringLiteral("Qt 6 text view under a hidden bar, the window's first child"), qt,
             {mode, QStringLiteral("overlay")}},
            {QStringLiteral("Qt 6 long document scrolled to its end"), qt,
             {mode, QStringLiteral("long")}}};
}

void startPointedWindow(QProcess &process, const PointedWindow &window)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("GDK_BACKEND"), QStringLiteral("x11"));
    environment.insert(QStringLiteral("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"), QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    process.start(window.program, window.arguments);
}

} // namespace CaptureTestHelpers
