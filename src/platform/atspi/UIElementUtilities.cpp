#include "UIElementUtilities.h"

#include "AtspiGuard.h"
#include "UIElementText.h"

#include <QGuiApplication>
#include <QHash>
#include <QScopeGuard>
#include <QScreen>

#include <unistd.h>

using namespace AtspiCall;

namespace {

// How deep a parent walk goes before it gives up on a cycle.
constexpr int kMaxParentDepth = 100;
// How many elements the search for the focused element of a window looks at.
constexpr int kFocusSearchBudget = 400;

UIElementRole roleFrom(AtspiRole role)
{
    switch (role) {
    case ATSPI_ROLE_INVALID:
        return UIElementRole::Unknown;
    case ATSPI_ROLE_APPLICATION:
        return UIElementRole::Application;
    case ATSPI_ROLE_FRAME:
    case ATSPI_ROLE_WINDOW:
    case ATSPI_ROLE_DIALOG:
    case ATSPI_ROLE_ALERT:
    case ATSPI_ROLE_FILE_CHOOSER:
        return UIElementRole::Window;
    case ATSPI_ROLE_MENU_BAR:
        return UIElementRole::MenuBar;
    case ATSPI_ROLE_MENU:
    case ATSPI_ROLE_POPUP_MENU:
        return UIElementRole::Menu;
    case ATSPI_ROLE_MENU_ITEM:
    case ATSPI_ROLE_CHECK_MENU_ITEM:
    case ATSPI_ROLE_RADIO_MENU_ITEM:
    case ATSPI_ROLE_TEAROFF_MENU_ITEM:
        return UIElementRole::MenuItem;
    case ATSPI_ROLE_TERMINAL:
        return UIElementRole::Terminal;
    default:
        return UIElementRole::Other;
    }
}

// The process of an application, remembered by its unique bus name (never reused within a
// session): asking the bus for every application on each capture cost 20 to 40 ms.
qint64 processOf(AtspiAccessible *accessible)
{
    static QHash<QByteArray, qint64> processes;
    const AtspiApplication *connection = accessible->parent.app;
    const QByteArray busName =
        connection && connection->bus_name ? QByteArray(connection->bus_name) : QByteArray();
    if (const auto found = processes.constFind(busName);
        !busName.isEmpty() && found != processes.cend())
        return *found;
    GError *error = nullptr;
    const guint pid = atspi_accessible_get_process_id(accessible, &error);
    if (failed(error))
        return 0;
    if (!busName.isEmpty())
        processes.insert(busName, qint64(pid));
    return qint64(pid);
}

// The index of the press action: the best-known name, else the only action there is.
int pressActionIndex(AtspiAction *action)
{
    GError *error = nullptr;
    const gint count = atspi_action_get_n_actions(action, &error);
    if (failed(error))
        return -1;
    static const QStringList pressNames{QStringLiteral("click"), QStringLiteral("press"),
                                        QStringLiteral("activate"), QStringLiteral("jump"),
                                        QStringLiteral("toggle")};
    int pressIndex = -1;
    int pressRank = int(pressNames.size());
    for (gint i = 0; i < count; ++i) {
        const QString name = takeString(atspi_action_get_action_name(action, i, &error));
        if (failed(error))
            return -1;
        const int rank = int(pressNames.indexOf(name.toLower()));
        if (rank >= 0 && rank < pressRank) {
            pressRank = rank;
            pressIndex = i;
        }
    }
    return pressIndex >= 0 ? pressIndex : (count == 1 ? 0 : -1);
}

std::optional<QString> nonEmpty(const QString &text)
{
    return text.isEmpty() ? std::nullopt : std::optional<QString>(text);
}

} // namespace

UIElementRole UIElementUtilities::roleOfUIElement(const UIElement &element)
{
    if (!element)
        return UIElementRole::Unknown;
    return run<UIElementRole>([=] { return roleFrom(roleOf(element.accessible())); },
                              UIElementRole::Unknown);
}

bool UIElementUtilities::isApplicationUIElement(const UIElement &element)
{
    return roleOfUIElement(element) == UIElementRole::Application;
}

QString UIElementUtilities::titleOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return run<QString>([=] {
        GError *error = nullptr;
        QString name = takeString(atspi_accessible_get_name(element.accessible(), &error));
        return failed(error) ? QString() : name;
    });
}

QString UIElementUtilities::descriptionOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return run<QString>([=] {
        GError *error = nullptr;
        QString description =
            takeString(atspi_accessible_get_description(element.accessible(), &error));
        return failed(error) ? QString() : description;
    });
}

