#include "UIElementUtilities.h"

#include "AtspiThread.h"
#include "MenuKeyBinding.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QScopeGuard>
#include <QGuiApplication>
#include <QHash>
#include <QScreen>

#include <atspi/atspi.h>
#include <unistd.h>

#include <cstring>
#include <functional>

namespace {

// Deepest descent through get_accessible_at_point; real trees are far shallower.
constexpr int kMaxPointDepth = 40;
// How many elements the search for the focused element of a window looks at.
constexpr int kFocusSearchBudget = 400;
// How deep the parent walk goes before it gives up on a cycle.
constexpr int kMaxParentDepth = 100;
// A call that takes this long has run into the method-call timeout.
constexpr auto kStallThreshold = AtspiThread::kMethodCallTimeout * 9 / 10;
// How many child elements, and how deep, a selection's text is gathered from.
constexpr int kSelectionChildBudget = 64;
constexpr int kMaxSelectionDepth = 8;
// The character that stands for a child element in its parent's text (hypertext).
constexpr char32_t kEmbeddedObject = U'\uFFFC';

const QString kRole = QStringLiteral("AXRole");
const QString kRoleDescription = QStringLiteral("AXRoleDescription");
const QString kTitle = QStringLiteral("AXTitle");
const QString kDescription = QStringLiteral("AXDescription");
const QString kValue = QStringLiteral("AXValue");
const QString kSelectedText = QStringLiteral("AXSelectedText");
const QString kSelectedTextRange = QStringLiteral("AXSelectedTextRange");
const QString kNumberOfCharacters = QStringLiteral("AXNumberOfCharacters");
const QString kParent = QStringLiteral("AXParent");
const QString kChildren = QStringLiteral("AXChildren");
const QString kRows = QStringLiteral("AXRows");
const QString kWindows = QStringLiteral("AXWindows");
const QString kWindow = QStringLiteral("AXWindow");
const QString kTopLevel = QStringLiteral("AXTopLevelUIElement");
const QString kFocusedWindow = QStringLiteral("AXFocusedWindow");
const QString kFocusedElement = QStringLiteral("AXFocusedUIElement");
const QString kPosition = QStringLiteral("AXPosition");
const QString kSize = QStringLiteral("AXSize");
const QString kEnabled = QStringLiteral("AXEnabled");
const QString kFocused = QStringLiteral("AXFocused");
const QString kCmdChar = QStringLiteral("AXMenuItemCmdChar");
const QString kCmdModifiers = QStringLiteral("AXMenuItemCmdModifiers");
const QString kPress = QStringLiteral("AXPress");
const QString kApplicationRole = QStringLiteral("AXApplication");

// A piece of work gives up once a call of it has run into the timeout. The mark fades after
// kGiveUpWindow, so that reads made later, outside any capture or paste, try again.
constexpr std::chrono::milliseconds kGiveUpWindow{1000};

class GiveUpMark
{
public:
    operator bool() const
    {
        return m_since.isValid() && m_since.elapsed() < kGiveUpWindow.count();
    }
    GiveUpMark &operator=(bool gaveUp)
    {
        if (gaveUp)
            m_since.start();
        else
            m_since.invalidate();
        return *this;
    }

private:
    QElapsedTimer m_since;
};

thread_local GiveUpMark t_gaveUp;

// Frees the error; a call that got no answer in time marks the piece of work as given up.
bool failed(GError *error)
{
    if (!error)
        return false;
    if (std::strstr(error->message, "reply") || std::strstr(error->message, "Timeout") ||
        std::strstr(error->message, "timed out"))
        t_gaveUp = true;
    g_error_free(error);
    return true;
}

// Many libatspi calls report no error when the application does not answer (the state set,
// the interface list, most method calls): they just take the whole method-call timeout. A
// call that took most of it marks the piece of work as given up as well.
class StallGuard
{
public:
    StallGuard() { m_timer.start(); }
    ~StallGuard()
    {
        if (m_timer.elapsed() >= kStallThreshold.count())
            t_gaveUp = true;
    }

private:
    QElapsedTimer m_timer;
};

AtspiText *textOf(AtspiAccessible *accessible)
{
    if (t_gaveUp)
        return nullptr;
    StallGuard guard;
    return atspi_accessible_get_text_iface(accessible);
}

AtspiEditableText *editableTextOf(AtspiAccessible *accessible)
{
    if (t_gaveUp)
        return nullptr;
    StallGuard guard;
    return atspi_accessible_get_editable_text_iface(accessible);
}

AtspiAction *actionOf(AtspiAccessible *accessible)
{
    if (t_gaveUp)
        return nullptr;
    StallGuard guard;
    return atspi_accessible_get_action_iface(accessible);
}

AtspiComponent *componentOf(AtspiAccessible *accessible)
{
    if (t_gaveUp)
        return nullptr;
    StallGuard guard;
    return atspi_accessible_get_component_iface(accessible);
}

AtspiValue *valueOf(AtspiAccessible *accessible)
{
    if (t_gaveUp)
        return nullptr;
    StallGuard guard;
    return atspi_accessible_get_value_iface(accessible);
}

QString takeString(gchar *text)
{
    const QString result = QString::fromUtf8(text);
    g_free(text);
    return result;
}

bool isWindowRole(AtspiRole role)
{
    return role == ATSPI_ROLE_FRAME || role == ATSPI_ROLE_WINDOW || role == ATSPI_ROLE_DIALOG ||
           role == ATSPI_ROLE_ALERT || role == ATSPI_ROLE_FILE_CHOOSER;
}

bool isMenuItemRole(AtspiRole role)
{
    return role == ATSPI_ROLE_MENU_ITEM || role == ATSPI_ROLE_CHECK_MENU_ITEM ||
           role == ATSPI_ROLE_RADIO_MENU_ITEM || role == ATSPI_ROLE_TEAROFF_MENU_ITEM;
}

AtspiRole roleOf(AtspiAccessible *accessible)
{
    if (t_gaveUp)
        return ATSPI_ROLE_INVALID;
    GError *error = nullptr;
    const AtspiRole role = atspi_accessible_get_role(accessible, &error);
    return failed(error) ? ATSPI_ROLE_INVALID : role;
}

bool hasState(AtspiAccessible *accessible, AtspiStateType state)
{
    if (t_gaveUp)
        return false;
    StallGuard guard;
    AtspiStateSet *states = atspi_accessible_get_state_set(accessible);
    if (!states)
        return false;
    const bool contains = atspi_state_set_contains(states, state);
    g_object_unref(states);
    return contains;
}

QString camelCaseRoleName(AtspiRole role)
{
    QString name = QStringLiteral("AX");
    const QString words = takeString(atspi_role_get_name(role));
    bool upper = true;
    for (const QChar c : words) {
        if (c == u' ' || c == u'-' || c == u'_') {
            upper = true;
            continue;
        }
        name += upper ? c.toUpper() : c;
        upper = false;
    }
    return name;
}

QString axRoleName(AtspiAccessible *accessible, AtspiRole role)
{
    switch (role) {
    case ATSPI_ROLE_APPLICATION:
        return kApplicationRole;
    case ATSPI_ROLE_MENU_BAR:
        return QStringLiteral("AXMenuBar");
    case ATSPI_ROLE_MENU:
    case ATSPI_ROLE_POPUP_MENU:
        return QStringLiteral("AXMenu");
    case ATSPI_ROLE_MENU_ITEM:
    case ATSPI_ROLE_CHECK_MENU_ITEM:
    case ATSPI_ROLE_RADIO_MENU_ITEM:
    case ATSPI_ROLE_TEAROFF_MENU_ITEM:
        return QStringLiteral("AXMenuItem");
    case ATSPI_ROLE_PUSH_BUTTON:
    case ATSPI_ROLE_TOGGLE_BUTTON:
        return QStringLiteral("AXButton");
    case ATSPI_ROLE_CHECK_BOX:
        return QStringLiteral("AXCheckBox");
    case ATSPI_ROLE_RADIO_BUTTON:
        return QStringLiteral("AXRadioButton");
    case ATSPI_ROLE_FRAME:
    case ATSPI_ROLE_WINDOW:
    case ATSPI_ROLE_DIALOG:
    case ATSPI_ROLE_ALERT:
    case ATSPI_ROLE_FILE_CHOOSER:
        return QStringLiteral("AXWindow");
    case ATSPI_ROLE_LABEL:
    case ATSPI_ROLE_STATIC:
    case ATSPI_ROLE_PARAGRAPH:
        return QStringLiteral("AXStaticText");
    case ATSPI_ROLE_TEXT:
    case ATSPI_ROLE_ENTRY:
    case ATSPI_ROLE_PASSWORD_TEXT:
        return hasState(accessible, ATSPI_STATE_MULTI_LINE) ? QStringLiteral("AXTextArea")
                                                            : QStringLiteral("AXTextField");
    case ATSPI_ROLE_SCROLL_PANE:
        return QStringLiteral("AXScrollArea");
    case ATSPI_ROLE_PANEL:
    case ATSPI_ROLE_FILLER:
    case ATSPI_ROLE_GROUPING:
        return QStringLiteral("AXGroup");
    case ATSPI_ROLE_TOOL_BAR:
        return QStringLiteral("AXToolbar");
    case ATSPI_ROLE_PAGE_TAB_LIST:
        return QStringLiteral("AXTabGroup");
    default:
        return camelCaseRoleName(role);
    }
}

UIElement parentOf(AtspiAccessible *accessible)
{
    if (t_gaveUp || roleOf(accessible) == ATSPI_ROLE_APPLICATION)
        return {};
    GError *error = nullptr;
    AtspiAccessible *parent = atspi_accessible_get_parent(accessible, &error);
    if (failed(error))
        return {};
    return UIElement::adopt(parent);
}

QList<UIElement> childrenOf(AtspiAccessible *accessible)
{
    QList<UIElement> children;
    if (t_gaveUp)
        return children;
    GError *error = nullptr;
    const gint count = atspi_accessible_get_child_count(accessible, &error);
    if (failed(error))
        return children;
    for (gint i = 0; i < count && !t_gaveUp; ++i) {
        AtspiAccessible *child = atspi_accessible_get_child_at_index(accessible, i, &error);
        if (failed(error))
            continue;
        if (child)
            children.append(UIElement::adopt(child));
    }
    return children;
}

UIElement windowOf(AtspiAccessible *accessible)
{
    UIElement current = UIElement::retain(accessible);
    for (int depth = 0; current && depth < kMaxParentDepth; ++depth) {
        if (isWindowRole(roleOf(current.accessible())))
            return current;
        current = parentOf(current.accessible());
    }
    return {};
}

UIElement activeWindowOf(AtspiAccessible *application)
{
    const QList<UIElement> windows = childrenOf(application);
    for (const UIElement &window : windows) {
        if (hasState(window.accessible(), ATSPI_STATE_ACTIVE))
            return window;
    }
    return {};
}

// Breadth first, so the search spends its budget near the window before deep subtrees.
UIElement findDescendant(AtspiAccessible *root, const std::function<bool(AtspiAccessible *)> &test,
                         int budget)
{
    QList<UIElement> queue{UIElement::retain(root)};
    while (!queue.isEmpty() && budget-- > 0 && !t_gaveUp) {
        const UIElement element = queue.takeFirst();
        if (test(element.accessible()))
            return element;
        queue.append(childrenOf(element.accessible()));
    }
    return {};
}

std::optional<MenuKeyBinding> menuKeyBinding(AtspiAccessible *accessible)
{
    AtspiAction *action = actionOf(accessible);
    if (!action)
        return std::nullopt;
    GError *error = nullptr;
    const gint count = atspi_action_get_n_actions(action, &error);
    std::optional<MenuKeyBinding> result;
    for (gint i = 0; !failed(error) && i < count && !result; ++i) {
        const QString binding = takeString(atspi_action_get_key_binding(action, i, &error));
        if (failed(error))
            break;
        result = MenuKeyBinding::parse(binding);
    }
    g_object_unref(action);
    return result;
}

// The index of an action by name; "AXPress" finds the element's press action.
int actionIndex(AtspiAction *action, const QString &name)
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
        const QString actionName = takeString(atspi_action_get_action_name(action, i, &error));
        if (failed(error))
            return -1;
        if (actionName == name)
            return i;
        const int rank = int(pressNames.indexOf(actionName.toLower()));
        if (rank >= 0 && rank < pressRank) {
            pressRank = rank;
            pressIndex = i;
        }
    }
    if (name != kPress)
        return -1;
    return pressIndex >= 0 ? pressIndex : (count == 1 ? 0 : -1);
}

