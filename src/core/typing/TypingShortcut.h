#pragma once

#include "settings/Preferences.h"

#include <QList>
#include <QString>

// The typing-mode shortcut as a value: an X key symbol and Qt modifiers, its default and
// the stand-in used when another program owns the default, the translation of its
// modifiers into X11 grab masks, and the recorder's rule for which keys make a shortcut.
// Pure functions (no X connection); main thread or any.
namespace TypingShortcut {

inline constexpr quint32 kSpaceKeySym = 0x0020;

// X11 core modifier bits, as carried in key events' state and in grab requests.
namespace X11Mask {
inline constexpr quint16 kShift = 0x0001;
inline constexpr quint16 kLock = 0x0002;
inline constexpr quint16 kControl = 0x0004;
inline constexpr quint16 kMod1 = 0x0008; // Alt on every common layout
inline constexpr quint16 kMod2 = 0x0010; // usually Num Lock
inline constexpr quint16 kMod4 = 0x0040; // Super on every common layout
} // namespace X11Mask

// Alt+Space: what the shortcut is while the user has recorded nothing. Never stored.
StoredShortcut defaultShortcut();
// Ctrl+Alt+Space: used for one run when another program already owns the shortcut.
StoredShortcut fallbackShortcut();

// The stored shortcut, else the default.
StoredShortcut effectiveShortcut(const Preferences &preferences);

// Only Shift, Control, Alt and Meta (Super) count; keypad and group bits are dropped.
quint32 significantModifiers(quint32 qtModifiers);

// Latin capital letters become small ones: Shift+T arrives as the symbol "T", and the
// same physical key must match however it was recorded.
quint32 normalizedKeySym(quint32 keySym);

// Whether a key event (key symbol and Qt modifiers) is this shortcut.
bool matches(const StoredShortcut &shortcut, quint32 keySym, quint32 qtModifiers);

// The X11 modifier mask for Qt modifiers.
quint16 x11ModifierMask(quint32 qtModifiers);

// Every mask to grab so the shortcut works whatever Caps Lock and Num Lock are doing:
// the mask alone, with Lock, with the Num Lock bit, with both. numLockMask 0 (no Num Lock
// key on the keyboard) gives two variants; a mask already holding a bit is not doubled.
QList<quint16> grabModifierVariants(quint16 mask, quint16 numLockMask);

// What the recorder does with a key pressed while it records.
enum class RecordedKey
{
    Ignore, // a modifier on its own: keep waiting for the key
    Cancel, // Escape: stop recording, keep the shortcut
    Clear,  // Backspace or Delete: no shortcut of the user's own (the default applies)
    Reject, // a plain key: it would take that key from every application
    Accept,
};
RecordedKey decideRecordedKey(quint32 keySym, quint32 qtModifiers);

// "Ctrl+Alt+Space", "Super+F5": modifiers in a fixed order, then the key.
QString displayText(const StoredShortcut &shortcut);

} // namespace TypingShortcut
