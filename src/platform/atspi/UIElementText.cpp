#include "UIElementText.h"

#include "AtspiGuard.h"
#include "UIElementHitTest.h"
#include "UIElementUtilities.h"
#include "text/Paragraphs.h"

using namespace AtspiCall;

namespace {

// How many child elements, and how deep, a text's children are gathered from.
constexpr int kChildBudget = 64;
constexpr int kMaxChildDepth = 8;
// Texts up to this many characters are read whole at a point; of longer ones, this many
// characters either side of the point (a paragraph beyond them is cut anyway).
constexpr gint kWholeTextCharacters = 4000;
constexpr gint kWindowCharacters = 2000;
// The bounds of the search through a Qt plain text view (qtPlainTextOffsetAt): its text, and
// the paragraphs asked about (one call each).
constexpr gint kMaxQtTextCharacters = 400000;
constexpr int kMaxQtParagraphsWalked = 1000;
constexpr int kMaxScrollBarSearch = 8;
// The character that stands for a child element in its parent's text (hypertext).
constexpr char32_t kEmbeddedObject = U'\uFFFC';

GObjectRef<AtspiText> textOf(AtspiAccessible *accessible)
{
    return interfaceOf(accessible, atspi_accessible_get_text_iface);
}

std::optional<QString> selectionOf(AtspiAccessible *accessible, int depth, int &budget);
std::optional<QString> contentsOf(AtspiAccessible *accessible, int depth, int &budget);

// The element a hypertext shows as the embedded-object character at an offset, or null.
UIElement embeddedObjectAt(AtspiHypertext *hypertext, gint offset)
{
    GError *error = nullptr;
    const gint index = atspi_hypertext_get_link_index(hypertext, offset, &error);
    if (failed(error) || index < 0)
        return {};
    const GObjectRef<AtspiHyperlink> link(atspi_hypertext_get_link(hypertext, index, &error));
    if (failed(error) || !link)
        return {};
    UIElement object = UIElement::adopt(atspi_hyperlink_get_object(link.get(), 0, &error));
    return failed(error) ? UIElement() : object;
}

// What a child element shown as an embedded-object character gives to its parent's text.
enum class ChildPart
{
    Selection, // its selected part, block or inline
    Inline,    // all its text when it is inline (a link); nothing when it is a block
};

// Puts the children's text in place of their embedded-object characters. `text` starts at
// offset `start` of the element's text. Block children are kept on lines of their own; a
// child that does not say it is inline (the browser's own buttons and bars say nothing)
// counts as a block.
QString withEmbeddedObjects(AtspiAccessible *accessible, const QString &text, gint start,
                            ChildPart part, int depth, int &budget)
{
    if (!text.contains(QChar(kEmbeddedObject)) || depth >= kMaxChildDepth || gaveUpOnThisThread())
        return text;
    const auto hypertext = interfaceOf(accessible, atspi_accessible_get_hypertext_iface);
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
        if (budget-- <= 0 || gaveUpOnThisThread())
            break;
        const UIElement child = embeddedObjectAt(hypertext.get(), start + gint(i));
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
    return gathered;
}

// The selected text of an element. A page's document holds the focus in a browser, and its
// selection is made of embedded-object characters: each stands for its child's selected part.
std::optional<QString> selectionOf(AtspiAccessible *accessible, int depth, int &budget)
{
    const auto text = textOf(accessible);
    if (!text)
        return std::nullopt;
    GError *error = nullptr;
    QString selected;
    gint start = 0;
    const GMemory<AtspiRange> range(atspi_text_get_selection(text.get(), 0, &error));
    if (!failed(error) && range && range->end_offset > range->start_offset) {
        start = range->start_offset;
        selected = takeString(
            atspi_text_get_text(text.get(), range->start_offset, range->end_offset, &error));
        if (failed(error))
            selected.clear();
    }
    if (selected.contains(QChar(kEmbeddedObject)))
        selected =
            withEmbeddedObjects(accessible, selected, start, ChildPart::Selection, depth, budget)
                .trimmed();
    return selected.isEmpty() ? std::nullopt : std::optional<QString>(selected);
}

// All the text of an element, its inline children's (links) included.
std::optional<QString> contentsOf(AtspiAccessible *accessible, int depth, int &budget)
{
    const auto text = textOf(accessible);
    if (!text)
        return std::nullopt;
    GError *error = nullptr;
    const gint count = atspi_text_get_character_count(text.get(), &error);
    if (failed(error))
        return std::nullopt;
    if (count <= 0)
        return QString();
    const QString contents = takeString(atspi_text_get_text(text.get(), 0, count, &error));
    if (failed(error))
        return std::nullopt;
    return withEmbeddedObjects(accessible, contents, 0, ChildPart::Inline, depth, budget);
}

AtspiCoordType coordinateType(const UIElementHitTest::ApplicationPoint &at)
{
    return at.windowRelative ? ATSPI_COORD_TYPE_WINDOW : ATSPI_COORD_TYPE_SCREEN;
}

// The vertical scroll bar's value among an element's children and grandchildren (where Qt
// keeps the bars of a scroll area); 0 when there is none.
double verticalScrollValue(AtspiAccessible *accessible, int depth = 0)
{
    GError *error = nullptr;
    const gint count = atspi_accessible_get_child_count(accessible, &error);
    for (gint i = 0; !failed(error) && i < count && i < kMaxScrollBarSearch; ++i) {
        const UIElement child =
            UIElement::adopt(atspi_accessible_get_child_at_index(accessible, i, &error));
        if (failed(error) || !child || gaveUpOnThisThread())
            return 0;
        if (roleOf(child.accessible()) == ATSPI_ROLE_SCROLL_BAR) {
            // Qt does not say VERTICAL: the bar taller than wide.
            const std::optional<QRect> extents = UIElementUtilities::extentsOfUIElement(child);
            const auto value = interfaceOf(child.accessible(), atspi_accessible_get_value_iface);
            if (extents && extents->height() > extents->width() && value) {
                const double current = atspi_value_get_current_value(value.get(), &error);
                return failed(error) ? 0 : current;
            }
        } else if (depth == 0) {
            if (const double value = verticalScrollValue(child.accessible(), 1))
                return value;
        }
    }
    return 0;
}

// Qt's plain text views (QPlainTextEdit, the editors' usual view) answer no offset at any
// point, and give each paragraph's characters the place they would have as the first
// paragraph. What they do tell: the vertical scroll bar counts lines on screen from the
// document's top, and a paragraph's last character says how many lines it wraps into. So
// the line under the point is counted down through the paragraphs; -1 when it cannot be.
gint qtPlainTextOffsetAt(AtspiAccessible *accessible, AtspiText *text, gint count, int pointY)
{
    GError *error = nullptr;
    const GMemory<AtspiRect> first(
        atspi_text_get_character_extents(text, 0, ATSPI_COORD_TYPE_SCREEN, &error));
    if (failed(error) || !first || first->height <= 0 || count > kMaxQtTextCharacters)
        return -1;
    // They also move every character up by the scroll bar's value, as if it counted pixels.
    const int topLine = int(verticalScrollValue(accessible));
    const int top = first->y + topLine;
    if (pointY < top)
        return -1;
    const int lineHeight = first->height;
    const int line = topLine + (pointY - top) / lineHeight;
    const QString all = takeString(atspi_text_get_text(text, 0, count, &error));
    if (failed(error))
        return -1;
    int paragraphLine = 0;
    qsizetype start = 0;
    for (int walked = 0; start <= all.size() && walked < kMaxQtParagraphsWalked; ++walked) {
        qsizetype end = all.indexOf(u'\n', start);
        if (end < 0)
            end = all.size();
        int lines = 1;
        if (end - start > 1) {
            const GMemory<AtspiRect> last(atspi_text_get_character_extents(
                text, gint(end - 1), ATSPI_COORD_TYPE_SCREEN, &error));
            if (failed(error) || !last || gaveUpOnThisThread())
                return -1;
            // A paragraph the view keeps no layout of (far from what is shown) has no extents:
            // it counts as one line, which it is unless it wraps.
            if (last->height > 0)
                lines = std::max(1, (last->y - first->y) / lineHeight + 1);
        }
        if (line < paragraphLine + lines)
            return gint(start);
        paragraphLine += lines;
        start = end + 1;
    }
    return -1;
}

// The offset of a character on the line under the point, found by halving the text by its
// characters' extents: lines come in the order of the text. For GTK 4, which answers no
// offset at a point (4.8 never replies) but places its characters.
gint offsetByCharacterExtents(AtspiText *text, gint count, const QPoint &point, AtspiCoordType type)
{
    gint low = 0;
    gint high = count - 1;
    while (low <= high && !gaveUpOnThisThread()) {
        const gint middle = low + (high - low) / 2;
        GError *error = nullptr;
        const GMemory<AtspiRect> extents(
            atspi_text_get_character_extents(text, middle, type, &error));
        if (failed(error) || !extents || extents->height <= 0)
            return -1;
        if (point.y() < extents->y)
            high = middle - 1;
        else if (point.y() >= extents->y + extents->height)
            low = middle + 1;
        else
            return middle;
    }
    return -1;
}

// The offset of the character under the point; -1 when the point is on no line of the text.
gint offsetAtPoint(AtspiAccessible *accessible, AtspiText *text, gint count,
                   const UIElementHitTest::ApplicationPoint &at, bool qtToolkit)
{
    if (at.windowRelative)
        return offsetByCharacterExtents(text, count, at.point, coordinateType(at));
    GError *error = nullptr;
    gint offset = atspi_text_get_offset_at_point(text, at.point.x(), at.point.y(),
                                                 coordinateType(at), &error);
    if (failed(error))
        offset = -1;
    if (offset < 0)
        return qtToolkit ? qtPlainTextOffsetAt(accessible, text, count, at.point.y()) : -1;
    // GTK answers the nearest character for a point below the text's last line: that is no
    // paragraph under the point.
    const GMemory<AtspiRect> character(
        atspi_text_get_character_extents(text, offset, coordinateType(at), &error));
    if (!failed(error) && character && character->height > 0 &&
        (at.point.y() < character->y || at.point.y() >= character->y + character->height))
        return -1;
    return offset;
}

} // namespace

