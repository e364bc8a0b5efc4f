#pragma once

#include <QString>

#include <functional>

// One log line per event, written to stderr (journald keeps it when Tolkaro runs as a
// service). Callable from any thread; lines are never interleaved.
namespace tolkaro {

void logLine(const QString &line);

// Captured texts, translations and server answers are the user's own: a log line names
// only their length ("42 characters") unless the user asked for them ($TOLKARO_DEBUG=1 or
// --verbose). Started from the desktop, stderr ends in the journal or ~/.xsession-errors.
bool isVerbose();
void setVerbose(bool verbose);
// The text itself when verbose, else "N characters".
QString privateText(const QString &text);
// The text in double quotes when verbose, else "N characters".
QString quotedPrivateText(const QString &text);

// Tests replace the sink to read what was logged; an empty function restores stderr.
using LogSink = std::function<void(const QString &line)>;
void setLogSink(LogSink sink);

} // namespace tolkaro