std::optional<QString> textContents(AtspiText *text)
{
    GError *error = nullptr;
    const gint count = atspi_text_get_character_count(text, &error);
    if (failed(error))
        return std::nullopt;
    if (count <= 0)
        return QString();
    QString contents = takeString(atspi_text_get_text(text, 0, count, &error));
    if (failed(error))
        return std::nullopt;
    return contents;
}

QHash<QString, QString> objectAttributes(AtspiAccessible *accessible)
{
    QHash<QString, QString> result;
    GError *error = nullptr;
    GHashTable *attributes = atspi_accessible_get_attributes(accessible, &error);
    if (failed(error) || !attributes)
        return result;
    GHashTableIter iter;
    gpointer key;
    gpointer value;
    g_hash_table_iter_init(&iter, attributes);
    while (g_hash_table_iter_next(&iter, &key, &value))
        result.insert(QString::fromUtf8(static_cast<const char *>(key)),
                      QString::fromUtf8(static_cast<const char *>(value)));
    g_hash_table_unref(attributes);
    return result;
}

bool hasInterface(AtspiAccessible *accessible, const char *name)
{
    if (t_gaveUp)
        return false;
    StallGuard guard;
    GArray *interfaces = atspi_accessible_get_interfaces(accessible);
    if (!interfaces)
        return false;
    bool found = false;
    for (guint i = 0; i < interfaces->len && !found; ++i)
        found = std::strcmp(g_array_index(interfaces, gchar *, i), name) == 0;
    for (guint i = 0; i < interfaces->len; ++i)
        g_free(g_array_index(interfaces, gchar *, i));
    g_array_free(interfaces, TRUE);
    return found;
}

