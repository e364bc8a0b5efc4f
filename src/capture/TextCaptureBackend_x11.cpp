#include "capture/TextCaptureBackend_x11.h"

#include "platform/atspi/AtspiThread.h"
#include "platform/x11/SyntheticKeyEvents.h"
#include "platform/x11/X11WindowQueries.h"
#include "platform/x11/XTestKeySender.h"

#include <X11/keysym.h>
#include <unistd.h>

namespace {

const uint32_t kModifierKeysyms[] = {XK_Shift_L,   XK_Shift_R, XK_Control_L, XK_Control_R,
                                     XK_Alt_L,     XK_Alt_R,   XK_Super_L,   XK_Super_R,
                                     XK_ISO_Level3_Shift, XK_Meta_L, XK_Meta_R};

} // namespace

TextCaptureBackendX11::TextCaptureBackendX11()
    : m_windows(std::make_unique<X11WindowQueries>()), m_keys(std::make_unique<XTestKeySender>())
{
}

TextCaptureBackendX11::~TextCaptureBackendX11() = default;

bool TextCaptureBackendX11::isValid() const
{
    return m_windows->isValid() && AtspiThread::instance().isValid();
}

bool TextCaptureBackendX11::canReplaceSelection() const
{
    return isValid() || m_keys->isValid();
}

TextCaptureBackend::WindowAtPoint TextCaptureBackendX11::windowAtPoint(const QPoint &screenPoint)
{
    const auto window = m_windows->topLevelWindowAt(screenPoint, qint64(getpid()));
    if (!window)
        return {};
    return {window->pid, window->origin};
}

qint64 TextCaptureBackendX11::activeWindowProcess()
{
    return m_windows->processIdOfWindow(m_windows->activeWindow());
}

QString TextCaptureBackendX11::activeWindowClass()
{
    return m_windows->windowClass(m_windows->activeWindow());
}

qint64 TextCaptureBackendX11::primarySelectionOwnerProcess()
{
    return m_windows->processIdOfWindow(m_windows->selectionOwner("PRIMARY"));
}

bool TextCaptureBackendX11::modifierKeysDown()
{
    return m_windows->modifierKeysDown();
}

void TextCaptureBackendX11::releaseHeldModifiers()
{
    if (!m_keys->isValid())
        return;
    const QList<uint8_t> pressed = m_keys->pressedKeyCodes();
    for (const uint32_t keysym : kModifierKeysyms) {
        const uint8_t keyCode = m_keys->keyCodeForKeysym(keysym);
        if (keyCode == 0 || !pressed.contains(keyCode))
            continue;
        SyntheticKeyEvents::announce(1);
        m_keys->releaseKeyCode(keyCode);
    }
    m_keys->sync();
}

bool TextCaptureBackendX11::sendControlKeystroke(uint32_t keysym)
{
    if (!m_keys->isValid())
        return false;
    // Control down, key down, key up, Control up.
    SyntheticKeyEvents::announce(4);
    const bool sent = m_keys->tapKeysym(keysym, {XK_Control_L});
    m_keys->sync();
    return sent;
}
