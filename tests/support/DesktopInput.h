#pragma once

#include <QPoint>
#include <QStringList>

// The user's keyboard and pointer for desktop tests: xdotool run as a separate process, so
// that its XTest events are the user's to every watcher in the process under test (the key
// monitor passes over only what its own process announces). Modifiers go by key code
// ("keydown 37"): by name xdotool may press the other side's key, and left and right differ
// only by key code. In a Wayland test desktop $TOLKARO_DESKTOP_INPUT plays the same words
// through the compositor instead. Each call returns once xdotool has sent everything; false, with its
// complaint logged, when it failed.
namespace DesktopInput {

// xdotool's commands in one run, e.g. {"keydown", "37", "sleep", "0.06", "keyup", "37"}, or
// the same as one string split at its spaces (nothing to type, then).
bool xdotool(const QStringList &commands);
bool xdotool(const QString &commands);
bool click(const QPoint &screenPoint);
bool moveTo(const QPoint &screenPoint);
// A key pressed, released and pressed again 0.16 s after the first press, then held: the
// gesture's double press.
bool doublePressAndHold(int keyCode);

} // namespace DesktopInput
