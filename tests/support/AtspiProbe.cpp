// libatspi pulls in GLib, whose structs have members named like Qt's keywords: it comes first.
#include <atspi/atspi.h>

#include "AtspiProbe.h"

#include <QCoreApplication>
#include <QProcess>

#include <functional>

namespace {

// Trees of real applications are small; the bound keeps a runaway (a huge table) from
// turning a search into minutes of D-Bus calls.
constexpr int kMaxElementsSearched = 5000;

// Owns a GError out-parameter and drops it: the callers answer with empty values instead.
class ErrorSink
{
public:
    ~ErrorSink() { g_clear_error(&m_error); }
    GError **operator&() { return &m_error; }

private:
    GError *m_error = nullptr;
};

QString takeString(gchar *utf8)
{
    const QString text = QString::fromUtf8(utf8);
    g_free(utf8);
    return text;
}

template <typename Interface> struct InterfaceRef
{
    Interface *iface;
    ~InterfaceRef()
    {
        if (iface)
            g_object_unref(iface);
    }
    explicit operator bool() const { return iface != nullptr; }
};

bool hasState(AtspiAccessible *accessible, AtspiStateType state)
{
    if (!accessible)
        return false;
    AtspiStateSet *states = atspi_accessible_get_state_set(accessible);
    if (!states)
        return false;
    const bool has = atspi_state_set_contains(states, state);
    g_object_unref(states);
    return has;
}

// Depth first over `root` and what lies below it, until `match` answers true.
AtspiElement searchBelow(const AtspiElement &root,
                         const std::function<bool(const AtspiElement &)> &match)
{
    QList<AtspiElement> pending{root};
    int searched = 0;
    while (!pending.isEmpty() && searched++ < kMaxElementsSearched) {
        const AtspiElement element = pending.takeFirst();
        if (element.isNull())
            continue;
        if (match(element))
            return element;
        pending = element.children() + pending;
    }
    return AtspiElement();
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
    if (other.m_accessible)
        g_object_ref(other.m_accessible);
    if (m_accessible)
        g_object_unref(m_accessible);
    m_accessible = other.m_accessible;
    return *this;
}

AtspiElement::~AtspiElement()
{
    if (m_accessible)
        g_object_unref(m_accessible);
}

QString AtspiElement::name() const
{
    ErrorSink error;
    return m_accessible ? takeString(atspi_accessible_get_name(m_accessible, &error)) : QString();
}

QString AtspiElement::roleName() const
{
    ErrorSink error;
    return m_accessible ? takeString(atspi_accessible_get_role_name(m_accessible, &error))
                        : QString();
}

qint64 AtspiElement::processId() const
{
    ErrorSink error;
    return m_accessible ? qint64(atspi_accessible_get_process_id(m_accessible, &error)) : -1;
}

QList<AtspiElement> AtspiElement::children() const
{
    QList<AtspiElement> children;
    if (!m_accessible)
        return children;
    ErrorSink countError;
    const int count = atspi_accessible_get_child_count(m_accessible, &countError);
    for (int i = 0; i < count; ++i) {
        ErrorSink error;
        AtspiAccessible *child = atspi_accessible_get_child_at_index(m_accessible, i, &error);
        if (child)
            children.append(AtspiElement(child));
    }
    return children;
}

AtspiElement AtspiElement::find(const QString &name, const QString &roleName) const
{
    return searchBelow(*this, [&](const AtspiElement &element) {
        return element.name() == name && (roleName.isEmpty() || element.roleName() == roleName);
    });
}

QString AtspiElement::text() const
{
    InterfaceRef<AtspiText> text{m_accessible ? atspi_accessible_get_text_iface(m_accessible)
                                              : nullptr};
    if (!text)
        return QString();
    ErrorSink countError, textError;
    const int count = atspi_text_get_character_count(text.iface, &countError);
    return takeString(atspi_text_get_text(text.iface, 0, count, &textError));
}

QString AtspiElement::selectedText() const
{
    InterfaceRef<AtspiText> text{m_accessible ? atspi_accessible_get_text_iface(m_accessible)
                                              : nullptr};
    if (!text)
        return QString();
    ErrorSink countError, rangeError, textError;
    if (atspi_text_get_n_selections(text.iface, &countError) < 1)
        return QString();
    AtspiRange *range = atspi_text_get_selection(text.iface, 0, &rangeError);
    if (!range)
        return QString();
    const QString selected = takeString(
        atspi_text_get_text(text.iface, range->start_offset, range->end_offset, &textError));
    g_free(range);
    return selected;
}

bool AtspiElement::selectText(int start, int end) const
{
    InterfaceRef<AtspiText> text{m_accessible ? atspi_accessible_get_text_iface(m_accessible)
                                              : nullptr};
    if (!text)
        return false;
    ErrorSink countError, selectError;
    if (atspi_text_get_n_selections(text.iface, &countError) > 0)
        return atspi_text_set_selection(text.iface, 0, start, end, &selectError);
    return atspi_text_add_selection(text.iface, start, end, &selectError);
}

bool AtspiElement::setText(const QString &newText) const
{
    InterfaceRef<AtspiEditableText> editable{
        m_accessible ? atspi_accessible_get_editable_text_iface(m_accessible) : nullptr};
    if (!editable)
        return false;
    ErrorSink error;
    return atspi_editable_text_set_text_contents(editable.iface, newText.toUtf8().constData(),
                                                 &error);
}

bool AtspiElement::isFocused() const
{
    return hasState(m_accessible, ATSPI_STATE_FOCUSED);
}

bool AtspiElement::grabFocus() const
{
    InterfaceRef<AtspiComponent> component{
        m_accessible ? atspi_accessible_get_component_iface(m_accessible) : nullptr};
    ErrorSink error;
    return component && atspi_component_grab_focus(component.iface, &error);
}

QRect AtspiElement::screenRect() const
{
    InterfaceRef<AtspiComponent> component{
        m_accessible ? atspi_accessible_get_component_iface(m_accessible) : nullptr};
    if (!component)
        return QRect();
    ErrorSink error;
    AtspiRect *extents =
        atspi_component_get_extents(component.iface, ATSPI_COORD_TYPE_SCREEN, &error);
    if (!extents)
        return QRect();
    const QRect rect(extents->x, extents->y, extents->width, extents->height);
    g_free(extents);
    return rect;
}

QStringList AtspiElement::actionNames() const
{
    QStringList names;
    InterfaceRef<AtspiAction> action{m_accessible ? atspi_accessible_get_action_iface(m_accessible)
                                                  : nullptr};
    if (!action)
        return names;
    ErrorSink countError;
    const int count = atspi_action_get_n_actions(action.iface, &countError);
    for (int i = 0; i < count; ++i) {
        ErrorSink error;
        names.append(takeString(atspi_action_get_action_name(action.iface, i, &error)));
    }
    return names;
}

bool AtspiElement::doAction(const QString &actionName) const
{
    return doAction(int(actionNames().indexOf(actionName)));
}

bool AtspiElement::doAction(int index) const
{
    InterfaceRef<AtspiAction> action{m_accessible ? atspi_accessible_get_action_iface(m_accessible)
                                                  : nullptr};
    ErrorSink error;
    return action && index >= 0 && atspi_action_do_action(action.iface, index, &error);
}

namespace AtspiProbe {

bool init()
{
    static const bool connected = [] {
        atspi_init();
        AtspiAccessible *desktop = atspi_get_desktop(0);
        if (!desktop)
            return false;
        g_object_unref(desktop);
        return true;
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
    const qint64 ownPid = QCoreApplication::applicationPid();
    for (const AtspiElement &application : desktop.children()) {
        // The process id comes from the bus daemon, not from the application: safe to ask
        // before knowing whose it is.
        if (application.processId() == ownPid)
            continue;
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
               {QStringLiteral("call"), QStringLiteral("--session"), QStringLiteral("--timeout"),
                QStringLiteral("5"), QStringLiteral("--dest"), QStringLiteral("org.a11y.Bus"),
                QStringLiteral("--object-path"), QStringLiteral("/org/a11y/bus"),
                QStringLiteral("--method"), QStringLiteral("org.freedesktop.DBus.Properties.Set"),
                QStringLiteral("org.a11y.Status"), QStringLiteral("IsEnabled"),
                enabled ? QStringLiteral("<true>") : QStringLiteral("<false>")}) == 0;
}

} // namespace AtspiProbe
