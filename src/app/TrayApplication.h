#pragma once

class QApplication;

// Runs Tolkaro as the tray application of the user's session: one instance per session,
// the start-up sequence, then the event loop until Quit, SIGTERM or SIGINT, after which
// the preferences are on disk. Answers the process's exit status.
int runTrayApplication(QApplication &app);
