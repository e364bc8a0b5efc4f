#include "DesktopInput.h"

#include <QDebug>
#include <QProcess>

namespace DesktopInput {

bool xdotool(const QStringList &commands)
{
    // A Wayland test desktop plays the same words through the compositor.
    QStringList program = qEnvironmentVariable("TOLKARO_DESKTOP_INPUT").split(u' ', Qt::SkipEmptyParts);
    if (program.isEmpty())
        program = {QStringLiteral("xdotool")};
    const QString executable = program.takeFirst();
    QProcess process;
    process.start(executable, program + commands);
    // Generous: a run may hold keys for seconds on purpose, and CI machines are slow.
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        qWarning() << program << commands << "failed:" << process.errorString()
                   << process.readAllStandardError();
        process.kill();
        process.waitForFinished();
        return false;
    }
    return true;
}

bool xdotool(const QString &commands)
{
    return xdotool(commands.split(u' ', Qt::SkipEmptyParts));
}

bool moveTo(const QPoint &screenPoint)
{
    return xdotool(QStringLiteral("mousemove %1 %2").arg(screenPoint.x()).arg(screenPoint.y()));
}

bool click(const QPoint &screenPoint)
{
    return xdotool(
        QStringLiteral("mousemove %1 %2 click 1").arg(screenPoint.x()).arg(screenPoint.y()));
}

bool doublePressAndHold(int keyCode)
{
    return xdotool(
        QStringLiteral("keydown %1 sleep 0.06 keyup %1 sleep 0.1 keydown %1").arg(keyCode));
}

} // namespace DesktopInput
