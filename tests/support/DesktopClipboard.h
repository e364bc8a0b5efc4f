#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// The CLIPBOARD selection as other applications see it, through xclip. Reads are served
// meanwhile by this process when it owns the clipboard, and taken as they arrive, so that
// large items do not stall.
namespace DesktopClipboard {

// The clipboard in one format (UTF8_STRING: the text); nullopt when it cannot be read.
std::optional<QByteArray> bytes(const QString &format = QStringLiteral("UTF8_STRING"));

// The clipboard's formats, sorted.
QStringList targets();

// Puts text on the clipboard from another process, which stays its owner until another
// application takes it; returns once the text is served.
bool setText(const QByteArray &text);

} // namespace DesktopClipboard
