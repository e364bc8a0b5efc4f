#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class Preferences;

// Offers, once at start-up, to move a self-contained copy of Tolkaro (an AppImage or a bare
// executable) started from outside the applications directories into ~/Applications, trashes
// the old copy and starts the new one. Runs modally on the main thread.

// The alerts of the move, behind an interface so that tests can answer them.
class MoveAlerts
{
public:
    struct Answer
    {
        bool move = false;     // the first button
        bool suppress = false; // the check box
    };
    virtual ~MoveAlerts() = default;
    virtual Answer askToMove() = 0;
    virtual void showFailureAlert() = 0;
};

// The places, the answers and the relaunch of one run of the procedure.
struct MoveEnvironment
{
    QString selfPath;                    // what would be moved
    QStringList applicationsDirectories; // where a copy counts as installed
    QString destinationDirectory;        // where it goes; empty: none found
    Preferences *preferences = nullptr;
    MoveAlerts *alerts = nullptr;
    // Starts the moved copy; answers whether it started.
    std::function<bool(const QString &program)> relaunch;
};

// Starts program once the process processId has ended (waiting at most 10 s), detached from
// this one. Answers false when program cannot be started at all.
bool relaunchAfterExit(const QString &program, qint64 processId);

// This process's environment: $APPIMAGE or this executable, the user's directories, the
// user's preferences, modal message boxes, and a relaunch once this process has ended.
MoveEnvironment currentMoveEnvironment(Preferences *preferences, MoveAlerts *alerts);

// Runs the whole procedure in the given environment. Answers true when the moved copy was
// started and this process should end now.
bool moveToApplicationsFolderIfNecessary(const MoveEnvironment &environment);

// The procedure for this process, with message boxes. True: a new copy runs; quit now.
bool PFMoveToApplicationsFolderIfNecessary();
