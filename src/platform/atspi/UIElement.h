#pragma once

#include <memory>

typedef struct _AtspiAccessible AtspiAccessible;

// A reference to an accessible object of another application (one AT-SPI object), the
// counterpart of an accessibility element. Copies share the reference. It may be held and
// dropped on any thread; the object itself is only ever touched on the AT-SPI thread, where
// the last copy's release is sent.
class UIElement
{
public:
    UIElement() = default;
    // Takes over one reference (AT-SPI thread only); null gives a null element.
    static UIElement adopt(AtspiAccessible *accessible);
    // Adds a reference of its own (AT-SPI thread only).
    static UIElement retain(AtspiAccessible *accessible);

    bool isNull() const { return !m_accessible; }
    explicit operator bool() const { return !isNull(); }
    // The same AT-SPI object (libatspi hands out one object per remote object).
    bool operator==(const UIElement &other) const { return accessible() == other.accessible(); }

    // The object, for the AT-SPI thread.
    AtspiAccessible *accessible() const { return m_accessible.get(); }

private:
    std::shared_ptr<AtspiAccessible> m_accessible;
};