UIElementStates UIElementUtilities::statesOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return run<UIElementStates>([=] {
        static const QList<QPair<AtspiStateType, UIElementState>> kStates{
            {ATSPI_STATE_ENABLED, UIElementState::Enabled},
            {ATSPI_STATE_FOCUSED, UIElementState::Focused},
            {ATSPI_STATE_SHOWING, UIElementState::Showing},
            {ATSPI_STATE_VISIBLE, UIElementState::Visible},
            {ATSPI_STATE_ACTIVE, UIElementState::Active},
            {ATSPI_STATE_EDITABLE, UIElementState::Editable},
            {ATSPI_STATE_MULTI_LINE, UIElementState::MultiLine}};
        UIElementStates states;
        // No error to tell: an application that does not answer leaves the set empty.
        const GObjectRef<AtspiStateSet> set(atspi_accessible_get_state_set(element.accessible()));
        for (const auto &[atspiState, state] : kStates) {
            if (set && atspi_state_set_contains(set.get(), atspiState))
                states |= state;
        }
        return states;
    });
}

UIElement UIElementUtilities::parentOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return run<UIElement>([=]() -> UIElement {
        if (roleOf(element.accessible()) == ATSPI_ROLE_APPLICATION || gaveUpOnThisThread())
            return {};
        GError *error = nullptr;
        UIElement parent =
            UIElement::adopt(atspi_accessible_get_parent(element.accessible(), &error));
        return failed(error) ? UIElement() : parent;
    });
}

QList<UIElement> UIElementUtilities::childrenOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return run<QList<UIElement>>([=] {
        QList<UIElement> children;
        GError *error = nullptr;
        const gint count = atspi_accessible_get_child_count(element.accessible(), &error);
        if (failed(error))
            return children;
        for (gint i = 0; i < count && !gaveUpOnThisThread(); ++i) {
            UIElement child = UIElement::adopt(
                atspi_accessible_get_child_at_index(element.accessible(), i, &error));
            if (!failed(error) && child)
                children.append(std::move(child));
        }
        return children;
    });
}

qint64 UIElementUtilities::processIdentifierOfUIElement(const UIElement &element)
{
    if (!element)
        return 0;
    return run<qint64>([=] { return processOf(element.accessible()); });
}

std::optional<QRect> UIElementUtilities::extentsOfUIElement(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return run<std::optional<QRect>>([=]() -> std::optional<QRect> {
        const auto component =
            interfaceOf(element.accessible(), atspi_accessible_get_component_iface);
        if (!component)
            return std::nullopt;
        GError *error = nullptr;
        const GMemory<AtspiRect> extents(
            atspi_component_get_extents(component.get(), ATSPI_COORD_TYPE_SCREEN, &error));
        if (failed(error) || !extents)
            return std::nullopt;
        return QRect(extents->x, extents->y, extents->width, extents->height);
    });
}

std::optional<double> UIElementUtilities::numericValueOfUIElement(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return run<std::optional<double>>([=]() -> std::optional<double> {
        const auto value = interfaceOf(element.accessible(), atspi_accessible_get_value_iface);
        if (!value)
            return std::nullopt;
        GError *error = nullptr;
        const double current = atspi_value_get_current_value(value.get(), &error);
        return failed(error) ? std::nullopt : std::optional<double>(current);
    });
}

std::optional<MenuKeyBinding>
UIElementUtilities::menuKeyBindingOfUIElement(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return run<std::optional<MenuKeyBinding>>([=] {
        std::optional<MenuKeyBinding> binding;
        const auto action = interfaceOf(element.accessible(), atspi_accessible_get_action_iface);
        if (!action)
            return binding;
        GError *error = nullptr;
        const gint count = atspi_action_get_n_actions(action.get(), &error);
        for (gint i = 0; !failed(error) && i < count && !binding; ++i) {
            const QString text = takeString(atspi_action_get_key_binding(action.get(), i, &error));
            if (!error)
                binding = MenuKeyBinding::parse(text);
        }
        return binding;
    });
}

UIElementToolkit UIElementUtilities::toolkitOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    // libatspi keeps the name and version with the application once read; they are read from
    // the application's root object, the only one Qt answers for.
    return run<UIElementToolkit>([=]() -> UIElementToolkit {
        AtspiApplication *application = element.accessible()->parent.app;
        if (!application || !application->root)
            return {};
        GError *error = nullptr;
        if (!application->toolkit_name && !gaveUpOnThisThread()) {
            StallGuard guard;
            g_free(atspi_accessible_get_toolkit_name(application->root, &error));
            failed(error);
        }
        if (!application->toolkit_version && !gaveUpOnThisThread()) {
            StallGuard guard;
            g_free(atspi_accessible_get_toolkit_version(application->root, &error));
            failed(error);
        }
        return {QString::fromUtf8(application->toolkit_name),
                QString::fromUtf8(application->toolkit_version)};
    });
}

