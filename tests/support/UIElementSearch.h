#pragma once

#include "AtspiProbe.h"
#include "platform/atspi/AtspiCall.h"
#include "platform/atspi/UIElement.h"

#include <QRectF>
#include <QString>

#include <functional>

// Finding the target applications' widgets, and what tests read and write of them, on
// Tolkaro's AT-SPI thread: in a process that captures, libatspi belongs to that thread, so
// tests and benchmarks of capture stay on it with the code they measure.
namespace UIElementSearch {

// The first element below root (breadth first, root included) whose title is `title`.
UIElement findByTitle(const UIElement &root, const QString &title);

// Where the element is on the screen in Qt's logical coordinates (what QCursor::setPos
// takes), against the first screen; empty when unknown.
QRectF frameOfUIElement(const UIElement &element);

// The element as the desktop tests' probe reads and writes it; AT-SPI thread only.
AtspiElement probeOf(const UIElement &element);

// Runs `use` on the element's probe on the AT-SPI thread. The probe acts for the test, as a
// user would: a call of Tolkaro's that timed out just before (a busy machine) must not make
// it give up before it starts.
template <typename T>
T withProbe(const UIElement &element, std::function<T(const AtspiElement &)> use)
{
    AtspiCall::beginWork();
    return AtspiCall::run<T>([element, use = std::move(use)] { return use(probeOf(element)); });
}

} // namespace UIElementSearch
