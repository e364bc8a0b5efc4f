#include "system/RestartInPlace.h"

#include <QByteArray>
#include <QByteArrayList>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

QString restartInPlace()
{
    // The arguments exactly as given, Qt's own options included, which QCoreApplication
    // has already taken out of its list.
    QFile commandLine(QStringLiteral("/proc/self/cmdline"));
    if (!commandLine.open(QIODevice::ReadOnly))
        return commandLine.errorString();
    QByteArrayList arguments = commandLine.readAll().split('\0');
    if (!arguments.isEmpty() && arguments.constLast().isEmpty())
        arguments.removeLast();
    // After an upgrade the running file is gone and the new one is at the same path.
    QString path = QCoreApplication::applicationFilePath();
    if (path.endsWith(QLatin1String(" (deleted)")))
        path.chop(10);
    const QByteArray program = QFile::encodeName(path);
    if (arguments.isEmpty() || program.isEmpty() || !QFileInfo(QFile::decodeName(program)).isExecutable())
        return QStringLiteral("%1 cannot be started again").arg(QFile::decodeName(program));

    // Libraries open descriptors without close-on-exec now and then; one left open to the
    // X server or the session bus would keep the old tray icon or the old bus name alive.
    for (const QString &entry : QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System)) {
        bool isNumber = false;
        const int fd = entry.toInt(&isNumber);
        if (isNumber && fd > STDERR_FILENO) {
            const int flags = ::fcntl(fd, F_GETFD);
            if (flags >= 0)
                ::fcntl(fd, F_SETFD, flags | FD_CLOEXEC);
        }
    }

    std::vector<char *> argv;
    for (QByteArray &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    ::execv(program.constData(), argv.data());
    return QString::fromLocal8Bit(std::strerror(errno));
}