QStringList attributeNames(AtspiAccessible *accessible)
{
    const AtspiRole role = roleOf(accessible);
    if (role == ATSPI_ROLE_INVALID)
        return {};
    QStringList names{kRole, kRoleDescription, kTitle, kDescription, kChildren, kEnabled,
                      kFocused};
    if (role == ATSPI_ROLE_APPLICATION) {
        names << kWindows << kFocusedWindow << kFocusedElement;
    } else {
        names << kParent << kWindow << kTopLevel;
    }
    if (hasInterface(accessible, "Component"))
        names << kPosition << kSize;
    if (hasInterface(accessible, "Text"))
        names << kValue << kSelectedText << kSelectedTextRange << kNumberOfCharacters;
    else if (hasInterface(accessible, "Value"))
        names << kValue;
    if (isMenuItemRole(role) && menuKeyBinding(accessible))
        names << kCmdChar << kCmdModifiers;
    const QHash<QString, QString> attributes = objectAttributes(accessible);
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it) {
        if (!names.contains(it.key()))
            names << it.key();
    }
    return names;
}

std::optional<QString> selectionOf(AtspiAccessible *accessible, int depth, int &budget);
std::optional<QString> contentsOf(AtspiAccessible *accessible, int depth, int &budget);

UIElementValue readAttribute(AtspiAccessible *accessible, const QString &attribute)
{
    if (t_gaveUp)
        return {};
    GError *error = nullptr;
    if (attribute == kRole) {
        const AtspiRole role = roleOf(accessible);
        if (role == ATSPI_ROLE_INVALID)
            return {};
        return axRoleName(accessible, role);
    }
    if (attribute == kRoleDescription) {
        QString description = takeString(atspi_accessible_get_localized_role_name(accessible, &error));
        return failed(error) ? UIElementValue() : UIElementValue(description);
    }
    if (attribute == kTitle || attribute == kDescription) {
        QString text = takeString(attribute == kTitle
                                      ? atspi_accessible_get_name(accessible, &error)
                                      : atspi_accessible_get_description(accessible, &error));
        if (failed(error) || text.isEmpty())
            return {};
        return text;
    }
    if (attribute == kValue) {
        if (AtspiText *text = textOf(accessible)) {
            g_object_unref(text);
            int budget = kSelectionChildBudget;
            const std::optional<QString> contents = contentsOf(accessible, 0, budget);
            return contents ? UIElementValue(*contents) : UIElementValue();
        }
        if (AtspiValue *value = valueOf(accessible)) {
            const double current = atspi_value_get_current_value(value, &error);
            g_object_unref(value);
            return failed(error) ? UIElementValue() : UIElementValue(current);
        }
        return {};
    }
    if (attribute == kSelectedText || attribute == kSelectedTextRange ||
        attribute == kNumberOfCharacters) {
        AtspiText *text = textOf(accessible);
        if (!text)
            return {};
        UIElementValue result;
        if (attribute == kNumberOfCharacters) {
            const gint count = atspi_text_get_character_count(text, &error);
            if (!failed(error))
                result = double(count);
        } else {
            AtspiRange *range = atspi_text_get_selection(text, 0, &error);
            if (!failed(error) && range) {
                if (attribute == kSelectedTextRange) {
                    result = AXRange{range->start_offset, range->end_offset - range->start_offset};
                } else {
                    QString selected = takeString(
                        atspi_text_get_text(text, range->start_offset, range->end_offset, &error));
                    if (!failed(error))
                        result = selected;
                }
            }
            g_free(range);
        }
        g_object_unref(text);
        return result;
    }
    if (attribute == kParent) {
        const UIElement parent = parentOf(accessible);
        return parent ? UIElementValue(parent) : UIElementValue();
    }
    if (attribute == kChildren || attribute == kWindows)
        return childrenOf(accessible);
    if (attribute == kWindow || attribute == kTopLevel) {
        const UIElement window = windowOf(accessible);
        return window ? UIElementValue(window) : UIElementValue();
    }
    if (attribute == kFocusedWindow) {
        const UIElement window = activeWindowOf(accessible);
        return window ? UIElementValue(window) : UIElementValue();
    }
    if (attribute == kFocusedElement) {
        const UIElement window = activeWindowOf(accessible);
        if (!window)
            return {};
        const UIElement focused = findDescendant(
            window.accessible(),
            [](AtspiAccessible *candidate) { return hasState(candidate, ATSPI_STATE_FOCUSED); },
            kFocusSearchBudget);
        return focused ? UIElementValue(focused) : UIElementValue();
    }
    if (attribute == kPosition || attribute == kSize) {
        AtspiComponent *component = componentOf(accessible);
        if (!component)
            return {};
        AtspiRect *extents = atspi_component_get_extents(component, ATSPI_COORD_TYPE_SCREEN, &error);
        g_object_unref(component);
        if (failed(error) || !extents)
            return {};
        const UIElementValue result =
            attribute == kPosition ? UIElementValue(AXPoint{double(extents->x), double(extents->y)})
                                   : UIElementValue(AXSize{double(extents->width),
                                                           double(extents->height)});
        g_free(extents);
        return result;
    }
    if (attribute == kEnabled)
        return hasState(accessible, ATSPI_STATE_ENABLED) ? 1.0 : 0.0;
    if (attribute == kFocused)
        return hasState(accessible, ATSPI_STATE_FOCUSED) ? 1.0 : 0.0;
    if (attribute == kCmdChar || attribute == kCmdModifiers) {
        const std::optional<MenuKeyBinding> binding = menuKeyBinding(accessible);
        if (!binding)
            return {};
        return attribute == kCmdChar ? UIElementValue(binding->key)
                                     : UIElementValue(double(binding->modifiers));
    }
    const QHash<QString, QString> attributes = objectAttributes(accessible);
    const auto found = attributes.constFind(attribute);
    return found == attributes.cend() ? UIElementValue() : UIElementValue(*found);
}

