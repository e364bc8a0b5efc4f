#pragma once

#include "UIElementHitTest.h"

#include <atspi/atspi.h>

// How libatspi is told which coordinates an application point is in; kept out of
// UIElementHitTest.h so that its users outside this folder need no libatspi header.
inline AtspiCoordType coordinateType(const UIElementHitTest::ApplicationPoint &at)
{
    return at.windowRelative ? ATSPI_COORD_TYPE_WINDOW : ATSPI_COORD_TYPE_SCREEN;
}
