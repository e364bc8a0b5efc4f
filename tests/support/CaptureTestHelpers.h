#pragma once

#include "platform/atspi/UIElement.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

// What capture tests do to the target applications and read of the clipboard, through the
// same AT-SPI thread as the code under test.
namespace CaptureTestHelpers {

// The element's AXValue as text.
QString valueText(const UIElement &element);

// Sets a text element's whole text and waits until it reports it.
bool setText(const UIElement &element, const QString &text);

// Selects length units from start in a text element and waits until it reports that
// selection (length 0: any empty selection).
bool select(const UIElement &element, int start, int length);

// The clipboard in one format as another application reads it (xclip), served meanwhile by
// this process when it owns it; read as it arrives, so that large items do not stall.
std::optional<QByteArray> clipboardBytesSeenByOthers(const QString &format);

// The clipboard's formats as another application sees them, sorted.
QStringList clipboardTargetsSeenByOthers();

} // namespace CaptureTestHelpers
