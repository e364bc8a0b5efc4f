#include "platform/x11/XTestKeySender.h"

#include "platform/x11/SyntheticKeyEvents.h"

#include <X11/XKBlib.h>
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

XTestKeySender::XTestKeySender(const QString &displayName)
{
    const QByteArray name = displayName.toLocal8Bit();
    Display *display = XOpenDisplay(name.isEmpty() ? nullptr : name.constData());
    if (!display)
        return;
    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    if (!XTestQueryExtension(display, &eventBase, &errorBase, &major, &minor)) {
        XCloseDisplay(display);
        return;
    }
    // Keep sending while another client holds a server grab (a menu, a drag): the user's
    // keyboard works then too.
    XTestGrabControl(display, True);
    m_display = display;
}

XTestKeySender::~XTestKeySender()
{
    if (m_display)
        XCloseDisplay(m_display);
}

bool XTestKeySender::pressKeyCode(uint8_t keyCode)
{
    return sendKey(keyCode, true);
}

bool XTestKeySender::releaseKeyCode(uint8_t keyCode)
{
    return sendKey(keyCode, false);
}

bool XTestKeySender::sendKey(uint8_t keyCode, bool press)
{
    // Key codes below 8 do not exist in X.
    if (!m_display || keyCode < 8)
        return false;
    if (m_announces)
        SyntheticKeyEvents::filter().announce(keyCode, press);
    const bool sent = XTestFakeKeyEvent(m_display, keyCode, press ? True : False, CurrentTime);
    XFlush(m_display);
    return sent;
}

uint8_t XTestKeySender::keyCodeForKeysym(uint32_t keysym) const
{
    if (!m_display)
        return 0;
    int minKeyCode = 0, maxKeyCode = 0;
    XDisplayKeycodes(m_display, &minKeyCode, &maxKeyCode);
    for (int level = 0; level < 2; ++level) {
        for (int keyCode = minKeyCode; keyCode <= maxKeyCode; ++keyCode) {
            if (XkbKeycodeToKeysym(m_display, KeyCode(keyCode), 0, level) == keysym)
                return uint8_t(keyCode);
        }
    }
    return 0;
}

bool XTestKeySender::needsShift(uint8_t keyCode, uint32_t keysym) const
{
    return m_display && XkbKeycodeToKeysym(m_display, keyCode, 0, 0) != keysym &&
           XkbKeycodeToKeysym(m_display, keyCode, 0, 1) == keysym;
}

bool XTestKeySender::tapKeysym(uint32_t keysym, const QList<uint32_t> &modifierKeysyms)
{
    QList<uint8_t> modifierKeyCodes;
    for (uint32_t modifier : modifierKeysyms) {
        const uint8_t keyCode = keyCodeForKeysym(modifier);
        if (keyCode == 0)
            return false;
        modifierKeyCodes.append(keyCode);
    }
    const uint8_t keyCode = keyCodeForKeysym(keysym);
    if (keyCode == 0)
        return false;
    if (needsShift(keyCode, keysym) && !modifierKeysyms.contains(XK_Shift_L) &&
        !modifierKeysyms.contains(XK_Shift_R)) {
        const uint8_t shift = keyCodeForKeysym(XK_Shift_L);
        if (shift == 0)
            return false;
        modifierKeyCodes.append(shift);
    }

    bool sent = true;
    for (uint8_t modifier : modifierKeyCodes)
        sent = pressKeyCode(modifier) && sent;
    sent = pressKeyCode(keyCode) && sent;
    sent = releaseKeyCode(keyCode) && sent;
    for (auto it = modifierKeyCodes.crbegin(); it != modifierKeyCodes.crend(); ++it)
        sent = releaseKeyCode(*it) && sent;
    return sent;
}

QList<uint8_t> XTestKeySender::pressedKeyCodes() const
{
    QList<uint8_t> pressed;
    if (!m_display)
        return pressed;
    char keys[32] = {};
    XQueryKeymap(m_display, keys);
    for (int keyCode = 8; keyCode < 256; ++keyCode) {
        if (keys[keyCode / 8] & (1 << (keyCode % 8)))
            pressed.append(uint8_t(keyCode));
    }
    return pressed;
}

void XTestKeySender::sync()
{
    if (!m_display)
        return;
    XSync(m_display, False);
    if (m_announces)
        SyntheticKeyEvents::batchSent();
}
