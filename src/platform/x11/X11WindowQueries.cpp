#include "platform/x11/X11WindowQueries.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>

#include <xcb/res.h>
#include <xcb/xcb.h>
#include <xcb/xfixes.h>

#include <cstdlib>
#include <memory>

#include <poll.h>

namespace {

// How deep a client window may sit inside a window manager's frame.
constexpr int kMaxFrameDepth = 4;
// How long the owner of PRIMARY is given to answer, and how much of it is read (32-bit words).
constexpr qint64 kSelectionWaitMs = 300;
constexpr uint32_t kMaxSelectionWords = 64 * 1024;

template <typename T>
using Reply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T>
Reply<T> reply(T *pointer)
{
    return Reply<T>(pointer, &std::free);
}

} // namespace

X11WindowQueries::X11WindowQueries(const QString &displayName)
{
    const QByteArray name = displayName.toLocal8Bit();
    int screenNumber = 0;
    xcb_connection_t *connection =
        xcb_connect(name.isEmpty() ? nullptr : name.constData(), &screenNumber);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    if (!screens.rem) {
        xcb_disconnect(connection);
        return;
    }
    m_connection = connection;
    m_root = screens.data->root;
    auto version =
        reply(xcb_res_query_version_reply(m_connection, xcb_res_query_version(m_connection, 1, 2),
                                          nullptr));
    m_hasXRes = version && (version->server_major > 1 ||
                            (version->server_major == 1 && version->server_minor >= 2));
    watchPrimarySelection();
}

void X11WindowQueries::watchPrimarySelection()
{
    const xcb_query_extension_reply_t *xfixes = xcb_get_extension_data(m_connection, &xcb_xfixes_id);
    if (!xfixes || !xfixes->present)
        return;
    // The version must be asked before any other XFixes request.
    auto version = reply(xcb_xfixes_query_version_reply(
        m_connection, xcb_xfixes_query_version(m_connection, 1, 0), nullptr));
    if (!version)
        return;
    xcb_xfixes_select_selection_input(
        m_connection, xcb_window_t(m_root), xcb_atom_t(internAtom("PRIMARY")),
        XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
            XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
            XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    xcb_flush(m_connection);
    m_selectionNotifyEvent = xfixes->first_event + XCB_XFIXES_SELECTION_NOTIFY;
}

void X11WindowQueries::countSelectionNotify(quint8 responseType)
{
    if (m_selectionNotifyEvent && (responseType & 0x7f) == m_selectionNotifyEvent)
        ++m_primaryChanges;
}

quint64 X11WindowQueries::primarySelectionChanges()
{
    if (!m_connection || !m_selectionNotifyEvent)
        return 0;
    // A round trip puts every notification sent before now into the queue.
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    while (xcb_generic_event_t *event = xcb_poll_for_queued_event(m_connection)) {
        countSelectionNotify(event->response_type);
        std::free(event);
    }
    return m_primaryChanges;
}

std::optional<QByteArray> X11WindowQueries::primarySelectionUtf8()
{
    if (!m_connection)
        return std::nullopt;
    if (!m_requestor) {
        m_requestor = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_requestor, xcb_window_t(m_root),
                          0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0,
                          nullptr);
    }
    const xcb_atom_t property = xcb_atom_t(internAtom("_TOLKARO_PRIMARY"));
    // CurrentTime: Xt programs refuse a request older than their selection, and this
    // connection sees no events to take a newer time from.
    xcb_convert_selection(m_connection, m_requestor, xcb_atom_t(internAtom("PRIMARY")),
                          xcb_atom_t(internAtom("UTF8_STRING")), property, XCB_CURRENT_TIME);
    xcb_flush(m_connection);
    bool converted = false;
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < kSelectionWaitMs) {
        xcb_generic_event_t *event = xcb_poll_for_event(m_connection);
        if (!event) {
            pollfd socket{xcb_get_file_descriptor(m_connection), POLLIN, 0};
            ::poll(&socket, 1, int(kSelectionWaitMs - waited.elapsed()));
            if (xcb_connection_has_error(m_connection))
                return std::nullopt;
            continue;
        }
        countSelectionNotify(event->response_type);
        const bool answered = (event->response_type & 0x7f) == XCB_SELECTION_NOTIFY &&
                              reinterpret_cast<xcb_selection_notify_event_t *>(event)->requestor ==
                                  m_requestor;
        if (answered)
            converted = reinterpret_cast<xcb_selection_notify_event_t *>(event)->property == property;
        std::free(event);
        if (answered)
            break;
    }
    if (!converted)
        return std::nullopt;
    auto value = reply(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 1, m_requestor, property, XCB_ATOM_ANY, 0, kMaxSelectionWords),
        nullptr));
    // An incremental (INCR) transfer is not followed: a selection that large is no gesture's.
    if (!value || value->format != 8 || value->type == internAtom("INCR"))
        return std::nullopt;
    return QByteArray(static_cast<const char *>(xcb_get_property_value(value.get())),
                      xcb_get_property_value_length(value.get()));
}

