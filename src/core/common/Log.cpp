#include "common/Log.h"

#include <QMutex>
#include <QMutexLocker>

#include <cstdio>

namespace tolkaro {
namespace {

QMutex &logMutex()
{
    static QMutex mutex;
    return mutex;
}

LogSink &currentSink()
{
    static LogSink sink;
    return sink;
}

} // namespace

void logLine(const QString &line)
{
    QMutexLocker locker(&logMutex());
    if (currentSink()) {
        currentSink()(line);
        return;
    }
    const QByteArray bytes = line.toUtf8();
    std::fprintf(stderr, "tolkaro: %s\n", bytes.constData());
    std::fflush(stderr);
}

void setLogSink(LogSink sink)
{
    QMutexLocker locker(&logMutex());
    currentSink() = std::move(sink);
}

} // namespace tolkaro
