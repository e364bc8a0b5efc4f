#pragma once

#include <QString>

#include <optional>

// The command key of a menu item as AT-SPI reports it in the item's key binding: GTK writes
// "mnemonic;path;accelerator" ("c;<Alt>e:c;<Primary>c"), Qt the shortcut text ("Ctrl+C").
// Ctrl plays the part that the command key plays elsewhere, so the modifiers are encoded the
// usual way for menu items: 0 is the command modifier alone; Shift adds 1, Alt 2, Super 4,
// and 8 says the command modifier is absent.
struct MenuKeyBinding
{
    static constexpr int kShift = 1 << 0;
    static constexpr int kAlt = 1 << 1;
    static constexpr int kSuper = 1 << 2;
    static constexpr int kNoCommand = 1 << 3;

    // The key: an upper-case letter or digit, else the key's name as written ("F5", "Delete").
    QString key;
    int modifiers = 0;

    bool operator==(const MenuKeyBinding &) const = default;

    // The accelerator of a key-binding text, or nullopt when it names none (a mnemonic alone
    // is not an accelerator).
    static std::optional<MenuKeyBinding> parse(const QString &keyBinding);
};
