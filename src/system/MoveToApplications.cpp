#include "system/MoveToApplications.h"

MoveEnvironment currentMoveEnvironment(Preferences *preferences, MoveAlerts *alerts)
{
    MoveEnvironment environment;
    environment.preferences = preferences;
    environment.alerts = alerts;
    return environment;
}
bool moveToApplicationsFolderIfNecessary(const MoveEnvironment &) { return false; }
bool PFMoveToApplicationsFolderIfNecessary() { return false; }
