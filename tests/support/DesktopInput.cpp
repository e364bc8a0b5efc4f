#include "DesktopInput.h"

#include <QDebug>
#include <QProcess>

namespace {
// Generous: a script may hold keys for seconds on purpose, and CI machines are slow.
constexpr int kInjectorTimeoutMs = 30000;
} // namespace

namespace DesktopInput {

bool inject(const QStringList &steps)
{
    QProcess injector;
    injector.start(QStringLiteral(TOLKARO_XTEST_INJECT), steps);
    if (!injector.waitForFinished(kInjectorTimeoutMs)) {
        qWarning() << "tolkaro-xtest-inject did not finish:" << injector.errorString();
        injector.kill();
        injector.waitForFinished();
        return false;
    }
    if (injector.exitStatus() != QProcess::NormalExit || injector.exitCode() != 0) {
        qWarning() << "tolkaro-xtest-inject:" << injector.readAllStandardError();
        return false;
    }
    return true;
}

bool click(const QPoint &screenPoint)
{
    return inject({QStringLiteral("click:%1,%2").arg(screenPoint.x()).arg(screenPoint.y())});
}

bool focusByClick(const QPoint &screenPoint)
{
    return inject({QStringLiteral("click:%1,%2").arg(screenPoint.x()).arg(screenPoint.y()),
                   QStringLiteral("waitfocus")});
}

} // namespace DesktopInput
