// libatspi pulls in GLib, whose structs have members named like Qt's keywords: it comes first.
#include <atspi/atspi.h>

#include "AtspiProbe.h"

#include <QCoreApplication>
#include <QProcess>

#include <memory>

namespace {

// Trees of real applications are small; the bound keeps a runaway (a huge table) from
// turning a search into minutes of D-Bus calls.
constexpr int kMaxElementsSearched = 5000;

// Every read answers an empty value on failure: its GError is dropped here.
struct NoError
{
    GError *error = nullptr;
    ~NoError() { g_clear_error(&error); }
    operator GError **() { return &error; }
};

QString takeString(gchar *utf8)
{
    const QString text = QString::fromUtf8(utf8);
    g_free(utf8);
    return text;
}

// One of the element's interfaces (null without it), released at the end of the statement
// or scope that holds it.
template <typename Interface>
using InterfaceRef = std::unique_ptr<Interface, decltype(&g_object_unref)>;
template <typename Interface>
InterfaceRef<Interface> interfaceOf(AtspiAccessible *accessible,
                                    Interface *(*get)(AtspiAccessible *))
{
    return InterfaceRef<Interface>(accessible ? get(accessible) : nullptr, &g_object_unref);
}

} // namespace

AtspiElement::AtspiElement(AtspiAccessible *accessible) : m_accessible(accessible) {}

AtspiElement::AtspiElement(const AtspiElement &other) : m_accessible(other.m_accessible)
{
    if (m_accessible)
        g_object_ref(m_accessible);
}

AtspiElement &AtspiElement::operator=(const AtspiElement &other)
{
    AtspiElement copy(other);
    std::swap(m_accessible, copy.m_accessible);
    return *this;
}

AtspiElement::~AtspiElement()
{
    if (m_accessible)
        g_object_unref(m_accessible);
}

QString AtspiElement::name() const
{
    return m_accessible ? takeString(atspi_accessible_get_name(m_accessible, NoError()))
                        : QString();
}

QString AtspiElement::roleName() const
{
    return m_accessible ? takeString(atspi_accessible_get_role_name(m_accessible, NoError()))
                        : QString();
}

qint64 AtspiElement::processId() const
{
    return m_accessible ? qint64(atspi_accessible_get_process_id(m_accessible, NoError())) : -1;
}

QList<AtspiElement> AtspiElement::children() const
{
    QList<AtspiElement> children;
    const int count = m_accessible ? atspi_accessible_get_child_count(m_accessible, NoError()) : 0;
    for (int i = 0; i < count; ++i) {
        if (AtspiAccessible *child =
                atspi_accessible_get_child_at_index(m_accessible, i, NoError()))
            children.append(AtspiElement(child));
    }
    return children;
}

AtspiElement AtspiElement::find(const QString &name, const QString &roleName) const
{
    // Depth first, this element included.
    QList<AtspiElement> pending{*this};
    for (int searched = 0; !pending.isEmpty() && searched < kMaxElementsSearched; ++searched) {
        const AtspiElement element = pending.takeFirst();
        if (element.isNull())
            continue;
        if (element.name() == name && (roleName.isEmpty() || element.roleName() == roleName))
            return element;
        pending = element.children() + pending;
    }
    return AtspiElement();
}

QString AtspiElement::text() const
{
    const auto text = interfaceOf(m_accessible, atspi_accessible_get_text_iface);
    if (!text)
        return QString();
    const int count = atspi_text_get_character_count(text.get(), NoError());
    return takeString(atspi_text_get_text(text.get(), 0, count, NoError()));
}

QString AtspiElement::selectedText() const
{
    const auto text = interfaceOf(m_accessible, atspi_accessible_get_text_iface);
    if (!text || atspi_text_get_n_selections(text.get(), NoError()) < 1)
        return QString();
    AtspiRange *range = atspi_text_get_selection(text.get(), 0, NoError());
    if (!range)
        return QString();
    const QString selected = takeString(
        atspi_text_get_text(text.get(), range->start_offset, range->end_offset, NoError()));
    g_free(range);
    return selected;
}

