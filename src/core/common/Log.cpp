#include "common/Log.h"

#include <QMutex>
#include <QMutexLocker>

#include <atomic>
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

std::atomic<bool> &verboseFlag()
{
    static std::atomic<bool> verbose(qEnvironmentVariable("TOLKARO_DEBUG") == QLatin1String("1"));
    return verbose;
}

QString lengthOf(const QString &text)
{
    return text.size() == 1 ? QStringLiteral("1 character")
                            : QStringLiteral("%1 characters").arg(text.size());
}

} // namespace

bool isVerbose()
{
    return verboseFlag();
}

void setVerbose(bool verbose)
{
    verboseFlag() = verbose;
}

QString privateText(const QString &text)
{
    return isVerbose() ? text : lengthOf(text);
}

QString quotedPrivateText(const QString &text)
{
    return isVerbose() ? QLatin1Char('"') + text + QLatin1Char('"') : lengthOf(text);
}

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