QString formatNumber(double number)
{
    return QString::number(number, 'g', 17);
}

// printf's %g, which the geometric formats use.
QString g(double number)
{
    return QString::asprintf("%g", number);
}

// The element a hypertext shows as the embedded-object character at an offset, or null.
UIElement embeddedObjectAt(AtspiHypertext *hypertext, gint offset)
{
    GError *error = nullptr;
    const gint index = atspi_hypertext_get_link_index(hypertext, offset, &error);
    if (failed(error) || index < 0)
        return {};
    AtspiHyperlink *link = atspi_hypertext_get_link(hypertext, index, &error);
    if (failed(error) || !link)
        return {};
    AtspiAccessible *object = atspi_hyperlink_get_object(link, 0, &error);
    g_object_unref(link);
    if (failed(error))
        return {};
    return UIElement::adopt(object);
}

// What a child element shown as an embedded-object character gives to its parent's text.
enum class ChildPart {
    Selection, // its selected part, block or inline
    Inline,    // all its text when it is inline (a link); nothing when it is a block
};

// Browsers show each child element (a paragraph, a link) in their parent's text as one
// embedded-object character: puts the children's text in their place. `text` starts at
// offset `start` of the element's text. Block children are kept on lines of their own; a
// child that does not say it is inline (the browser's own buttons and bars say nothing)
// counts as a block.
QString withEmbeddedObjects(AtspiAccessible *accessible, const QString &text, gint start,
                            ChildPart part, int depth, int &budget)
{
    if (!text.contains(QChar(kEmbeddedObject)) || depth >= kMaxSelectionDepth || t_gaveUp)
        return text;
    AtspiHypertext *hypertext = atspi_accessible_get_hypertext_iface(accessible);
    if (!hypertext)
        return text;
    QString gathered;
    const QList<uint> characters = text.toUcs4();
    for (qsizetype i = 0; i < characters.size(); ++i) {
        const char32_t character = characters[i];
        if (character != kEmbeddedObject) {
            gathered += QString::fromUcs4(&character, 1);
            continue;
        }
        if (budget-- <= 0 || t_gaveUp)
            break;
        const UIElement child = embeddedObjectAt(hypertext, start + gint(i));
        if (!child)
            continue;
        const bool block = !objectAttributes(child.accessible())
                                .value(QStringLiteral("display"))
                                .startsWith(QLatin1String("inline"));
        if (block && part == ChildPart::Inline)
            continue;
        const std::optional<QString> childText =
            part == ChildPart::Selection ? selectionOf(child.accessible(), depth + 1, budget)
                                         : contentsOf(child.accessible(), depth + 1, budget);
        if (!childText)
            continue;
        if (block && !gathered.isEmpty() && !gathered.endsWith(u'\n'))
            gathered += u'\n';
        gathered += *childText;
        if (block)
            gathered += u'\n';
    }
    g_object_unref(hypertext);
    return gathered;
}

// The selected text of an element. A page's document holds the focus in a browser, and its
// selection is made of embedded-object characters: each stands for its child's selected part.
std::optional<QString> selectionOf(AtspiAccessible *accessible, int depth, int &budget)
{
    AtspiText *text = textOf(accessible);
    if (!text)
        return std::nullopt;
    GError *error = nullptr;
    QString selected;
    gint start = 0;
    AtspiRange *range = atspi_text_get_selection(text, 0, &error);
    if (!failed(error) && range && range->end_offset > range->start_offset) {
        start = range->start_offset;
        selected = takeString(atspi_text_get_text(text, range->start_offset, range->end_offset,
                                                  &error));
        if (failed(error))
            selected.clear();
    }
    g_free(range);
    g_object_unref(text);
    if (selected.contains(QChar(kEmbeddedObject)))
        selected = withEmbeddedObjects(accessible, selected, start, ChildPart::Selection, depth,
                                       budget)
                       .trimmed();
    return selected.isEmpty() ? std::nullopt : std::optional<QString>(selected);
}

// All the text of an element, its inline children's (links) included.
std::optional<QString> contentsOf(AtspiAccessible *accessible, int depth, int &budget)
{
    AtspiText *text = textOf(accessible);
    if (!text)
        return std::nullopt;
    const std::optional<QString> contents = textContents(text);
    g_object_unref(text);
    if (!contents)
        return std::nullopt;
    return withEmbeddedObjects(accessible, *contents, 0, ChildPart::Inline, depth, budget);
}

// The process of an application, remembered by its unique bus name (never reused within a
// session): asking the bus for every application on each capture cost 20 to 40 ms.
std::optional<qint64> processOfApplication(AtspiAccessible *application)
{
    static QHash<QByteArray, qint64> processes;
    const AtspiApplication *connection = application->parent.app;
    const QByteArray busName = connection && connection->bus_name ? QByteArray(connection->bus_name)
                                                                  : QByteArray();
    if (!busName.isEmpty()) {
        if (const auto found = processes.constFind(busName); found != processes.cend())
            return *found;
    }
    GError *error = nullptr;
    const guint pid = atspi_accessible_get_process_id(application, &error);
    if (failed(error))
        return std::nullopt;
    if (!busName.isEmpty())
        processes.insert(busName, qint64(pid));
    return qint64(pid);
}

// How many children a search by extents looks at, where a toolkit gives no element at a point.
constexpr int kMaxChildrenSearched = 64;

UIElement childContaining(AtspiAccessible *parent, const QPoint &point, AtspiCoordType coordinates)
{
    GError *error = nullptr;
    const gint count = atspi_accessible_get_child_count(parent, &error);
    if (failed(error) || count > kMaxChildrenSearched)
        return {};
    for (const UIElement &child : childrenOf(parent)) {
        AtspiComponent *component = componentOf(child.accessible());
        if (!component)
            continue;
        const bool contains =
            atspi_component_contains(component, point.x(), point.y(), coordinates, &error);
        g_object_unref(component);
        if (failed(error) || t_gaveUp)
            return {};
        // GTK 4 leaves SHOWING out on the widgets inside its windows.
        if (contains && (hasState(child.accessible(), ATSPI_STATE_SHOWING) ||
                         hasState(child.accessible(), ATSPI_STATE_VISIBLE)))
            return child;
    }
    return {};
}

