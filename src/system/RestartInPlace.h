#pragma once

#include <QString>

// Replaces this process with a fresh start of the same program and arguments: same process
// id, same environment, same standard streams, so whatever started Tolkaro (the session's
// autostart, a terminal, a supervisor) still sees it running. Every other descriptor is
// closed on the way, the X and D-Bus connections among them, so the new start finds the tray
// and its one-instance name free. Answers only when the start failed, with the reason.
QString restartInPlace();
