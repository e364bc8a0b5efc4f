#pragma once

#include <QString>
#include <QStringList>

// When Tolkaro offers to move itself into the user's applications folder. Pure functions.
namespace MoveRules {

enum class MoveOffer
{
    Offer,                 // ask the user
    Suppressed,            // the user said not to ask again
    AlreadyInApplications, // started from one of the applications directories
    DevelopmentBuild,      // "build" in the path: a development build is never moved
};

// The directories where a copy counts as installed, in the order they are tried:
// ~/Applications, ~/.local/bin, /opt, /usr/bin, /usr/local/bin.
QStringList applicationsDirectories(const QString &homePath);
// Where a copy is moved: ~/Applications. Empty when there is no home directory.
QString applicationsDestination(const QString &homePath);

// The decision for a copy at selfPath. A directory matches by a plain text prefix (so
// "/optional/x" is inside "/opt"), and the "build" test is made while looking at the first
// directory, so it applies only when there is at least one directory.
MoveOffer decideMoveOffer(const QString &selfPath, const QStringList &applicationsDirectories,
                          bool suppressed);

} // namespace MoveRules
