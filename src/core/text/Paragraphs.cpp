#include "text/Paragraphs.h"

namespace {

bool isLineBreak(QChar c)
{
    return c == u'\n' || c == u'\r' || c == QChar(0x2028) || c == QChar(0x2029);
}

} // namespace

std::optional<Paragraphs::Span> Paragraphs::paragraphAround(QStringView text, qsizetype position)
{
    // Past the end (a toolkit's answer below the last line): the last paragraph.
    if (position == text.size() && position > 0)
        --position;
    if (position < 0 || position >= text.size())
        return std::nullopt;
    // On a break: the paragraph that it ends (CR LF counts as one break).
    qsizetype end = position;
    if (isLineBreak(text[end]) && end > 0 && text[end] == u'\n' && text[end - 1] == u'\r')
        --end;
    qsizetype start = end;
    while (start > 0 && !isLineBreak(text[start - 1]))
        --start;
    while (end < text.size() && !isLineBreak(text[end]))
        ++end;
    if (text.sliced(start, end - start).trimmed().isEmpty())
        return std::nullopt;
    return Span{start, end};
}

bool Paragraphs::isSingleParagraph(QStringView text)
{
    qsizetype end = text.size();
    while (end > 0 && isLineBreak(text[end - 1]))
        --end;
    for (qsizetype i = 0; i < end; ++i) {
        if (isLineBreak(text[i]))
            return false;
    }
    return true;
}

std::optional<qsizetype> Paragraphs::positionOfCharacter(QStringView text, qsizetype offset)
{
    if (offset < 0)
        return std::nullopt;
    qsizetype position = 0;
    for (; offset > 0 && position < text.size(); --offset)
        position += text[position].isHighSurrogate() && position + 1 < text.size() &&
                            text[position + 1].isLowSurrogate()
                        ? 2
                        : 1;
    return position;
}

qsizetype Paragraphs::characterOfPosition(QStringView text, qsizetype position)
{
    qsizetype characters = 0;
    for (qsizetype i = 0; i < position && i < text.size(); ++i) {
        if (!(text[i].isLowSurrogate() && i > 0 && text[i - 1].isHighSurrogate()))
            ++characters;
    }
    return characters;
}
