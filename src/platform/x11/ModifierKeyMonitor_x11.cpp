#include "platform/x11/ModifierKeyMonitor_x11.h"

#include "common/Log.h"
#include "platform/x11/SyntheticKeyEvents.h"

#include <QByteArray>
#include <QSocketNotifier>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>

#include <xcb/xinput.h>
// Xlib only for XStringToKeysym, which needs no display; included last for its macros.
#include <X11/Xlib.h>

namespace {

// XInput 2.2 is the first version that delivers raw events to every client that selects
// them, whatever grab is active.
constexpr quint16 kXInputMajor = 2;
constexpr quint16 kXInputMinor = 2;

// Keysyms of the modifier keys, from X11/keysymdef.h.
constexpr xcb_keysym_t kControlL = 0xffe3, kControlR = 0xffe4, kMetaL = 0xffe7, kMetaR = 0xffe8,
                       kAltL = 0xffe9, kAltR = 0xffea, kIsoLevel3Shift = 0xfe03;

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
template <typename T> using XcbReply = std::unique_ptr<T, FreeDeleter>;

// The right Alt key types the third level on most non-US layouts (ISO_Level3_Shift), which
// is just what Alt does in the gesture; it counts as the right Alt key.
struct Role
{
    xcb_keysym_t keysym;
    GestureKey key;
};
constexpr Role kModifierRoles[] = {
    {kControlL, GestureKey::LeftControl},
    {kControlR, GestureKey::RightControl},
    {kAltL, GestureKey::LeftAlt},
    {kMetaL, GestureKey::LeftAlt},
    {kAltR, GestureKey::RightAlt},
    {kMetaR, GestureKey::RightAlt},
    {kIsoLevel3Shift, GestureKey::RightAlt},
};

// XInput 2 events travel as generic events: a server can announce XInput 2.2 with the
// Generic Event Extension switched off, and then never deliver one.
bool hasGenericEvents(xcb_connection_t *connection)
{
    static const char kName[] = "Generic Event Extension";
    XcbReply<xcb_query_extension_reply_t> reply(xcb_query_extension_reply(
        connection, xcb_query_extension(connection, sizeof(kName) - 1, kName), nullptr));
    return reply && reply->present;
}

// Opens a connection and checks that it offers XInput 2.2. On failure logs why and
// answers null.
xcb_connection_t *openConnection(const QString &displayName, quint8 *xinputOpcode)
{
    const QByteArray name = displayName.toLocal8Bit();
    xcb_connection_t *connection =
        xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        tolkaro::logLine(QStringLiteral("Key monitor: cannot open the X display"));
        return nullptr;
    }
    const xcb_query_extension_reply_t *extension =
        xcb_get_extension_data(connection, &xcb_input_id);
    bool usable = extension && extension->present && hasGenericEvents(connection);
    if (usable) {
        XcbReply<xcb_input_xi_query_version_reply_t> version(xcb_input_xi_query_version_reply(
            connection, xcb_input_xi_query_version(connection, kXInputMajor, kXInputMinor),
            nullptr));
        usable =
            version &&
            (version->major_version > kXInputMajor ||
             (version->major_version == kXInputMajor && version->minor_version >= kXInputMinor));
    }
    if (!usable) {
        xcb_disconnect(connection);
        tolkaro::logLine(QStringLiteral("Key monitor: the X server has no XInput 2.2"));
        return nullptr;
    }
    if (xinputOpcode)
        *xinputOpcode = extension->major_opcode;
    return connection;
}

} // namespace

ModifierKeyMonitorX11::ModifierKeyMonitorX11(const QString &displayName,
                                             const QString &alternativeKey, QObject *parent)
    : ModifierKeyMonitor(parent), m_displayName(displayName)
{
    setAlternativeLanguageKey(alternativeKey);
}

ModifierKeyMonitorX11::~ModifierKeyMonitorX11()
{
    remove();
}

void ModifierKeyMonitorX11::setAlternativeLanguageKey(const QString &keysymName)
{
    const KeySym keysym = XStringToKeysym(keysymName.toLatin1().constData());
    m_alternativeKeysym = keysym == NoSymbol ? 0 : xcb_keysym_t(keysym);
    if (m_connection)
        refreshKeyRoles();
}

bool ModifierKeyMonitorX11::canInstall() const
{
    if (m_connection)
        return true;
    xcb_connection_t *connection = openConnection(m_displayName, nullptr);
    if (!connection)
        return false;
    xcb_disconnect(connection);
    return true;
}

