#include "DesktopInput.h"

#include <QDebug>
#include <QProcess>

namespace DesktopInput {

bool xdotool(const QStringList &commands)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), commands);
    // Generous: a run may hold keys for seconds on purpose, and CI machines are slow.
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        qWarning() << "xdotool" << commands << "failed:" << process.errorString()
                   << process.readAllStandardError();
        process.kill();
        process.waitForFinished();
        return false;
    }
    return true;
}

bool moveTo(const QPoint &screenPoint)
{
    return xdotool({QStringLiteral("mousemove"), QString::number(screenPoint.x()),
                    QString::number(screenPoint.y())});
}

bool click(const QPoint &screenPoint)
{
    return xdotool({QStringLiteral("mousemove"), QString::number(screenPoint.x()),
                    QString::number(screenPoint.y()), QStringLiteral("click"), QStringLiteral("1")});
}

bool doublePressAndHold(int keyCode, int secondPressMs)
{
    const QString key = QString::number(keyCode);
    return xdotool({QStringLiteral("keydown"), key, QStringLiteral("sleep"), QStringLiteral("0.06"),
                    QStringLiteral("keyup"), key, QStringLiteral("sleep"),
                    QString::number((secondPressMs - 60) / 1000.0), QStringLiteral("keydown"), key});
}

} // namespace DesktopInput