std::optional<QString> UIElementText::contents(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return run<std::optional<QString>>([=] {
        int budget = kChildBudget;
        return contentsOf(element.accessible(), 0, budget);
    });
}

std::optional<qsizetype> UIElementText::characterCount(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return run<std::optional<qsizetype>>([=]() -> std::optional<qsizetype> {
        const auto text = textOf(element.accessible());
        if (!text)
            return std::nullopt;
        GError *error = nullptr;
        const gint count = atspi_text_get_character_count(text.get(), &error);
        return failed(error) ? std::nullopt : std::optional<qsizetype>(count);
    });
}

std::optional<QString> UIElementText::selectedText(const UIElement &element)
{
    if (!element)
        return std::nullopt;
    return run<std::optional<QString>>([=] {
        int budget = kChildBudget;
        return selectionOf(element.accessible(), 0, budget);
    });
}

std::optional<UIElementText::PointedText>
UIElementText::textAtScreenPoint(const UIElement &element, const QPoint &screenPoint,
                                 const QPoint &windowOrigin, bool windowRelative)
{
    if (!element)
        return std::nullopt;
    return run<std::optional<PointedText>>([=]() -> std::optional<PointedText> {
        const auto text = textOf(element.accessible());
        if (!text)
            return std::nullopt;
        GError *error = nullptr;
        const gint count = atspi_text_get_character_count(text.get(), &error);
        if (failed(error))
            return std::nullopt;
        if (count <= 0)
            return PointedText{};
        const UIElementHitTest::ApplicationPoint at =
            UIElementHitTest::applicationPoint(element, screenPoint, windowOrigin, windowRelative);
        // A short text is read whole, to tell one paragraph from several; of a long one only
        // the stretch around the point, which holds its paragraph up to the gesture's cut.
        const bool whole = count <= kWholeTextCharacters;
        QString window;
        if (whole) {
            window = takeString(atspi_text_get_text(text.get(), 0, count, &error));
            if (failed(error))
                return std::nullopt;
            int budget = kChildBudget;
            if (Paragraphs::isSingleParagraph(window))
                return PointedText{withEmbeddedObjects(element.accessible(), window, 0,
                                                       ChildPart::Inline, 0, budget),
                                   false};
        }
        const bool qtToolkit = UIElementUtilities::toolkitOfUIElement(element).name.compare(
                                   QLatin1String("qt"), Qt::CaseInsensitive) == 0;
        const gint offset = offsetAtPoint(element.accessible(), text.get(), count, at, qtToolkit);
        if (offset < 0)
            return PointedText{};
        const gint windowStart = whole ? 0 : std::max(0, offset - kWindowCharacters);
        if (!whole) {
            window = takeString(atspi_text_get_text(
                text.get(), windowStart, std::min(count, offset + kWindowCharacters), &error));
            if (failed(error))
                return std::nullopt;
        }
        // Qt counts offsets in UTF-16 units, everyone else in characters.
        const qsizetype position =
            qtToolkit ? qsizetype(offset - windowStart)
                      : Paragraphs::positionOfCharacter(window, offset - windowStart).value_or(-1);
        const std::optional<Paragraphs::Span> span = Paragraphs::paragraphAround(window, position);
        if (!span)
            return PointedText{};
        const gint spanStart =
            windowStart + gint(qtToolkit ? span->start
                                         : Paragraphs::characterOfPosition(window, span->start));
        int budget = kChildBudget;
        const QString paragraph =
            withEmbeddedObjects(element.accessible(),
                                window.sliced(span->start, span->end - span->start), spanStart,
                                ChildPart::Inline, 0, budget)
                .trimmed();
        return PointedText{paragraph, true};
    });
}

