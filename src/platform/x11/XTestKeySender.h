#pragma once

#include <QList>
#include <QString>

#include <cstdint>

struct _XDisplay;

// Presses and releases keys through the XTest extension, as if on the keyboard: the focused
// window of the X server receives them. Keys are named by X key code, which is what reaches
// applications (left and right modifiers differ only there), or by keysym, resolved through
// the server's current keyboard mapping. Every call is flushed to the server before it
// returns. Uses its own X connection; one thread at a time.
//
// Each key event is announced to this process's key monitor first (SyntheticKeyEvents), so
// that Tolkaro's own keystrokes never count as the user's gesture. A test that plays the user
// from inside the process under test turns that off.
class XTestKeySender
{
public:
    // Opens a connection to `displayName` (empty: $DISPLAY).
    explicit XTestKeySender(const QString &displayName = QString());
    ~XTestKeySender();
    XTestKeySender(const XTestKeySender &) = delete;
    XTestKeySender &operator=(const XTestKeySender &) = delete;

    // The connection is open and the server offers XTest.
    bool isValid() const { return m_display != nullptr; }

    void setAnnouncesToKeyMonitor(bool announces) { m_announces = announces; }

    bool pressKeyCode(uint8_t keyCode);
    bool releaseKeyCode(uint8_t keyCode);

    // The key code producing `keysym` in the first keyboard group at the unshifted or shifted
    // level, preferring unshifted; 0 when no key produces it.
    uint8_t keyCodeForKeysym(uint32_t keysym) const;
    // Whether `keyCode` gives `keysym` only with Shift.
    bool needsShift(uint8_t keyCode, uint32_t keysym) const;

    // Presses the modifiers in order, taps the key, releases the modifiers in reverse order:
    // tapKeysym(XK_v, {XK_Control_L}) is Ctrl+V. False when a keysym has no key.
    bool tapKeysym(uint32_t keysym, const QList<uint32_t> &modifierKeysyms = {});

    // The key codes the server reports as down right now (all keys, not only modifiers).
    QList<uint8_t> pressedKeyCodes() const;

    // Waits until the server has handled everything sent so far; announcements of events
    // the key monitor has not seen by then expire.
    void sync();

    _XDisplay *display() const { return m_display; }

private:
    bool sendKey(uint8_t keyCode, bool press);

    _XDisplay *m_display = nullptr;
    bool m_announces = true;
};
