#include "UIElement.h"

#include "AtspiThread.h"

#include <atspi/atspi.h>

UIElement UIElement::adopt(AtspiAccessible *accessible)
{
    UIElement element;
    if (!accessible)
        return element;
    element.m_accessible.reset(accessible, [](AtspiAccessible *object) {
        AtspiThread &thread = AtspiThread::instance();
        if (thread.isCurrentThread())
            g_object_unref(object);
        else
            thread.post([object] { g_object_unref(object); });
    });
    return element;
}

UIElement UIElement::retain(AtspiAccessible *accessible)
{
    return adopt(accessible ? static_cast<AtspiAccessible *>(g_object_ref(accessible)) : nullptr);
}
