#pragma once

#include "MenuKeyBinding.h"
#include "UIElement.h"

#include <QFlags>
#include <QList>
#include <QPointF>
#include <QRect>
#include <QString>

#include <optional>

// What an element is, as far as Tolkaro tells elements apart; Unknown when the role could
// not be read.
enum class UIElementRole
{
    Unknown,
    Other,
    Application,
    Window, // frames, dialogs, alerts
    MenuBar,
    Menu,
    MenuItem, // check, radio and tear-off items too
    Terminal,
};

enum class UIElementState
{
    Enabled = 1 << 0,
    Focused = 1 << 1,
    Showing = 1 << 2,
    Visible = 1 << 3,
    Active = 1 << 4,
    Editable = 1 << 5,
    MultiLine = 1 << 6,
};
Q_DECLARE_FLAGS(UIElementStates, UIElementState)
Q_DECLARE_OPERATORS_FOR_FLAGS(UIElementStates)

// The texts of an element that a capture chooses from, in their order of preference.
enum class UIElementTextAttribute
{
    Value,       // the Text interface's contents, else the Value interface's number
    Title,       // the accessible name
    Help,        // none: this AT-SPI has no help text (toolkits give the tooltip as description)
    Description, // the accessible description
};

enum class UIElementAction
{
    Press, // the element's press action: "click" in GTK, "Press" in Qt, "activate"...
};

// The toolkit an application reports ("gtk", "Qt"...) and its version.
struct UIElementToolkit
{
    QString name;
    QString version;
};

// Typed reads of what other applications expose over AT-SPI, and the press of an element.
//
// Every operation may be called from any thread: it runs as one guarded piece of work on
// the AT-SPI thread (AtspiCall) and waits for it, or runs at once when already there, so
// operations compose inside one another's work. Failures give the empty answer (Unknown,
// null, empty, nullopt, 0) and are not logged.
class UIElementUtilities
{
public:
    static UIElementRole roleOfUIElement(const UIElement &element);
    static bool isApplicationUIElement(const UIElement &element);
    // The accessible name, and the accessible description; empty when there is none.
    static QString titleOfUIElement(const UIElement &element);
    static QString descriptionOfUIElement(const UIElement &element);
    static UIElementStates statesOfUIElement(const UIElement &element);
    // The parent; an application has none (its AT-SPI parent, the desktop, is no part of it).
    static UIElement parentOfUIElement(const UIElement &element);
    static QList<UIElement> childrenOfUIElement(const UIElement &element);
    // The process of the element's application, 0 when unknown.
    static qint64 processIdentifierOfUIElement(const UIElement &element);
    // Where the element is on the screen, in screen pixels (Component extents).
    static std::optional<QRect> extentsOfUIElement(const UIElement &element);
    // The Value interface's current number.
    static std::optional<double> numericValueOfUIElement(const UIElement &element);
    // A menu item's accelerator.
    static std::optional<MenuKeyBinding> menuKeyBindingOfUIElement(const UIElement &element);
    static UIElementToolkit toolkitOfUIElement(const UIElement &element);

    // One of the texts a capture chooses from, or nullopt when the element has none. A
    // number (a slider's value) is given as its decimal text.
    static std::optional<QString> descriptionForUIElement(const UIElement &element,
                                                          UIElementTextAttribute attribute);

    // Starts the action and returns at once: the application may act before it answers
    // (Qt does), and a Paste there reads the clipboard from the caller's thread.
    static void performAction(UIElementAction action, const UIElement &element);

    // The AT-SPI application of a process, or null (never asked of Tolkaro's own process).
    static UIElement applicationElementForProcess(qint64 pid);
    // The application an element belongs to, or null.
    static UIElement applicationOfUIElement(const UIElement &element);
    // An application's active window, and the element that has the keyboard focus in it.
    static UIElement focusedWindowOfApplication(const UIElement &application);
    static UIElement focusedUIElementOfApplication(const UIElement &application);

    // Toolkit (Qt logical) coordinates to screen pixels, as AT-SPI and X11 count them: the
    // last screen containing the point converts it with its device pixel ratio; a point on
    // no screen becomes (0, 0). Both have their origin at the top left, so nothing flips.
    static QPointF carbonScreenPointFromCocoaScreenPoint(const QPointF &point);
};
