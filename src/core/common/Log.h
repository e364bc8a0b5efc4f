#pragma once

#include <QString>

#include <functional>

// One log line per event, written to stderr (journald keeps it when Tolkaro runs as a
// service). Callable from any thread; lines are never interleaved.
namespace tolkaro {

void logLine(const QString &line);

// Tests replace the sink to read what was logged; an empty function restores stderr.
using LogSink = std::function<void(const QString &line)>;
void setLogSink(LogSink sink);

} // namespace tolkaro