bool UIElementText::replaceSelectedText(const UIElement &element, const QString &text)
{
    if (!element)
        return false;
    return run<bool>([=] {
        // Qt counts lengths and offsets in UTF-16 code units; GTK lengths in bytes, and
        // everyone else's offsets in characters.
        const bool qtToolkit = UIElementUtilities::toolkitOfUIElement(element).name.compare(
                                   QLatin1String("qt"), Qt::CaseInsensitive) == 0;
        AtspiAccessible *accessible = element.accessible();
        if (!UIElementUtilities::statesOfUIElement(element).testFlag(UIElementState::Editable))
            return false;
        const auto editable = interfaceOf(accessible, atspi_accessible_get_editable_text_iface);
        const auto textIface = textOf(accessible);
        if (!editable || !textIface)
            return false;
        GError *error = nullptr;
        gint start = atspi_text_get_caret_offset(textIface.get(), &error);
        if (failed(error))
            return false;
        gint end = start;
        const GMemory<AtspiRange> range(atspi_text_get_selection(textIface.get(), 0, &error));
        if (!failed(error) && range && range->end_offset > range->start_offset) {
            start = range->start_offset;
            end = range->end_offset;
        }
        if (end > start) {
            atspi_editable_text_delete_text(editable.get(), start, end, &error);
            failed(error);
        }
        const QByteArray utf8 = text.toUtf8();
        const gint length = qtToolkit ? gint(text.size()) : gint(utf8.size());
        if (!gaveUpOnThisThread()) {
            atspi_editable_text_insert_text(editable.get(), start, utf8.constData(), length,
                                            &error);
            failed(error);
        }
        // Read back: the calls' answers do not say whether the text changed.
        const gint characters = qtToolkit ? gint(text.size()) : gint(text.toUcs4().size());
        const QString readBack =
            takeString(atspi_text_get_text(textIface.get(), start, start + characters, &error));
        if (failed(error) || readBack != text)
            return false;
        atspi_text_set_caret_offset(textIface.get(), start + characters, &error);
        failed(error);
        return true;
    });
}