// Where to ask an application about a screen point: GTK 4 knows only positions within its
// windows (it has no global coordinates), every other toolkit screen positions.
struct ApplicationPoint
{
    QPoint point;
    AtspiCoordType type = ATSPI_COORD_TYPE_SCREEN;
};

// The toolkit's name and version. libatspi keeps them with the application once read; they
// are read from the application's root object, the only one Qt answers for.
QPair<QString, QString> toolkitOf(AtspiAccessible *accessible)
{
    AtspiApplication *application = accessible->parent.app;
    if (!application || !application->root)
        return {};
    GError *error = nullptr;
    if (!application->toolkit_name && !t_gaveUp) {
        StallGuard guard;
        g_free(atspi_accessible_get_toolkit_name(application->root, &error));
        failed(error);
    }
    if (!application->toolkit_version && !t_gaveUp) {
        StallGuard guard;
        g_free(atspi_accessible_get_toolkit_version(application->root, &error));
        failed(error);
    }
    return {QString::fromUtf8(application->toolkit_name),
            QString::fromUtf8(application->toolkit_version)};
}

ApplicationPoint applicationPoint(AtspiAccessible *accessible, const QPoint &screenPoint,
                                  const QPoint &windowOrigin)
{
    const auto [toolkit, version] = toolkitOf(accessible);
    if (toolkit.compare(QLatin1String("gtk"), Qt::CaseInsensitive) != 0 ||
        !version.startsWith(QLatin1String("4.")))
        return {screenPoint, ATSPI_COORD_TYPE_SCREEN};
    return {screenPoint - windowOrigin, ATSPI_COORD_TYPE_WINDOW};
}

// Every operation runs as one piece of work on the AT-SPI thread. Once the application has
// stopped answering, the operations that follow give up at once; an operation that ran into
// the timeout marks that, since libatspi does not report every timeout as an error.
template <typename T>
T onAtspiThread(std::function<T()> work, T fallback = T())
{
    return AtspiThread::instance()
        .call<T>([work = std::move(work), fallback] {
            if (t_gaveUp)
                return fallback;
            StallGuard guard;
            return work();
        })
        .value_or(std::move(fallback));
}

} // namespace

UIElement UIElement::adopt(AtspiAccessible *accessible)
{
    UIElement element;
    if (!accessible)
        return element;
    element.m_accessible.reset(accessible, [](AtspiAccessible *object) {
        AtspiThread &thread = AtspiThread::instance();
        if (thread.isCurrentThread())
            g_object_unref(object);
        else
            thread.post([object] { g_object_unref(object); });
    });
    return element;
}

UIElement UIElement::retain(AtspiAccessible *accessible)
{
    return adopt(accessible ? static_cast<AtspiAccessible *>(g_object_ref(accessible)) : nullptr);
}

void UIElementUtilities::beginWork()
{
    AtspiThread::instance().call<bool>([] {
        t_gaveUp = false;
        return true;
    });
}

bool UIElementUtilities::gaveUp()
{
    return AtspiThread::instance().call<bool>([] { return bool(t_gaveUp); }).value_or(true);
}

UIElementValue UIElementUtilities::valueOfAttribute(const QString &attribute,
                                                    const UIElement &element)
{
    if (!element)
        return {};
    return onAtspiThread<UIElementValue>([=]() -> UIElementValue {
        if (!attributeNames(element.accessible()).contains(attribute))
            return {};
        return readAttribute(element.accessible(), attribute);
    });
}

void UIElementUtilities::performAction(const QString &action, const UIElement &element)
{
    if (!element)
        return;
    auto perform = [action, element] {
        // Nobody waits for this call, so it may be patient with an application that is busy
        // (serving the clipboard, say) when the press arrives. Qt runs the action before it
        // answers, and a Paste there reads the clipboard from Tolkaro's main thread: a late
        // answer is no sign of a hang, and must not make the next capture give up.
        const GiveUpMark gaveUpBefore = t_gaveUp;
        atspi_set_timeout(int(AtspiThread::kActionTimeout.count()), 0);
        const auto restore = qScopeGuard([gaveUpBefore] {
            atspi_set_timeout(int(AtspiThread::kMethodCallTimeout.count()), 0);
            t_gaveUp = gaveUpBefore;
        });
        AtspiAction *actions = atspi_accessible_get_action_iface(element.accessible());
        if (!actions)
            return;
        const int index = actionIndex(actions, action);
        GError *error = nullptr;
        if (index >= 0)
            atspi_action_do_action(actions, index, &error);
        failed(error);
        g_object_unref(actions);
    };
    // Without waiting: the caller's thread must stay free to serve the clipboard.
    AtspiThread &thread = AtspiThread::instance();
    if (thread.isCurrentThread())
        perform();
    else
        thread.post(perform);
}

bool UIElementUtilities::isApplicationUIElement(const UIElement &element)
{
    const UIElementValue role = roleOfUIElement(element);
    const QString *name = std::get_if<QString>(&role);
    return name && *name == kApplicationRole;
}

UIElementValue UIElementUtilities::roleOfUIElement(const UIElement &element)
{
    return valueOfAttribute(kRole, element);
}

UIElementValue UIElementUtilities::titleOfUIElement(const UIElement &element)
{
    return valueOfAttribute(kTitle, element);
}

UIElementValue UIElementUtilities::parentOfUIElement(const UIElement &element)
{
    return valueOfAttribute(kParent, element);
}

UIElementValue UIElementUtilities::windowElementOfUIElement(const UIElement &element)
{
    return valueOfAttribute(kWindow, element);
}

UIElementValue UIElementUtilities::topLevelElementOfUIElement(const UIElement &element)
{
    return valueOfAttribute(kTopLevel, element);
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

QRectF UIElementUtilities::flippedScreenBounds(const QRectF &bounds)
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    if (screens.isEmpty())
        return bounds;
    const QScreen *first = screens.first();
    const QPointF origin = first->geometry().topLeft();
    const qreal ratio = first->devicePixelRatio();
    return QRectF(origin + (bounds.topLeft() - origin) / ratio, bounds.size() / ratio);
}

std::optional<QString> UIElementUtilities::descriptionForUIElement(const UIElement &element,
                                                                   const QString &attribute,
                                                                   bool verbose)
{
    if (!element)
        return std::nullopt;
    return onAtspiThread<std::optional<QString>>([=]() -> std::optional<QString> {
        if (attribute == kChildren || attribute == kRows) {
            GError *error = nullptr;
            const gint count = atspi_accessible_get_child_count(element.accessible(), &error);
            if (!failed(error))
                return QStringLiteral("<array of size %1>").arg(count);
        }
        const UIElementValue value = readAttribute(element.accessible(), attribute);
        if (isNullValue(value))
            return std::nullopt;
        return descriptionOfValue(value, verbose);
    });
}

