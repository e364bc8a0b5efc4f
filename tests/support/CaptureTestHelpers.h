#pragma once

#include "platform/atspi/UIElement.h"

#include <QString>

// What capture tests do to the target applications, through the same AT-SPI thread as the
// code under test.
namespace CaptureTestHelpers {

// The element's AXValue as text.
QString valueText(const UIElement &element);

// Sets a text element's whole text and waits until it reports it.
bool setText(const UIElement &element, const QString &text);

// Selects length units from start in a text element and waits until it reports that
// selection (length 0: any empty selection).
bool select(const UIElement &element, int start, int length);

} // namespace CaptureTestHelpers