bool ModifierKeyMonitorX11::install()
{
    if (m_connection)
        return true;
    m_connection = openConnection(m_displayName, &m_xinputOpcode);
    if (!m_connection)
        return false;

    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    struct
    {
        xcb_input_event_mask_t head;
        quint32 bits;
    } masks[] = {
        {{XCB_INPUT_DEVICE_ALL_MASTER, 1},
         XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE},
        // XTest devices come and go with master devices.
        {{XCB_INPUT_DEVICE_ALL, 1}, XCB_INPUT_XI_EVENT_MASK_HIERARCHY},
    };
    static_assert(sizeof(masks[0]) == sizeof(xcb_input_event_mask_t) + sizeof(quint32));
    xcb_generic_error_t *error = xcb_request_check(
        m_connection, xcb_input_xi_select_events_checked(m_connection, root, 2, &masks[0].head));
    if (error) {
        std::free(error);
        tolkaro::logLine(QStringLiteral("Key monitor: the X server refused raw key events"));
        disconnectFromServer();
        return false;
    }

    refreshKeyRoles();
    refreshXTestDevices();
    resyncPressedKeys();

    SyntheticKeyEvents::setBatchSentHandler([this](quint64 mark) { catchUpWithServer(mark); });
    m_notifier =
        new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &ModifierKeyMonitorX11::readEvents);
    // The round trips above may have queued events already; the socket will not say so.
    readEvents();
    return m_connection != nullptr;
}

void ModifierKeyMonitorX11::remove()
{
    disconnectFromServer();
}

void ModifierKeyMonitorX11::disconnectFromServer()
{
    if (m_connection)
        SyntheticKeyEvents::setBatchSentHandler({});
    for (const auto &[event, mark] : m_caughtUp)
        std::free(event);
    m_caughtUp.clear();
    delete m_notifier;
    m_notifier = nullptr;
    if (m_connection)
        xcb_disconnect(m_connection);
    m_connection = nullptr;
    m_pressed.reset();
    m_xtestDevices.clear();
}

void ModifierKeyMonitorX11::catchUpWithServer(quint64 announcedMark)
{
    // The key sender has waited for the server: a round trip here puts every event the
    // server made of its keys into this connection's queue. They are set aside (handling
    // them now would run the gesture inside the sender's call) with the mark after them.
    if (!m_connection)
        return;
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    while (xcb_generic_event_t *event = xcb_poll_for_queued_event(m_connection))
        m_caughtUp.push_back({event, 0});
    m_caughtUp.push_back({nullptr, announcedMark});
    QMetaObject::invokeMethod(this, &ModifierKeyMonitorX11::readEvents, Qt::QueuedConnection);
}

void ModifierKeyMonitorX11::readEvents()
{
    while (!m_caughtUp.empty()) {
        const auto [event, announcedMark] = m_caughtUp.front();
        m_caughtUp.pop_front();
        if (!event) {
            SyntheticKeyEvents::filter().expire(announcedMark);
            continue;
        }
        handleEvent(event);
        std::free(event);
    }
    // Handling an event can make a round trip, which queues the events behind it: keep
    // reading until the queue is empty, not just what the socket announced.
    while (m_connection) {
        xcb_generic_event_t *event = xcb_poll_for_event(m_connection);
        if (!event)
            break;
        handleEvent(event);
        std::free(event);
    }
    if (m_connection && xcb_connection_has_error(m_connection)) {
        tolkaro::logLine(QStringLiteral("Key monitor: lost the connection to the X server"));
        disconnectFromServer();
    }
}

void ModifierKeyMonitorX11::handleEvent(const xcb_generic_event_t *event)
{
    const quint8 type = event->response_type & 0x7f;
    if (type == XCB_GE_GENERIC) {
        const auto *generic = reinterpret_cast<const xcb_ge_generic_event_t *>(event);
        if (generic->extension != m_xinputOpcode)
            return;
        if (generic->event_type == XCB_INPUT_RAW_KEY_PRESS ||
            generic->event_type == XCB_INPUT_RAW_KEY_RELEASE) {
            const auto *raw = reinterpret_cast<const xcb_input_raw_key_press_event_t *>(event);
            handleRawKey(generic->event_type == XCB_INPUT_RAW_KEY_PRESS, raw->detail,
                         raw->sourceid);
        } else if (generic->event_type == XCB_INPUT_HIERARCHY) {
            refreshXTestDevices();
        }
    } else if (type == XCB_MAPPING_NOTIFY) {
        // Without the XKB extension initialised on this connection the server tells of every
        // keymap change (setxkbmap, xmodmap, a new layout) with the core notify. It also
        // comes when the typing moves to another keyboard, and then before the raw event of
        // the key that moved it: the held keys are not read again here, or that key would
        // count as down already and its press be lost.
        const auto *mapping = reinterpret_cast<const xcb_mapping_notify_event_t *>(event);
        if (mapping->request == XCB_MAPPING_KEYBOARD)
            refreshKeyRoles();
    }
}

