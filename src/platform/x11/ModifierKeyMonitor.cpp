#include "platform/x11/ModifierKeyMonitor.h"

#include "platform/x11/ModifierKeyMonitor_x11.h"

std::unique_ptr<ModifierKeyMonitor> ModifierKeyMonitor::create(const QString &fnStandInKey,
                                                               QObject *parent)
{
    // X11 is the only backend so far; under Wayland it still serves X11 applications
    // through XWayland, and install() says when there is no X display at all.
    return std::make_unique<ModifierKeyMonitorX11>(QString(), fnStandInKey, parent);
}
