#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

// Reading and writing freedesktop desktop entry files (the .desktop format shared by menus
// and XDG Autostart). Pure text functions; no file access.
namespace DesktopEntry {

// The keys and values of the [Desktop Entry] group, with the string escapes (\s \n \t \r \\)
// undone. Localised keys stay under their full name ("Name[de]"). Other groups are ignored.
QMap<QString, QString> parseDesktopEntryGroup(const QString &text);

QString escapeValue(const QString &value);
QString unescapeValue(const QString &value);

// Splits an Exec value (already unescaped) into the program and its arguments by the
// quoting rules of the format; field codes (%f, %U...) are dropped and %% becomes %.
// Answers nothing when the quoting is broken.
std::optional<QStringList> splitExec(const QString &exec);

// One argument of an Exec line, quoted when it contains a reserved character.
QString quoteExecArgument(const QString &argument);

// The text of an autostart entry that starts the executable, named displayName.
QString autostartEntryText(const QString &displayName, const QString &executable);

// Whether the entry is switched off: Hidden=true (the entry is deleted for this user) or the
// GNOME session's X-GNOME-Autostart-enabled=false.
bool isDisabled(const QMap<QString, QString> &group);

} // namespace DesktopEntry
