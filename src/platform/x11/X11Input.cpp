#include "platform/x11/X11Input.h"

#include "typing/TypingShortcut.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace X11Input {
namespace {

constexpr quint32 kNumLockKeySym = 0xff7f;
// A pager's request: managers apply no focus-stealing prevention to it.
constexpr quint32 kSourceIndicationPager = 2;

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter>;

xcb_window_t firstRoot(xcb_connection_t *connection)
{
    const xcb_setup_t *setup = xcb_get_setup(connection);
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(setup);
    return screens.rem ? screens.data->root : xcb_window_t(XCB_WINDOW_NONE);
}

xcb_atom_t internAtom(xcb_connection_t *connection, const char *name)
{
    XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, quint16(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

} // namespace

QList<xcb_keycode_t> keyCodesForKeySym(xcb_connection_t *connection, quint32 keySym)
{
    QList<xcb_keycode_t> keyCodes;
    const xcb_setup_t *setup = xcb_get_setup(connection);
    const int first = setup->min_keycode;
    const int count = setup->max_keycode - setup->min_keycode + 1;
    XcbReply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        connection, xcb_get_keyboard_mapping(connection, xcb_keycode_t(first), quint8(count)),
        nullptr));
    if (!mapping)
        return keyCodes;
    const xcb_keysym_t *symbols = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perKeyCode = mapping->keysyms_per_keycode;
    const quint32 wanted = TypingShortcut::normalizedKeySym(keySym);
    for (int index = 0; index < count; ++index) {
        for (int level = 0; level < qMin(perKeyCode, 2); ++level) {
            if (TypingShortcut::normalizedKeySym(symbols[index * perKeyCode + level]) == wanted) {
                keyCodes.append(xcb_keycode_t(first + index));
                break;
            }
        }
    }
    return keyCodes;
}

bool isKeySymDown(xcb_connection_t *connection, quint32 keySym)
{
    const QList<xcb_keycode_t> keyCodes = keyCodesForKeySym(connection, keySym);
    XcbReply<xcb_query_keymap_reply_t> keymap(
        xcb_query_keymap_reply(connection, xcb_query_keymap(connection), nullptr));
    if (!keymap)
        return false;
    for (xcb_keycode_t keyCode : keyCodes) {
        if (keymap->keys[keyCode / 8] & (1 << (keyCode % 8)))
            return true;
    }
    return false;
}

quint16 numLockMask(xcb_connection_t *connection)
{
    const QList<xcb_keycode_t> numLockKeys = keyCodesForKeySym(connection, kNumLockKeySym);
    if (numLockKeys.isEmpty())
        return 0;
    XcbReply<xcb_get_modifier_mapping_reply_t> modifiers(
        xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr));
    if (!modifiers)
        return 0;
    const xcb_keycode_t *keyCodes = xcb_get_modifier_mapping_keycodes(modifiers.get());
    const int perModifier = modifiers->keycodes_per_modifier;
    // Eight modifiers in order: Shift, Lock, Control, Mod1..Mod5.
    for (int modifier = 0; modifier < 8; ++modifier) {
        for (int slot = 0; slot < perModifier; ++slot) {
            if (numLockKeys.contains(keyCodes[modifier * perModifier + slot]))
                return quint16(1u << modifier);
        }
    }
    return 0;
}

xcb_window_t activeWindow(xcb_connection_t *connection)
{
    const xcb_atom_t property = internAtom(connection, "_NET_ACTIVE_WINDOW");
    if (property == XCB_ATOM_NONE)
        return XCB_WINDOW_NONE;
    XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection,
        xcb_get_property(connection, 0, firstRoot(connection), property, XCB_ATOM_WINDOW, 0, 1),
        nullptr));
    if (!reply || xcb_get_property_value_length(reply.get()) < int(sizeof(xcb_window_t)))
        return XCB_WINDOW_NONE;
    return *static_cast<const xcb_window_t *>(xcb_get_property_value(reply.get()));
}

bool inputFocusIsWithin(xcb_connection_t *connection, xcb_window_t window)
{
    XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    if (!focus || window == XCB_WINDOW_NONE)
        return false;
    const xcb_window_t root = firstRoot(connection);
    // Walk up from the focus window; a few levels cover toplevels and their focus children.
    xcb_window_t current = focus->focus;
    for (int depth = 0; depth < 8 && current != XCB_WINDOW_NONE && current != root; ++depth) {
        if (current == window)
            return true;
        XcbReply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(connection, xcb_query_tree(connection, current), nullptr));
        if (!tree)
            return false;
        current = tree->parent;
    }
    return false;
}

bool requestActivation(xcb_connection_t *connection, xcb_window_t window)
{
    const xcb_atom_t type = internAtom(connection, "_NET_ACTIVE_WINDOW");
    if (window == XCB_WINDOW_NONE || type == XCB_ATOM_NONE)
        return false;
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = type;
    message.data.data32[0] = kSourceIndicationPager;
    message.data.data32[1] = XCB_CURRENT_TIME;
    message.data.data32[2] = XCB_WINDOW_NONE;
    xcb_send_event(connection, 0, firstRoot(connection),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&message));
    xcb_flush(connection);
    return true;
}

} // namespace X11Input