bool AtspiElement::selectText(int start, int end) const
{
    const auto text = interfaceOf(m_accessible, atspi_accessible_get_text_iface);
    if (!text)
        return false;
    if (atspi_text_get_n_selections(text.get(), NoError()) > 0)
        return atspi_text_set_selection(text.get(), 0, start, end, NoError());
    return atspi_text_add_selection(text.get(), start, end, NoError());
}

bool AtspiElement::setText(const QString &newText) const
{
    const auto editable = interfaceOf(m_accessible, atspi_accessible_get_editable_text_iface);
    return editable && atspi_editable_text_set_text_contents(
                           editable.get(), newText.toUtf8().constData(), NoError());
}

bool AtspiElement::isFocused() const
{
    AtspiStateSet *states = m_accessible ? atspi_accessible_get_state_set(m_accessible) : nullptr;
    const bool focused = states && atspi_state_set_contains(states, ATSPI_STATE_FOCUSED);
    if (states)
        g_object_unref(states);
    return focused;
}

bool AtspiElement::grabFocus() const
{
    const auto component = interfaceOf(m_accessible, atspi_accessible_get_component_iface);
    return component && atspi_component_grab_focus(component.get(), NoError());
}

QRect AtspiElement::screenRect() const
{
    const auto component = interfaceOf(m_accessible, atspi_accessible_get_component_iface);
    AtspiRect *extents =
        component ? atspi_component_get_extents(component.get(), ATSPI_COORD_TYPE_SCREEN, NoError())
                  : nullptr;
    if (!extents)
        return QRect();
    const QRect rect(extents->x, extents->y, extents->width, extents->height);
    g_free(extents);
    return rect;
}

bool AtspiElement::doAction(const QString &actionName) const
{
    const auto action = interfaceOf(m_accessible, atspi_accessible_get_action_iface);
    const int count = action ? atspi_action_get_n_actions(action.get(), NoError()) : 0;
    for (int i = 0; i < count; ++i) {
        if (takeString(atspi_action_get_action_name(action.get(), i, NoError())) == actionName)
            return atspi_action_do_action(action.get(), i, NoError());
    }
    return false;
}

namespace AtspiProbe {

bool init()
{
    static const bool connected = [] {
        atspi_init();
        return !AtspiElement(atspi_get_desktop(0)).isNull();
    }();
    return connected;
}

QList<AtspiElement> applications()
{
    QList<AtspiElement> found;
    if (!init())
        return found;
    // No atspi_accessible_clear_cache() or ATSPI_CACHE_NONE here: an element whose states are
    // not cached makes libatspi fetch them while it dispatches an incoming event, from inside
    // a blocking call, and libdbus deadlocks on its own dispatch lock.
    const AtspiElement desktop(atspi_get_desktop(0));
    for (const AtspiElement &application : desktop.children()) {
        // The process id comes from the bus daemon, not from the application: safe to ask
        // before knowing whose it is.
        if (application.processId() != QCoreApplication::applicationPid())
            found.append(application);
    }
    return found;
}

AtspiElement applicationByPid(qint64 pid)
{
    for (const AtspiElement &application : applications()) {
        if (application.processId() == pid)
            return application;
    }
    return AtspiElement();
}

AtspiElement targetApplication(const QString &which)
{
    return applicationByPid(
        qEnvironmentVariable(qPrintable(QStringLiteral("TOLKARO_%1_TARGET_PID").arg(which)))
            .toLongLong());
}

AtspiElement window(const AtspiElement &application, const QString &title)
{
    for (const AtspiElement &child : application.children()) {
        if (child.name() == title)
            return child;
    }
    return AtspiElement();
}

bool setAccessibilityEnabled(bool enabled)
{
    return QProcess::execute(
               QStringLiteral("gdbus"),
               QStringLiteral("call --session --timeout 5 --dest org.a11y.Bus --object-path "
                              "/org/a11y/bus --method org.freedesktop.DBus.Properties.Set "
                              "org.a11y.Status IsEnabled %1")
                   .arg(enabled ? QStringLiteral("<true>") : QStringLiteral("<false>"))
                   .split(u' ')) == 0;
}

} // namespace AtspiProbe
