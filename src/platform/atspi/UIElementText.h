#pragma once

#include "UIElement.h"

#include <QPoint>
#include <QString>

#include <optional>

// The Text and EditableText interfaces of another application's element: its text, its
// selection, the paragraph at a point, and the replacement of its selection.
//
// Browsers show each child element of a text (a paragraph, a link) as one embedded-object
// character; the reads here put the children's text in their place. Threads and failures as
// in UIElementUtilities: any thread, one guarded piece of work on the AT-SPI thread, nullopt
// or false when something fails.
class UIElementText
{
public:
    // All the text, its inline children's (links) included; nullopt without the interface.
    static std::optional<QString> contents(const UIElement &element);
    // The number of characters of the text.
    static std::optional<qsizetype> characterCount(const UIElement &element);
    // The selected text, when there is a non-empty selection; the children a browser's
    // hypertext shows give their selected parts.
    static std::optional<QString> selectedText(const UIElement &element);
    // The text of an element under a point in screen pixels (windowOrigin: the top-left
    // corner of the element's window, for toolkits that place elements within their window):
    // the paragraph under the point, or the whole text when it is one paragraph (windowRelative:
    // every toolkit places elements within its window, as on native Wayland windows). nullopt
    // without the Text interface.
    struct PointedText
    {
        // Empty when the point is on no paragraph (a blank line, below a long text).
        std::optional<QString> text;
        // The text is one paragraph of several, the one the point is on.
        bool paragraphOfSeveral = false;
    };
    static std::optional<PointedText> textAtScreenPoint(const UIElement &element,
                                                        const QPoint &point,
                                                        const QPoint &windowOrigin = QPoint(),
                                                        bool windowRelative = false);
    // Replaces the selection (or inserts at the caret) through EditableText and reads the
    // text back; true when the text is there afterwards.
    static bool replaceSelectedText(const UIElement &element, const QString &text);
};
