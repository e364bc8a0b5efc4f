#include "typing/TypingShortcut.h"

#include <Qt>

namespace TypingShortcut {
namespace {

// X key symbols the recorder treats specially.
constexpr quint32 kEscapeKeySym = 0xff1b;
constexpr quint32 kBackSpaceKeySym = 0xff08;
constexpr quint32 kDeleteKeySym = 0xffff;
constexpr quint32 kFirstFunctionKeySym = 0xffbe; // F1
constexpr quint32 kLastFunctionKeySym = 0xffe0;  // F35
constexpr quint32 kFirstModifierKeySym = 0xffe1; // Shift_L .. Hyper_R
constexpr quint32 kLastModifierKeySym = 0xffee;

bool isModifierKeySym(quint32 keySym)
{
    return (keySym >= kFirstModifierKeySym && keySym <= kLastModifierKeySym) ||
           keySym == 0xfe03 /* ISO_Level3_Shift */ || keySym == 0xff7e /* Mode_switch */ ||
           keySym == 0xff7f /* Num_Lock */;
}

bool isFunctionKeySym(quint32 keySym)
{
    return keySym >= kFirstFunctionKeySym && keySym <= kLastFunctionKeySym;
}

QString keyName(quint32 keySym)
{
    if (keySym == kSpaceKeySym)
        return QStringLiteral("Space");
    if (isFunctionKeySym(keySym))
        return QStringLiteral("F%1").arg(keySym - kFirstFunctionKeySym + 1);
    // Latin-1 key symbols are their own code points.
    if ((keySym > 0x20 && keySym < 0x7f) || (keySym >= 0xa0 && keySym <= 0xff))
        return QString(QChar(char16_t(keySym))).toUpper();
    switch (keySym) {
    case 0xff0d:
        return QStringLiteral("Return");
    case 0xff09:
        return QStringLiteral("Tab");
    case kEscapeKeySym:
        return QStringLiteral("Esc");
    case kBackSpaceKeySym:
        return QStringLiteral("Backspace");
    case kDeleteKeySym:
        return QStringLiteral("Delete");
    case 0xff63:
        return QStringLiteral("Insert");
    case 0xff50:
        return QStringLiteral("Home");
    case 0xff57:
        return QStringLiteral("End");
    case 0xff55:
        return QStringLiteral("PgUp");
    case 0xff56:
        return QStringLiteral("PgDown");
    case 0xff51:
        return QStringLiteral("Left");
    case 0xff52:
        return QStringLiteral("Up");
    case 0xff53:
        return QStringLiteral("Right");
    case 0xff54:
        return QStringLiteral("Down");
    default:
        return QStringLiteral("0x%1").arg(keySym, 0, 16);
    }
}

} // namespace

StoredShortcut defaultShortcut()
{
    return StoredShortcut{kSpaceKeySym, quint32(Qt::AltModifier)};
}

StoredShortcut fallbackShortcut()
{
    return StoredShortcut{kSpaceKeySym, quint32(Qt::ControlModifier | Qt::AltModifier)};
}

StoredShortcut effectiveShortcut(const Preferences &preferences)
{
    return preferences.typingModeKeyboardShortcut().value_or(defaultShortcut());
}

quint32 significantModifiers(quint32 qtModifiers)
{
    return qtModifiers &
           quint32(Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
}

quint32 normalizedKeySym(quint32 keySym)
{
    if (keySym >= 'A' && keySym <= 'Z')
        return keySym + ('a' - 'A');
    return keySym;
}

bool matches(const StoredShortcut &shortcut, quint32 keySym, quint32 qtModifiers)
{
    return shortcut.keySym != 0 && normalizedKeySym(shortcut.keySym) == normalizedKeySym(keySym) &&
           significantModifiers(shortcut.modifiers) == significantModifiers(qtModifiers);
}

quint16 x11ModifierMask(quint32 qtModifiers)
{
    quint16 mask = 0;
    if (qtModifiers & Qt::ShiftModifier)
        mask |= X11Mask::kShift;
    if (qtModifiers & Qt::ControlModifier)
        mask |= X11Mask::kControl;
    if (qtModifiers & Qt::AltModifier)
        mask |= X11Mask::kMod1;
    if (qtModifiers & Qt::MetaModifier)
        mask |= X11Mask::kMod4;
    return mask;
}

QList<quint16> grabModifierVariants(quint16 mask, quint16 numLockMask)
{
    QList<quint16> variants;
    for (quint16 extra :
         {quint16(0), X11Mask::kLock, numLockMask, quint16(X11Mask::kLock | numLockMask)}) {
        const quint16 variant = mask | extra;
        if (!variants.contains(variant))
            variants.append(variant);
    }
    return variants;
}

RecordedKey decideRecordedKey(quint32 keySym, quint32 qtModifiers)
{
    if (keySym == 0 || isModifierKeySym(keySym))
        return RecordedKey::Ignore;
    const quint32 modifiers = significantModifiers(qtModifiers);
    if (modifiers == 0 && keySym == kEscapeKeySym)
        return RecordedKey::Cancel;
    if (modifiers == 0 && (keySym == kBackSpaceKeySym || keySym == kDeleteKeySym))
        return RecordedKey::Clear;
    if (isFunctionKeySym(keySym))
        return RecordedKey::Accept;
    // Shift alone still leaves the key unusable for typing capitals.
    if (modifiers & quint32(Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier))
        return RecordedKey::Accept;
    return RecordedKey::Reject;
}

QString displayText(const StoredShortcut &shortcut)
{
    QString text;
    if (shortcut.modifiers & Qt::ControlModifier)
        text += QStringLiteral("Ctrl+");
    if (shortcut.modifiers & Qt::AltModifier)
        text += QStringLiteral("Alt+");
    if (shortcut.modifiers & Qt::ShiftModifier)
        text += QStringLiteral("Shift+");
    if (shortcut.modifiers & Qt::MetaModifier)
        text += QStringLiteral("Super+");
    return text + keyName(normalizedKeySym(shortcut.keySym));
}

} // namespace TypingShortcut
