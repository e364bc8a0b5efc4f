#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// The paragraph of a text around a position: what the user points at in a document, a
// text view or a terminal. A paragraph runs between line breaks (LF, CR, U+2028 and
// U+2029); a wrapped line on screen is one paragraph, a terminal's line is one paragraph.
namespace Paragraphs {

// [start, end) in UTF-16 units of a text.
struct Span
{
    qsizetype start = 0;
    qsizetype end = 0;
    bool operator==(const Span &) const = default;
};

// The paragraph containing the position (a position on a line break belongs to the
// paragraph it ends), without its line break; nullopt outside the text or on an empty or
// blank line (white space only). The end of the text counts as its last character.
std::optional<Span> paragraphAround(QStringView text, qsizetype position);

// Whether the text is one paragraph: no line break but trailing ones.
bool isSingleParagraph(QStringView text);

// The UTF-16 position of the character at a character offset (code points, as AT-SPI counts
// them), the text's length past its end; nullopt for a negative offset.
std::optional<qsizetype> positionOfCharacter(QStringView text, qsizetype offset);
// The character offset of a UTF-16 position (the inverse of positionOfCharacter).
qsizetype characterOfPosition(QStringView text, qsizetype position);

} // namespace Paragraphs