std::optional<QStringList> UIElementUtilities::attributeNamesOfUIElement(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return onAtspiThread<std::optional<QStringList>>([=]() -> std::optional<QStringList> {
        const QStringList names = attributeNames(element.accessible());
        if (names.isEmpty())
            return std::nullopt;
        return names;
    });
}

std::optional<QStringList> UIElementUtilities::actionNamesOfUIElement(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return onAtspiThread<std::optional<QStringList>>([=]() -> std::optional<QStringList> {
        AtspiAction *actions = actionOf(element.accessible());
        if (!actions)
            return std::nullopt;
        GError *error = nullptr;
        const gint count = atspi_action_get_n_actions(actions, &error);
        std::optional<QStringList> names;
        if (!failed(error)) {
            names = QStringList();
            for (gint i = 0; i < count; ++i) {
                names->append(takeString(atspi_action_get_action_name(actions, i, &error)));
                if (failed(error)) {
                    names.reset();
                    break;
                }
            }
        }
        g_object_unref(actions);
        return names;
    });
}

std::optional<QString> UIElementUtilities::descriptionOfAction(const QString &action,
                                                               const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return onAtspiThread<std::optional<QString>>([=]() -> std::optional<QString> {
        AtspiAction *actions = actionOf(element.accessible());
        if (!actions)
            return std::nullopt;
        std::optional<QString> description;
        const int index = actionIndex(actions, action);
        GError *error = nullptr;
        if (index >= 0) {
            QString text = takeString(atspi_action_get_action_description(actions, index, &error));
            if (!failed(error))
                description = text;
        }
        g_object_unref(actions);
        return description;
    });
}

qint64 UIElementUtilities::processIdentifierOfUIElement(const UIElement &element)
{
    if (!element)
        return 0;
    return onAtspiThread<qint64>([=]() -> qint64 {
        GError *error = nullptr;
        const guint pid = atspi_accessible_get_process_id(element.accessible(), &error);
        return failed(error) ? 0 : qint64(pid);
    });
}

bool UIElementUtilities::canSetAttribute(const QString &attribute, const UIElement &element)
{
    if (!element)
        return false;
    return onAtspiThread<bool>([=] {
        AtspiAccessible *accessible = element.accessible();
        if (attribute == kValue) {
            if (hasInterface(accessible, "Text"))
                return hasInterface(accessible, "EditableText") &&
                       hasState(accessible, ATSPI_STATE_EDITABLE);
            return hasInterface(accessible, "Value");
        }
        if (attribute == kPosition || attribute == kSize || attribute == kFocused)
            return hasInterface(accessible, "Component");
        return false;
    });
}

void UIElementUtilities::setStringValue(const QString &text, const QString &attribute,
                                        const UIElement &element)
{
    if (attribute.isEmpty() || !element)
        return;
    onAtspiThread<bool>([=] {
        AtspiAccessible *accessible = element.accessible();
        const UIElementValue current = readAttribute(accessible, attribute);
        if (isNullValue(current))
            return false;
        const QByteArray utf8 = text.toUtf8();
        GError *error = nullptr;
        bool done = false;
        if (const auto *point = std::get_if<AXPoint>(&current)) {
            float x = point->x;
            float y = point->y;
            AtspiComponent *component = componentOf(accessible);
            if (component && std::sscanf(utf8.constData(), "x=%g y=%g", &x, &y) == 2)
                done = atspi_component_set_position(component, gint(x), gint(y),
                                                    ATSPI_COORD_TYPE_SCREEN, &error);
            if (component)
                g_object_unref(component);
        } else if (const auto *size = std::get_if<AXSize>(&current)) {
            float width = size->width;
            float height = size->height;
            AtspiComponent *component = componentOf(accessible);
            if (component && std::sscanf(utf8.constData(), "w=%g h=%g", &width, &height) == 2)
                done = atspi_component_set_size(component, gint(width), gint(height), &error);
            if (component)
                g_object_unref(component);
        } else if (const auto *range = std::get_if<AXRange>(&current)) {
            long location = range->location;
            long length = range->length;
            AtspiText *textIface = textOf(accessible);
            if (textIface &&
                std::sscanf(utf8.constData(), "pos=%ld len=%ld", &location, &length) == 2) {
                done = atspi_text_set_selection(textIface, 0, gint(location),
                                                gint(location + length), &error);
                // GTK's text view moves a selection but will not make the first one.
                if (!failed(error) && !done && length > 0)
                    done = atspi_text_add_selection(textIface, gint(location),
                                                    gint(location + length), &error);
            }
            if (textIface)
                g_object_unref(textIface);
        } else if (std::holds_alternative<QString>(current)) {
            AtspiEditableText *editable = editableTextOf(accessible);
            if (editable) {
                done = atspi_editable_text_set_text_contents(editable, utf8.constData(), &error);
                g_object_unref(editable);
            }
        } else if (std::holds_alternative<double>(current)) {
            if (attribute == kFocused) {
                AtspiComponent *component = componentOf(accessible);
                if (component && text.toDouble() != 0)
                    done = atspi_component_grab_focus(component, &error);
                if (component)
                    g_object_unref(component);
            } else if (AtspiValue *value = valueOf(accessible)) {
                done = atspi_value_set_current_value(value, text.toDouble(), &error);
                g_object_unref(value);
            }
        }
        failed(error);
        return done;
    });
}

QRectF UIElementUtilities::frameOfUIElement(const UIElement &element)
{
    const UIElementValue position = valueOfAttribute(kPosition, element);
    const UIElementValue size = valueOfAttribute(kSize, element);
    const auto *point = std::get_if<AXPoint>(&position);
    const auto *extent = std::get_if<AXSize>(&size);
    if (!point || !extent)
        return QRectF();
    return flippedScreenBounds(QRectF(point->x, point->y, extent->width, extent->height));
}

QString UIElementUtilities::stringDescriptionOfAXValue(const UIElementValue &value, bool verbose)
{
    if (const auto *point = std::get_if<AXPoint>(&value))
        return verbose ? QStringLiteral("<AXPointValue x=%1 y=%2>").arg(g(point->x), g(point->y))
                       : QStringLiteral("x=%1 y=%2").arg(g(point->x), g(point->y));
    if (const auto *size = std::get_if<AXSize>(&value))
        return verbose
                   ? QStringLiteral("<AXSizeValue w=%1 h=%2>").arg(g(size->width), g(size->height))
                   : QStringLiteral("w=%1 h=%2").arg(g(size->width), g(size->height));
    if (const auto *rect = std::get_if<AXRect>(&value)) {
        const QString numbers = QStringLiteral("x=%1 y=%2 w=%3 h=%4")
                                    .arg(g(rect->x), g(rect->y), g(rect->width), g(rect->height));
        return verbose ? QStringLiteral("<AXRectValue  %1>").arg(numbers) : numbers;
    }
    if (const auto *range = std::get_if<AXRange>(&value)) {
        const QString numbers =
            QStringLiteral("pos=%1 len=%2").arg(range->location).arg(range->length);
        return verbose ? QStringLiteral("<AXRangeValue %1>").arg(numbers) : numbers;
    }
    return QStringLiteral("AXValue???");
}