void ModifierKeyMonitorX11::handleRawKey(bool pressed, quint32 keycode, quint16 sourceDevice)
{
    const bool fromXTest = std::find(m_xtestDevices.cbegin(), m_xtestDevices.cend(),
                                     sourceDevice) != m_xtestDevices.cend();
    if (fromXTest && SyntheticKeyEvents::filter().passOver(quint8(keycode), pressed))
        return;
    if (keycode >= m_roles.size())
        return;
    if (!m_roles[keycode]) {
        m_pressed.reset(keycode); // it may have been a modifier before a mapping change
        return;                   // not a modifier: forgotten here
    }
    // A press of a key already down (auto-repeat, a second keyboard) changes nothing. A
    // release always goes out: a lost release would leave the gesture held.
    if (pressed && m_pressed.test(keycode))
        return;
    m_pressed.set(keycode, pressed);

    emit keyEvent(GestureKeyEvent{*m_roles[keycode], heldKeys(), std::chrono::steady_clock::now()});
}

GestureKeys ModifierKeyMonitorX11::heldKeys() const
{
    GestureKeys keys;
    for (size_t keycode = 0; keycode < m_roles.size(); ++keycode) {
        if (m_pressed.test(keycode) && m_roles[keycode])
            keys |= *m_roles[keycode];
    }
    return keys;
}

void ModifierKeyMonitorX11::refreshKeyRoles()
{
    m_roles.fill(std::nullopt);
    const xcb_setup_t *setup = xcb_get_setup(m_connection);
    const quint8 first = setup->min_keycode;
    const quint8 count = setup->max_keycode - setup->min_keycode + 1;
    XcbReply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        m_connection, xcb_get_keyboard_mapping(m_connection, first, count), nullptr));
    if (!mapping || mapping->keysyms_per_keycode == 0)
        return;
    const xcb_keysym_t *keysyms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perKeycode = mapping->keysyms_per_keycode;
    const int available = xcb_get_keyboard_mapping_keysyms_length(mapping.get()) / perKeycode;
    for (int i = 0; i < available && first + i < int(m_roles.size()); ++i) {
        // Only the first level: the evdev keymaps also put Alt_L, Meta_L, Super_L on the
        // second level of spare key codes that no keyboard sends.
        const xcb_keysym_t keysym = keysyms[i * perKeycode];
        if (keysym == 0)
            continue;
        KeyRole &role = m_roles[first + i];
        if (keysym == m_alternativeKeysym) {
            role = GestureKey::AlternativeLanguage;
            continue;
        }
        for (const Role &known : kModifierRoles) {
            if (known.keysym == keysym) {
                role = known.key;
                break;
            }
        }
    }
    // A held key that is no modifier any more is not held as one.
    for (size_t keycode = 0; keycode < m_roles.size(); ++keycode) {
        if (!m_roles[keycode])
            m_pressed.reset(keycode);
    }
}

void ModifierKeyMonitorX11::refreshXTestDevices()
{
    m_xtestDevices.clear();
    XcbReply<xcb_input_xi_query_device_reply_t> reply(xcb_input_xi_query_device_reply(
        m_connection, xcb_input_xi_query_device(m_connection, XCB_INPUT_DEVICE_ALL), nullptr));
    if (!reply)
        return;
    // Each master keyboard has an XTest slave named "<master> XTEST keyboard".
    static const QByteArray kXTestSuffix = QByteArrayLiteral("XTEST keyboard");
    for (auto it = xcb_input_xi_query_device_infos_iterator(reply.get()); it.rem;
         xcb_input_xi_device_info_next(&it)) {
        if (it.data->type != XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD)
            continue;
        const QByteArray name(xcb_input_xi_device_info_name(it.data),
                              xcb_input_xi_device_info_name_length(it.data));
        if (name.endsWith(kXTestSuffix))
            m_xtestDevices.push_back(it.data->deviceid);
    }
}

void ModifierKeyMonitorX11::resyncPressedKeys()
{
    // Modifiers already held when watching starts count from the next event on, so the
    // first change reports the right flags.
    m_pressed.reset();
    XcbReply<xcb_query_keymap_reply_t> keymap(
        xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr));
    if (!keymap)
        return;
    for (size_t keycode = 0; keycode < m_roles.size(); ++keycode) {
        const bool down = keymap->keys[keycode / 8] & (1u << (keycode % 8));
        if (down && m_roles[keycode])
            m_pressed.set(keycode);
    }
}
