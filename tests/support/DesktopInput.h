#pragma once

#include <QPoint>
#include <QString>
#include <QStringList>

// The user's keyboard and pointer for desktop tests: tolkaro-xtest-inject run as a separate
// process, so that its XTest events are the user's to every watcher in the process under test
// (the key monitor passes over only what its own process announces). Each call returns when
// the X server has all the events; false, with the tool's complaint logged, when it failed.
namespace DesktopInput {

// Steps as tolkaro-xtest-inject takes them: "37:down@0", "Control_L:tap", "click:10,20"...
bool inject(const QStringList &steps);
bool click(const QPoint &screenPoint);
// A click that gives the window at the point the keyboard focus, as the window manager does
// it: returns once the window has it, so that keys sent next reach it.
bool focusByClick(const QPoint &screenPoint);

} // namespace DesktopInput