std::optional<QString> UIElementUtilities::descriptionOfValue(const UIElementValue &value,
                                                              bool verbose)
{
    if (isNullValue(value))
        return std::nullopt;
    if (std::holds_alternative<AXPoint>(value) || std::holds_alternative<AXSize>(value) ||
        std::holds_alternative<AXRect>(value) || std::holds_alternative<AXRange>(value))
        return stringDescriptionOfAXValue(value, verbose);
    if (const auto *list = std::get_if<QList<UIElement>>(&value))
        return QStringLiteral("<array of size %1>").arg(list->size());
    if (const auto *text = std::get_if<QString>(&value))
        return *text;
    if (const auto *number = std::get_if<double>(&value))
        return formatNumber(*number);
    const UIElement element = std::get<UIElement>(value);
    return onAtspiThread<std::optional<QString>>([=]() -> std::optional<QString> {
        const UIElementValue role = readAttribute(element.accessible(), kRole);
        if (isNullValue(role))
            return QStringLiteral("<AtspiAccessible %1>")
                .arg(quintptr(element.accessible()), 0, 16);
        const QString roleName = std::get<QString>(role);
        const UIElementValue title = attributeNames(element.accessible()).contains(kTitle)
                                         ? readAttribute(element.accessible(), kTitle)
                                         : UIElementValue();
        if (const auto *titleText = std::get_if<QString>(&title))
            return QStringLiteral("<%1: \u201c%2\u201d>").arg(roleName, *titleText);
        return QStringLiteral("<%1>").arg(roleName);
    });
}

QStringList UIElementUtilities::lineageOfUIElement(const UIElement &element)
{
    QStringList lineage;
    if (!element)
        return lineage;
    const UIElementValue parent = parentOfUIElement(element);
    if (const auto *parentElement = std::get_if<UIElement>(&parent))
        lineage = lineageOfUIElement(*parentElement);
    lineage.append(descriptionOfValue(element, false).value_or(QString()));
    return lineage;
}

QString UIElementUtilities::lineageDescriptionOfUIElement(const UIElement &element)
{
    QString description;
    QString indent;
    for (const QString &entry : lineageOfUIElement(element)) {
        description += QStringLiteral("%1%2\n").arg(indent, entry);
        indent += u' ';
    }
    return description;
}

QString UIElementUtilities::stringDescriptionOfUIElement(const UIElement &element)
{
    QString report = lineageDescriptionOfUIElement(element);
    const std::optional<QStringList> attributes = attributeNamesOfUIElement(element);
    if (attributes && !attributes->isEmpty()) {
        report += QStringLiteral("\nAttributes:\n");
        for (const QString &attribute : *attributes) {
            const QString settable =
                canSetAttribute(attribute, element) ? QStringLiteral(" (W)") : QString();
            const QString text = descriptionForUIElement(element, attribute, false).value_or(QString());
            report += QStringLiteral("   %1%2:  \u201c%3\u201d\n").arg(attribute, settable, text);
        }
    }
    const std::optional<QStringList> actions = actionNamesOfUIElement(element);
    if (actions && !actions->isEmpty()) {
        report += QStringLiteral("\nActions:\n");
        for (const QString &action : *actions) {
            report += QStringLiteral("   %1 - %2\n")
                          .arg(action, descriptionOfAction(action, element).value_or(QString()));
        }
    }
    return report;
}

QString UIElementUtilities::descriptionOfAXDescriptionOfUIElement(const UIElement &element)
{
    const UIElementValue description = valueOfAttribute(kDescription, element);
    const auto *text = std::get_if<QString>(&description);
    if (!text || text->isEmpty())
        return QStringLiteral("No Description");
    return *text;
}

UIElement UIElementUtilities::applicationElementForProcess(qint64 pid)
{
    // A blocking call into our own process would wait for a main thread that is waiting.
    if (pid <= 0 || pid == qint64(getpid()))
        return {};
    return onAtspiThread<UIElement>([pid]() -> UIElement {
        AtspiAccessible *desktop = atspi_get_desktop(0);
        if (!desktop)
            return {};
        UIElement found;
        GError *error = nullptr;
        const gint count = atspi_accessible_get_child_count(desktop, &error);
        // The newest application last: start there, it is the likeliest target.
        for (gint i = count - 1; !failed(error) && i >= 0 && !found; --i) {
            AtspiAccessible *application = atspi_accessible_get_child_at_index(desktop, i, &error);
            if (failed(error) || !application)
                continue;
            const std::optional<qint64> applicationPid = processOfApplication(application);
            if (applicationPid == pid)
                found = UIElement::retain(application);
            g_object_unref(application);
        }
        g_object_unref(desktop);
        return found;
    });
}

