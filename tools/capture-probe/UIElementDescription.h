#pragma once

#include "platform/atspi/UIElement.h"

#include <QString>

// The full report of an element, for looking at an application by hand (the capture probe's
// --describe-at): its lineage from the application down, what it says about itself (role,
// name, description, states, extents, text, value, toolkit, key binding, object attributes)
// and its actions. Read on Tolkaro's AT-SPI thread.
QString stringDescriptionOfUIElement(const UIElement &element);
