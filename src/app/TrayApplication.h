#pragma once

#include <QString>
#include <QStringList>

class QApplication;

// Before any application object exists: empty when the tray application can reach a
// desktop (an X11 or Wayland display, or a Qt platform chosen by hand), else the message
// to print: no graphical session, which variables were looked at, and what works without.
QString missingGraphicalSession(const QStringList &arguments);

// Before the application object exists: Tolkaro's open menus (the tray menu and its
// submenus) become children of its accessibility root, so assistive technology reads their
// items. Qt leaves popups out of the application's children.
void installAccessibleApplication();

// Runs Tolkaro as the tray application of the user's session: one instance per session,
// the start-up sequence, then the event loop until Quit, SIGTERM or SIGINT, after which
// the preferences are on disk. Answers the process's exit status.
int runTrayApplication(QApplication &app);
