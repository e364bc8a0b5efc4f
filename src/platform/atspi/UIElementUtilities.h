#pragma once

#include "UIElement.h"

#include <QPoint>
#include <QPointF>
#include <QRectF>
#include <QStringList>

#include <optional>

// Reading, testing and pressing what other applications expose over AT-SPI, under the
// attribute and action names that the rest of Tolkaro speaks ("AXValue", "AXPress"...).
//
// AT-SPI has no attribute dictionary, so the names map onto its properties and interfaces:
//   AXRole            the role, as an AX role name ("AXApplication", "AXMenuBar", "AXMenu",
//                     "AXMenuItem", "AXButton", "AXWindow", "AXTextField"...)
//   AXRoleDescription the localized role name      AXTitle        the accessible name
//   AXDescription     the accessible description (toolkits put the tooltip there)
//   AXValue           the Text interface's contents, else the Value interface's number
//   AXSelectedText, AXSelectedTextRange, AXNumberOfCharacters   the Text interface
//   AXParent          the parent; an application has none (its AT-SPI parent, the desktop,
//                     is not part of the application)
//   AXChildren, AXWindows, AXWindow, AXTopLevelUIElement, AXFocusedWindow, AXFocusedUIElement
//   AXPosition, AXSize   the Component extents in screen pixels
//   AXEnabled, AXFocused the ENABLED and FOCUSED states, as 1 or 0
//   AXMenuItemCmdChar, AXMenuItemCmdModifiers   a menu item's accelerator (MenuKeyBinding)
//   any other name    the object attribute of that name ("toolkit", "tag"...)
// AXHelp has no counterpart in this AT-SPI (2.46 has no help text): it is never listed, and
// the tooltip it stands for arrives as the description. "AXPress" names the element's press
// action ("click" in GTK, "Press" in Qt, "activate"...).
//
// Every call may be made from any thread: it runs on the AT-SPI thread (AtspiThread) and
// waits for it, or runs at once when already there. Failures give the empty answer (null
// value, nullopt, 0, false, the zero rectangle) and are not logged. Once a call into an
// application times out, the calls that follow give up at once until the next beginWork()
// or for one second, so a capture from a stopped application costs one timeout.
class UIElementUtilities
{
public:
    // The value, or null unless the element lists the attribute (two queries, on purpose:
    // never ask an element for what it lacks).
    static UIElementValue valueOfAttribute(const QString &attribute, const UIElement &element);
    // Starts the action and returns at once: the application may act before it answers
    // (Qt does), and a Paste there reads the clipboard from the caller's thread.
    static void performAction(const QString &action, const UIElement &element);
    static bool isApplicationUIElement(const UIElement &element);
    static UIElementValue roleOfUIElement(const UIElement &element);
    static UIElementValue titleOfUIElement(const UIElement &element);
    static UIElementValue parentOfUIElement(const UIElement &element);
    static UIElementValue windowElementOfUIElement(const UIElement &element);
    static UIElementValue topLevelElementOfUIElement(const UIElement &element);

    // Toolkit (Qt logical) coordinates to screen pixels, as AT-SPI and X11 count them: the
    // last screen containing the point converts it with its device pixel ratio; a point on
    // no screen becomes (0, 0). Both have their origin at the top left, so nothing flips.
    static QPointF carbonScreenPointFromCocoaScreenPoint(const QPointF &point);
    // Screen pixels back to toolkit coordinates, against the first screen.
    static QRectF flippedScreenBounds(const QRectF &bounds);

    // Readable text of one attribute's value, or nullopt.
    static std::optional<QString> descriptionForUIElement(const UIElement &element,
                                                          const QString &attribute, bool verbose);

    // The inspection toolkit.
    static std::optional<QStringList> attributeNamesOfUIElement(const UIElement &element);
    static std::optional<QStringList> actionNamesOfUIElement(const UIElement &element);
    static std::optional<QString> descriptionOfAction(const QString &action,
                                                      const UIElement &element);
    static qint64 processIdentifierOfUIElement(const UIElement &element);
    static bool canSetAttribute(const QString &attribute, const UIElement &element);
    static void setStringValue(const QString &text, const QString &attribute,
                               const UIElement &element);
    static QRectF frameOfUIElement(const UIElement &element);
    static QString stringDescriptionOfAXValue(const UIElementValue &value, bool verbose);
    static std::optional<QString> descriptionOfValue(const UIElementValue &value, bool verbose);
    static QStringList lineageOfUIElement(const UIElement &element);
    static QString lineageDescriptionOfUIElement(const UIElement &element);
    static QString stringDescriptionOfUIElement(const UIElement &element);
    static QString descriptionOfAXDescriptionOfUIElement(const UIElement &element);

    // What capture and paste need beyond attributes.
    // The AT-SPI application of a process, or null (never asked of Tolkaro's own process).
    static UIElement applicationElementForProcess(qint64 pid);
    // The deepest element of the application at a point in screen pixels, or null. GTK 4
    // places its elements relative to their window, whose top-left corner on the screen is
    // windowOrigin.
    static UIElement elementAtScreenPoint(const UIElement &application, const QPoint &point,
                                          const QPoint &windowOrigin = QPoint());
    // The application an element belongs to (parent walk), or null.
    static UIElement applicationOfUIElement(const UIElement &element);
    // The selected text of the element, when it has a non-empty selection; the children a
    // browser's hypertext shows as embedded-object characters give their selected parts.
    static std::optional<QString> selectedText(const UIElement &element);
    // The paragraph of the element's text at a point in screen pixels.
    static std::optional<QString> paragraphAtScreenPoint(const UIElement &element,
                                                         const QPoint &point,
                                                         const QPoint &windowOrigin = QPoint());
    // The number of characters of the element's text.
    static std::optional<qsizetype> characterCount(const UIElement &element);
    // Replaces the selection (or inserts at the caret) through EditableText and reads the
    // text back; true when the text is there afterwards.
    static bool replaceSelectedText(const UIElement &element, const QString &text);
    // "gtk", "Qt"... as the application reports it.
    static QString toolkitName(const UIElement &element);

    // Marks the start of one piece of work on the AT-SPI thread: forgets an earlier timeout.
    static void beginWork();
    // A call of the current piece of work timed out: its application is not answering.
    static bool gaveUp();
};
