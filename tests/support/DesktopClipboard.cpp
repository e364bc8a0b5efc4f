#include "DesktopClipboard.h"

#include <QProcess>
#include <QTest>

namespace DesktopClipboard {

std::optional<QByteArray> bytes(const QString &format)
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

QStringList targets()
{
    QStringList targets = QString::fromLatin1(bytes(QStringLiteral("TARGETS")).value_or(""))
                              .split(u'\n', Qt::SkipEmptyParts);
    targets.sort();
    return targets;
}

bool setText(const QByteArray &text)
{
    QProcess xclip;
    xclip.start(QStringLiteral("xclip"), {QStringLiteral("-selection"), QStringLiteral("clipboard"),
                                          QStringLiteral("-i")});
    xclip.write(text);
    xclip.closeWriteChannel();
    return QTest::qWaitFor([&] { return xclip.state() == QProcess::NotRunning; }, 5000) &&
           QTest::qWaitFor([&] { return bytes() == text; }, 5000);
}

} // namespace DesktopClipboard
