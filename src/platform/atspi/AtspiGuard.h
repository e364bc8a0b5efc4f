#pragma once

#include "AtspiCall.h"

#include <QHash>
#include <QString>

#include <atspi/atspi.h>

#include <memory>

// The pieces of the guarded-call layer used inside a piece of work on the AT-SPI thread:
// ownership of what libatspi hands out, and errors that set the give-up mark.
namespace AtspiCall {

// One GObject reference (an element, an interface, a state set), released by its owner.
template <typename T> struct GObjectUnref
{
    void operator()(T *object) const { g_object_unref(object); }
};
template <typename T> using GObjectRef = std::unique_ptr<T, GObjectUnref<T>>;

// Memory that g_free releases (extents, ranges).
struct GFree
{
    void operator()(void *memory) const { g_free(memory); }
};
template <typename T> using GMemory = std::unique_ptr<T, GFree>;

// A text range with its text.
struct TextRangeFree
{
    void operator()(AtspiTextRange *range) const;
};
using TextRange = std::unique_ptr<AtspiTextRange, TextRangeFree>;

// The text of a g_free'd string (UTF-8), freed.
QString takeString(gchar *text);

// Frees the error and says whether there was one. An error saying that the application did
// not answer in time sets the give-up mark.
bool failed(GError *error);

// An interface of an element (atspi_accessible_get_text_iface and its kin), or null when it
// has none or the work has given up. Asking may cost a call (the interface list).
template <typename Iface>
GObjectRef<Iface> interfaceOf(AtspiAccessible *accessible, Iface *(*get)(AtspiAccessible *))
{
    if (!accessible || gaveUpOnThisThread())
        return {};
    StallGuard guard;
    return GObjectRef<Iface>(get(accessible));
}

// The element's AT-SPI role; ATSPI_ROLE_INVALID when it cannot be read.
AtspiRole roleOf(AtspiAccessible *accessible);
// Whether the element implements an AT-SPI interface ("Text", "Hypertext"...).
bool hasInterface(AtspiAccessible *accessible, const char *name);
// The element's object attributes ("display", "toolkit", "tag"...).
QHash<QString, QString> objectAttributes(AtspiAccessible *accessible);

} // namespace AtspiCall
