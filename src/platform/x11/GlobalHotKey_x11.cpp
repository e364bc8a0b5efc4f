#include "platform/x11/GlobalHotKey_x11.h"

#include "common/Log.h"
#include "platform/x11/X11Input.h"
#include "typing/TypingShortcut.h"

#include <QByteArray>
#include <QSocketNotifier>

#include <chrono>
#include <cstdlib>
#include <memory>

namespace {

constexpr quint8 kBadAccess = 10;
// How often a held shortcut key is looked at until it goes up. Only runs while held.
constexpr std::chrono::milliseconds kReleasePollInterval{40};

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};

} // namespace

GlobalHotKeyX11::GlobalHotKeyX11(const QString &displayName, QObject *parent) : GlobalHotKey(parent)
{
    const QByteArray name = displayName.toLocal8Bit();
    xcb_connection_t *connection =
        xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        tolkaro::logLine(QStringLiteral("Typing-mode shortcut: cannot open the X display"));
        return;
    }
    m_connection = connection;
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    m_root = screens.data->root;
    m_notifier =
        new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &GlobalHotKeyX11::readEvents);
    m_releasePoll.setInterval(kReleasePollInterval);
    connect(&m_releasePoll, &QTimer::timeout, this, &GlobalHotKeyX11::checkActivationKeyReleased);
}

GlobalHotKeyX11::~GlobalHotKeyX11()
{
    if (m_connection) {
        ungrabAll();
        xcb_disconnect(m_connection);
    }
}

GlobalHotKey::BindResult GlobalHotKeyX11::bind(const StoredShortcut &shortcut)
{
    unbind();
    if (!m_connection)
        return BindResult::Unavailable;
    const QList<xcb_keycode_t> keyCodes =
        X11Input::keyCodesForKeySym(m_connection, shortcut.keySym);
    if (keyCodes.isEmpty())
        return BindResult::NoSuchKey;
    const quint16 numLock = X11Input::numLockMask(m_connection);
    m_modifierMask = TypingShortcut::x11ModifierMask(shortcut.modifiers);
    m_lockMasks = TypingShortcut::X11Mask::kLock | numLock;

    // All requests first, then every answer: one round trip for the lot.
    QList<xcb_void_cookie_t> cookies;
    for (xcb_keycode_t keyCode : keyCodes) {
        for (quint16 modifiers : TypingShortcut::grabModifierVariants(m_modifierMask, numLock)) {
            m_grabs.append({keyCode, modifiers});
            cookies.append(xcb_grab_key_checked(m_connection, 1, m_root, modifiers, keyCode,
                                                XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        }
    }
    bool taken = false;
    bool failed = false;
    for (const xcb_void_cookie_t &cookie : cookies) {
        std::unique_ptr<xcb_generic_error_t, FreeDeleter> error(
            xcb_request_check(m_connection, cookie));
        if (error) {
            taken = taken || error->error_code == kBadAccess;
            failed = true;
        }
    }
    if (failed) {
        // Ungrabbing what the server refused is harmless: it only releases our own grabs.
        ungrabAll();
        return taken ? BindResult::TakenByAnotherProgram : BindResult::Unavailable;
    }
    m_shortcut = shortcut;
    return BindResult::Bound;
}

void GlobalHotKeyX11::unbind()
{
    ungrabAll();
    m_shortcut = StoredShortcut{};
}

void GlobalHotKeyX11::ungrabAll()
{
    if (!m_connection)
        return;
    for (const Grab &grab : std::as_const(m_grabs))
        xcb_ungrab_key(m_connection, grab.keyCode, m_root, grab.modifiers);
    m_grabs.clear();
    m_heldKeyCode = 0;
    m_releasePoll.stop();
    // The server must have dropped the grabs before anyone else tries the same keys.
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
}

void GlobalHotKeyX11::readEvents()
{
    while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
        const quint8 type = event->response_type & ~0x80;
        if (type == XCB_KEY_PRESS) {
            handleKeyPress(reinterpret_cast<const xcb_key_press_event_t *>(event));
        } else if (type == XCB_MAPPING_NOTIFY && m_shortcut.keySym != 0) {
            // Key codes or the Num Lock bit may have moved: grab afresh.
            const StoredShortcut shortcut = m_shortcut;
            bind(shortcut);
        }
        std::free(event);
    }
    if (xcb_connection_has_error(m_connection)) {
        tolkaro::logLine(QStringLiteral("Typing-mode shortcut: lost the X connection"));
        m_notifier->setEnabled(false);
    }
}

void GlobalHotKeyX11::handleKeyPress(const xcb_key_press_event_t *event)
{
    // Let the keyboard go before anything else, so the panel's own grab can succeed.
    xcb_ungrab_keyboard(m_connection, event->time);
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    if ((event->state & ~m_lockMasks) != m_modifierMask)
        return;
    if (event->detail == m_heldKeyCode)
        return; // the held key repeating
    m_heldKeyCode = event->detail;
    m_releasePoll.start();
    emit activated();
}

void GlobalHotKeyX11::checkActivationKeyReleased()
{
    std::unique_ptr<xcb_query_keymap_reply_t, FreeDeleter> keymap(
        xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr));
    if (keymap && (keymap->keys[m_heldKeyCode / 8] & (1 << (m_heldKeyCode % 8))))
        return;
    m_heldKeyCode = 0;
    m_releasePoll.stop();
}