bool X11WindowQueries::isWindowWithin(unsigned long window, unsigned long ancestor)
{
    // Up the tree to the root: a selection is owned by some inner window of a program.
    for (int depth = 0; m_connection && window && depth < 64; ++depth) {
        if (window == ancestor)
            return true;
        auto tree = reply(xcb_query_tree_reply(m_connection,
                                               xcb_query_tree(m_connection, xcb_window_t(window)),
                                               nullptr));
        if (!tree || tree->parent == XCB_NONE || tree->parent == m_root)
            return false;
        window = tree->parent;
    }
    return false;
}

X11WindowQueries::~X11WindowQueries()
{
    if (m_connection)
        xcb_disconnect(m_connection);
}

unsigned long X11WindowQueries::internAtom(const char *name)
{
    static QHash<QByteArray, unsigned long> cache;
    const QByteArray key(name);
    if (const auto found = cache.constFind(key); found != cache.cend())
        return *found;
    auto answer = reply(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, uint16_t(key.size()), name), nullptr));
    const unsigned long atom = answer ? answer->atom : 0;
    if (atom)
        cache.insert(key, atom);
    return atom;
}

std::optional<X11WindowQueries::Window> X11WindowQueries::topLevelWindowAt(const QPoint &point,
                                                                           qint64 excludedPid)
{
    if (!m_connection)
        return std::nullopt;
    auto tree = reply(xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_root),
                                           nullptr));
    if (!tree)
        return std::nullopt;
    const xcb_window_t *children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    // Ask for every child's state and geometry at once, then read the answers: one round
    // trip instead of two per window.
    std::vector<xcb_get_window_attributes_cookie_t> attributeCookies(count);
    std::vector<xcb_get_geometry_cookie_t> geometryCookies(count);
    for (int i = 0; i < count; ++i) {
        attributeCookies[i] = xcb_get_window_attributes(m_connection, children[i]);
        geometryCookies[i] = xcb_get_geometry(m_connection, children[i]);
    }
    std::vector<bool> candidate(count, false);
    for (int i = 0; i < count; ++i) {
        auto attributes =
            reply(xcb_get_window_attributes_reply(m_connection, attributeCookies[i], nullptr));
        auto geometry = reply(xcb_get_geometry_reply(m_connection, geometryCookies[i], nullptr));
        if (!attributes || !geometry || attributes->map_state != XCB_MAP_STATE_VIEWABLE ||
            attributes->_class == XCB_WINDOW_CLASS_INPUT_ONLY)
            continue;
        const int border = geometry->border_width;
        candidate[i] = point.x() >= geometry->x && point.y() >= geometry->y &&
                       point.x() < geometry->x + geometry->width + 2 * border &&
                       point.y() < geometry->y + geometry->height + 2 * border;
    }
    // Children come in stacking order, bottom first.
    for (int i = count - 1; i >= 0; --i) {
        if (!candidate[i])
            continue;
        Window window;
        window.id = clientWindowOf(children[i]);
        window.pid = processIdOfWindow(window.id);
        if (window.pid == 0 && window.id != children[i])
            window.pid = processIdOfWindow(children[i]);
        if (excludedPid != 0 && window.pid == excludedPid)
            continue;
        auto translated = reply(xcb_translate_coordinates_reply(
            m_connection, xcb_translate_coordinates(m_connection, xcb_window_t(window.id), m_root, 0, 0),
            nullptr));
        if (translated)
            window.origin = QPoint(translated->dst_x, translated->dst_y);
        return window;
    }
    return std::nullopt;
}