UIElement UIElementUtilities::elementAtScreenPoint(const UIElement &application,
                                                   const QPoint &screenPoint,
                                                   const QPoint &windowOrigin)
{
    if (!application)
        return {};
    return onAtspiThread<UIElement>([=]() -> UIElement {
        const auto [point, coordinates] =
            applicationPoint(application.accessible(), screenPoint, windowOrigin);
        // The window under the point: the active one first when windows overlap.
        UIElement window;
        for (const UIElement &candidate : childrenOf(application.accessible())) {
            AtspiComponent *component = componentOf(candidate.accessible());
            if (!component)
                continue;
            GError *error = nullptr;
            bool contains = false;
            {
                StallGuard guard;
                contains = atspi_component_contains(component, point.x(), point.y(),
                                                    coordinates, &error);
            }
            g_object_unref(component);
            if (t_gaveUp)
                break;
            if (failed(error) || !contains || !hasState(candidate.accessible(), ATSPI_STATE_SHOWING))
                continue;
            if (!window || hasState(candidate.accessible(), ATSPI_STATE_ACTIVE))
                window = candidate;
        }
        UIElement current = window;
        for (int depth = 0; current && depth < kMaxPointDepth && !t_gaveUp; ++depth) {
            AtspiComponent *component = componentOf(current.accessible());
            if (!component)
                break;
            GError *error = nullptr;
            AtspiAccessible *child = atspi_component_get_accessible_at_point(
                component, point.x(), point.y(), coordinates, &error);
            g_object_unref(component);
            if (failed(error))
                break;
            // GTK 4 answers nothing over some of its widgets (an entry, whose inner text
            // is not in the tree): look among the children for the one containing the point.
            UIElement next = child ? UIElement::adopt(child)
                                   : childContaining(current.accessible(), point, coordinates);
            if (!next)
                break;
            if (next.accessible() == current.accessible())
                break;
            current = next;
        }
        // Chromium answers with the run of text under the point where a paragraph mixes text
        // and links: the paragraph, whose hypertext holds the run, is what the user points at.
        if (current && current != window && roleOf(current.accessible()) == ATSPI_ROLE_STATIC) {
            UIElement parent = parentOf(current.accessible());
            if (parent && parent != window && hasInterface(parent.accessible(), "Hypertext"))
                return parent;
        }
        // Qt answers with the deepest element at once, and its text views hold a viewport
        // and scroll bars: what the user points at is the text around them.
        if (current && current != window && !hasInterface(current.accessible(), "Text")) {
            UIElement ancestor = parentOf(current.accessible());
            for (int depth = 0; ancestor && ancestor != window && depth < kMaxParentDepth;
                 ++depth) {
                if (hasInterface(ancestor.accessible(), "Text"))
                    return ancestor;
                ancestor = parentOf(ancestor.accessible());
            }
        }
        return current;
    });
}

UIElement UIElementUtilities::applicationOfUIElement(const UIElement &element)
{
    if (!element)
        return {};
    return onAtspiThread<UIElement>([=]() -> UIElement {
        UIElement current = element;
        for (int depth = 0; current && depth < kMaxParentDepth; ++depth) {
            if (roleOf(current.accessible()) == ATSPI_ROLE_APPLICATION)
                return current;
            current = parentOf(current.accessible());
        }
        // LibreOffice's document windows, reached from inside, have no parent (the window
        // the application lists is another object): the element's connection knows its root.
        AtspiApplication *connection = element.accessible()->parent.app;
        if (!t_gaveUp && connection && connection->root &&
            roleOf(connection->root) == ATSPI_ROLE_APPLICATION)
            return UIElement::retain(connection->root);
        return {};
    });
}

std::optional<QString> UIElementUtilities::selectedText(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return onAtspiThread<std::optional<QString>>([=] {
        int budget = kSelectionChildBudget;
        return selectionOf(element.accessible(), 0, budget);
    });
}

std::optional<QString> UIElementUtilities::paragraphAtScreenPoint(const UIElement &element,
                                                                  const QPoint &screenPoint,
                                                                  const QPoint &windowOrigin)
{
    if (!element)
        return std::nullopt;
    return onAtspiThread<std::optional<QString>>([=]() -> std::optional<QString> {
        const auto [point, coordinates] =
            applicationPoint(element.accessible(), screenPoint, windowOrigin);
        AtspiText *text = textOf(element.accessible());
        if (!text)
            return std::nullopt;
        std::optional<QString> paragraph;
        GError *error = nullptr;
        const gint offset = atspi_text_get_offset_at_point(text, point.x(), point.y(),
                                                           coordinates, &error);
        if (!failed(error) && offset >= 0) {
            AtspiTextRange *range = atspi_text_get_string_at_offset(
                text, offset, ATSPI_TEXT_GRANULARITY_PARAGRAPH, &error);
            if (!failed(error) && range) {
                int budget = kSelectionChildBudget;
                paragraph = withEmbeddedObjects(element.accessible(),
                                                QString::fromUtf8(range->content),
                                                range->start_offset, ChildPart::Inline, 0, budget)
                                .trimmed();
                g_free(range->content);
                g_free(range);
            }
        }
        g_object_unref(text);
        if (paragraph && paragraph->isEmpty())
            paragraph.reset();
        return paragraph;
    });
}

std::optional<qsizetype> UIElementUtilities::characterCount(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return onAtspiThread<std::optional<qsizetype>>([=]() -> std::optional<qsizetype> {
        AtspiText *text = textOf(element.accessible());
        if (!text)
            return std::nullopt;
        GError *error = nullptr;
        const gint count = atspi_text_get_character_count(text, &error);
        g_object_unref(text);
        if (failed(error))
            return std::nullopt;
        return qsizetype(count);
    });
}

bool UIElementUtilities::replaceSelectedText(const UIElement &element, const QString &text)
{
    if (!element)
        return false;
    const bool qtToolkit =
        toolkitName(element).compare(QLatin1String("qt"), Qt::CaseInsensitive) == 0;
    return onAtspiThread<bool>([=] {
        AtspiAccessible *accessible = element.accessible();
        if (!hasState(accessible, ATSPI_STATE_EDITABLE))
            return false;
        AtspiEditableText *editable = editableTextOf(accessible);
        AtspiText *textIface = textOf(accessible);
        bool done = false;
        if (editable && textIface) {
            GError *error = nullptr;
            gint start = atspi_text_get_caret_offset(textIface, &error);
            if (!failed(error)) {
                gint end = start;
                AtspiRange *range = atspi_text_get_selection(textIface, 0, &error);
                if (!failed(error) && range && range->end_offset > range->start_offset) {
                    start = range->start_offset;
                    end = range->end_offset;
                }
                g_free(range);
                if (end > start) {
                    atspi_editable_text_delete_text(editable, start, end, &error);
                    failed(error);
                }
                const QByteArray utf8 = text.toUtf8();
                // Qt reads the length in UTF-16 code units, GTK in bytes.
                const gint length = qtToolkit ? gint(text.size()) : gint(utf8.size());
                if (!t_gaveUp) {
                    atspi_editable_text_insert_text(editable, start, utf8.constData(), length,
                                                    &error);
                    failed(error);
                }
                // Read back: the calls' answers do not say whether the text changed. Qt counts
                // offsets in UTF-16 units too, everyone else in characters.
                const gint characters = qtToolkit ? gint(text.size()) : gint(text.toUcs4().size());
                const QString readBack = takeString(
                    atspi_text_get_text(textIface, start, start + characters, &error));
                done = !failed(error) && readBack == text;
                if (done) {
                    atspi_text_set_caret_offset(textIface, start + characters, &error);
                    failed(error);
                }
            }
        }
        if (editable)
            g_object_unref(editable);
        if (textIface)
            g_object_unref(textIface);
        return done;
    });
}

QString UIElementUtilities::toolkitName(const UIElement &element)
{
    if (!element)
        return {};
    return onAtspiThread<QString>([=] { return toolkitOf(element.accessible()).first; });
}