std::optional<QString> UIElementUtilities::descriptionForUIElement(const UIElement &element,
                                                                   UIElementTextAttribute attribute)
{
    switch (attribute) {
    case UIElementTextAttribute::Value:
        if (std::optional<QString> contents = UIElementText::contents(element))
            return contents;
        if (const std::optional<double> number = numericValueOfUIElement(element))
            return QString::number(*number, 'g', 17);
        return std::nullopt;
    case UIElementTextAttribute::Title:
        return nonEmpty(titleOfUIElement(element));
    case UIElementTextAttribute::Help:
        return std::nullopt;
    case UIElementTextAttribute::Description:
        return nonEmpty(descriptionOfUIElement(element));
    }
    return std::nullopt;
}

void UIElementUtilities::performAction(UIElementAction action, const UIElement &element)
{
    if (!element || action != UIElementAction::Press)
        return;
    auto perform = [element] {
        // Nobody waits for this call, so it may be patient with an application that is busy
        // (serving the clipboard, say) when the press arrives. Qt runs the action before it
        // answers, and a Paste there reads the clipboard from Tolkaro's main thread: a late
        // answer is no sign of a hang, and must not make the next capture give up.
        const KeepGiveUpMark keep;
        atspi_set_timeout(int(AtspiThread::kActionTimeout.count()), 0);
        const auto restore =
            qScopeGuard([] { atspi_set_timeout(int(AtspiThread::kMethodCallTimeout.count()), 0); });
        const GObjectRef<AtspiAction> actions(
            atspi_accessible_get_action_iface(element.accessible()));
        if (!actions)
            return;
        const int index = pressActionIndex(actions.get());
        GError *error = nullptr;
        if (index >= 0)
            atspi_action_do_action(actions.get(), index, &error);
        failed(error);
    };
    // Without waiting: the caller's thread must stay free to serve the clipboard.
    AtspiThread &thread = AtspiThread::instance();
    if (thread.isCurrentThread())
        perform();
    else
        thread.post(perform);
}

UIElement UIElementUtilities::applicationElementForProcess(qint64 pid)
{
    // A blocking call into our own process would wait for a main thread that is waiting.
    if (pid <= 0 || pid == qint64(getpid()))
        return {};
    return run<UIElement>([pid]() -> UIElement {
        const UIElement desktop = UIElement::adopt(atspi_get_desktop(0));
        if (!desktop)
            return {};
        GError *error = nullptr;
        const gint count = atspi_accessible_get_child_count(desktop.accessible(), &error);
        // The newest application last: start there, it is the likeliest target.
        for (gint i = count - 1; !failed(error) && i >= 0; --i) {
            const UIElement application = UIElement::adopt(
                atspi_accessible_get_child_at_index(desktop.accessible(), i, &error));
            if (failed(error) || !application)
                continue;
            if (processOf(application.accessible()) == pid)
                return application;
        }
        return {};
    });
}

UIElement UIElementUtilities::applicationOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return run<UIElement>([=]() -> UIElement {
        UIElement current = element;
        for (int depth = 0; current && depth < kMaxParentDepth; ++depth) {
            if (roleOf(current.accessible()) == ATSPI_ROLE_APPLICATION)
                return current;
            current = parentOfUIElement(current);
        }
        // LibreOffice's document windows, reached from inside, have no parent (the window
        // the application lists is another object): the element's connection knows its root.
        AtspiApplication *connection = element.accessible()->parent.app;
        if (!gaveUpOnThisThread() && connection && connection->root &&
            roleOf(connection->root) == ATSPI_ROLE_APPLICATION)
            return UIElement::retain(connection->root);
        return {};
    });
}

UIElement UIElementUtilities::focusedWindowOfApplication(const UIElement &application)
{
    return run<UIElement>([=]() -> UIElement {
        for (const UIElement &window : childrenOfUIElement(application)) {
            if (statesOfUIElement(window).testFlag(UIElementState::Active))
                return window;
        }
        return {};
    });
}

UIElement UIElementUtilities::focusedUIElementOfApplication(const UIElement &application)
{
    return run<UIElement>([=]() -> UIElement {
        const UIElement window = focusedWindowOfApplication(application);
        if (!window)
            return {};
        // Breadth first, so the search spends its budget near the window before deep subtrees.
        QList<UIElement> queue{window};
        for (int budget = kFocusSearchBudget; !queue.isEmpty() && budget > 0; --budget) {
            const UIElement candidate = queue.takeFirst();
            if (statesOfUIElement(candidate).testFlag(UIElementState::Focused))
                return candidate;
            if (gaveUpOnThisThread())
                break;
            queue.append(childrenOfUIElement(candidate));
        }
        return {};
    });
}

QPointF UIElementUtilities::carbonScreenPointFromCocoaScreenPoint(const QPointF &point)
{
    const QScreen *found = nullptr;
    for (const QScreen *screen : QGuiApplication::screens()) {
        if (QRectF(screen->geometry()).contains(point))
            found = screen;
    }
    if (!found)
        return QPointF(0, 0);
    // Qt keeps each screen's top-left corner where it is and scales from there.
    const QPointF origin = found->geometry().topLeft();
    return origin + (point - origin) * found->devicePixelRatio();
}