unsigned long X11WindowQueries::clientWindowOf(unsigned long frame)
{
    // The window manager marks the client window with WM_STATE; breadth first below the
    // frame, not deep. A window without one (override-redirect menus) stands for itself.
    const xcb_atom_t wmState = internAtom("WM_STATE");
    std::vector<xcb_window_t> level{xcb_window_t(frame)};
    for (int depth = 0; depth < kMaxFrameDepth && !level.empty(); ++depth) {
        std::vector<xcb_window_t> next;
        for (const xcb_window_t window : level) {
            auto property = reply(xcb_get_property_reply(
                m_connection,
                xcb_get_property(m_connection, 0, window, wmState, XCB_ATOM_ANY, 0, 0), nullptr));
            if (property && property->type != XCB_NONE)
                return window;
            auto tree = reply(
                xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, window), nullptr));
            if (!tree)
                continue;
            const xcb_window_t *children = xcb_query_tree_children(tree.get());
            next.insert(next.end(), children, children + xcb_query_tree_children_length(tree.get()));
        }
        level = std::move(next);
    }
    return frame;
}

qint64 X11WindowQueries::processIdOfWindow(unsigned long window)
{
    if (!m_connection || !window)
        return 0;
    auto property = reply(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, xcb_window_t(window), internAtom("_NET_WM_PID"),
                         XCB_ATOM_CARDINAL, 0, 1),
        nullptr));
    if (property && property->format == 32 && xcb_get_property_value_length(property.get()) >= 4)
        return *static_cast<const uint32_t *>(xcb_get_property_value(property.get()));
    if (!m_hasXRes)
        return 0;
    // The X client that created the window; its process when it is on this machine.
    xcb_res_client_id_spec_t spec{xcb_window_t(window), XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    auto ids = reply(xcb_res_query_client_ids_reply(
        m_connection, xcb_res_query_client_ids(m_connection, 1, &spec), nullptr));
    if (!ids)
        return 0;
    xcb_res_client_id_value_iterator_t it = xcb_res_query_client_ids_ids_iterator(ids.get());
    for (; it.rem; xcb_res_client_id_value_next(&it)) {
        if ((it.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) &&
            xcb_res_client_id_value_value_length(it.data) >= 1)
            return *xcb_res_client_id_value_value(it.data);
    }
    return 0;
}

unsigned long X11WindowQueries::selectionOwner(const char *selection)
{
    if (!m_connection)
        return 0;
    auto owner = reply(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, internAtom(selection)), nullptr));
    return owner ? owner->owner : 0;
}

unsigned long X11WindowQueries::activeWindow()
{
    if (!m_connection)
        return 0;
    auto property = reply(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, m_root, internAtom("_NET_ACTIVE_WINDOW"),
                         XCB_ATOM_WINDOW, 0, 1),
        nullptr));
    if (!property || property->format != 32 || xcb_get_property_value_length(property.get()) < 4)
        return 0;
    return *static_cast<const uint32_t *>(xcb_get_property_value(property.get()));
}

QString X11WindowQueries::windowClass(unsigned long window)
{
    if (!m_connection || !window)
        return {};
    auto property = reply(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, xcb_window_t(window), XCB_ATOM_WM_CLASS,
                         XCB_ATOM_STRING, 0, 256),
        nullptr));
    if (!property || property->format != 8)
        return {};
    // Two NUL-terminated strings: instance, then class.
    const QByteArray value(static_cast<const char *>(xcb_get_property_value(property.get())),
                           xcb_get_property_value_length(property.get()));
    const QList<QByteArray> parts = value.split('\0');
    return parts.size() >= 2 ? QString::fromLocal8Bit(parts.at(1)) : QString();
}

bool X11WindowQueries::modifierKeysDown()
{
    if (!m_connection)
        return false;
    auto pointer = reply(
        xcb_query_pointer_reply(m_connection, xcb_query_pointer(m_connection, m_root), nullptr));
    if (!pointer)
        return false;
    return pointer->mask & (XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 |
                            XCB_MOD_MASK_4);
}

std::optional<QPoint> X11WindowQueries::pointerPosition()
{
    if (!m_connection)
        return std::nullopt;
    auto pointer = reply(
        xcb_query_pointer_reply(m_connection, xcb_query_pointer(m_connection, m_root), nullptr));
    if (!pointer)
        return std::nullopt;
    return QPoint(pointer->root_x, pointer->root_y);
}
