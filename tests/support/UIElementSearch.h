#pragma once

#include "platform/atspi/UIElement.h"

#include <QString>

// Finding the target applications' widgets through UIElementUtilities, so that tests and
// benchmarks of capture stay on the same AT-SPI thread as the code they measure.
namespace UIElementSearch {

// The text of a value, empty when it holds none.
QString stringOf(const UIElementValue &value);

// The first element below root (breadth first, root included) whose title is `title`.
UIElement findByTitle(const UIElement &root, const QString &title);

} // namespace UIElementSearch
