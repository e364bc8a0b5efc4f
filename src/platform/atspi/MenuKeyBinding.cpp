#include "MenuKeyBinding.h"

#include <QStringList>

namespace {

// One modifier name, as GTK ("<Primary>", "<Control>") or Qt ("Ctrl", "Meta") writes it, to
// its bit; -1 when the name is not a modifier.
int modifierBit(const QString &name)
{
    const QString lower = name.toLower();
    if (lower == u"primary" || lower == u"control" || lower == u"ctrl" || lower == u"ctl")
        return 0;
    if (lower == u"shift")
        return MenuKeyBinding::kShift;
    if (lower == u"alt" || lower == u"mod1")
        return MenuKeyBinding::kAlt;
    if (lower == u"super" || lower == u"meta" || lower == u"mod4")
        return MenuKeyBinding::kSuper;
    return -1;
}

bool isCommandModifier(const QString &name)
{
    const QString lower = name.toLower();
    return lower == u"primary" || lower == u"control" || lower == u"ctrl" || lower == u"ctl";
}

std::optional<MenuKeyBinding> finish(const QString &key, int modifiers, bool hasCommand,
                                     bool anyModifier)
{
    // A bare key is a mnemonic or a plain key binding, not a menu accelerator.
    if (key.isEmpty() || !anyModifier)
        return std::nullopt;
    MenuKeyBinding binding;
    binding.key = key.size() == 1 ? key.toUpper() : key;
    binding.modifiers = modifiers | (hasCommand ? 0 : MenuKeyBinding::kNoCommand);
    return binding;
}

// "<Primary><Shift>c"
std::optional<MenuKeyBinding> parseGtkAccelerator(const QString &text)
{
    int modifiers = 0;
    bool hasCommand = false;
    bool anyModifier = false;
    qsizetype position = 0;
    while (position < text.size() && text.at(position) == u'<') {
        const qsizetype close = text.indexOf(u'>', position);
        if (close < 0)
            return std::nullopt;
        const QString name = text.mid(position + 1, close - position - 1);
        const int bit = modifierBit(name);
        if (bit < 0)
            return std::nullopt;
        modifiers |= bit;
        hasCommand = hasCommand || isCommandModifier(name);
        anyModifier = true;
        position = close + 1;
    }
    return finish(text.mid(position), modifiers, hasCommand, anyModifier);
}

// "Ctrl+Shift+C"; a lone "+" key is written "Ctrl++".
std::optional<MenuKeyBinding> parseQtShortcut(const QString &text)
{
    QString rest = text;
    int modifiers = 0;
    bool hasCommand = false;
    bool anyModifier = false;
    for (;;) {
        const qsizetype plus = rest.indexOf(u'+');
        if (plus <= 0 || plus == rest.size() - 1)
            break;
        const QString name = rest.left(plus);
        const int bit = modifierBit(name);
        if (bit < 0)
            return std::nullopt;
        modifiers |= bit;
        hasCommand = hasCommand || isCommandModifier(name);
        anyModifier = true;
        rest = rest.mid(plus + 1);
    }
    return finish(rest, modifiers, hasCommand, anyModifier);
}

} // namespace

std::optional<MenuKeyBinding> MenuKeyBinding::parse(const QString &keyBinding)
{
    const QString trimmed = keyBinding.trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    const QStringList fields = trimmed.split(u';');
    // GTK: only the third field is the accelerator; the first two are mnemonics.
    const QString accelerator = fields.size() >= 3 ? fields.at(2).trimmed() : fields.first();
    if (accelerator.startsWith(u'<'))
        return parseGtkAccelerator(accelerator);
    return parseQtShortcut(accelerator);
}
