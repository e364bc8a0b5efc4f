#pragma once

#include "platform/atspi/UIElement.h"

#include <QString>

#include <optional>

// What a capture of the text under the pointer found: the text, and the element it came
// from, whose application a paste of the translation goes to. The element is found before
// the text, so a capture may have one without the other; it is null when no element was
// found at all.
struct CapturedText
{
    std::optional<QString> text;
    UIElement target;
};
