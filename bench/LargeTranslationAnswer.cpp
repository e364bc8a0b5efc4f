#include "LargeTranslationAnswer.h"

namespace {

struct Piece
{
    const char *json;     // the piece as it stands between the quotes of the answer
    const char16_t *text; // the same piece decoded
    const char *source;   // the source piece, as it stands in the answer
};

// Real answers mix scripts, escape quotes and carry line breaks inside the pieces.
constexpr Piece kPieces[] = {
    {"Der schnelle braune Fuchs springt \\u00fcber den faulen Hund. ",
     u"Der schnelle braune Fuchs springt \u00fcber den faulen Hund. ",
     "The quick brown fox jumps over the lazy dog. "},
    {"\xD0\x91\xD1\x8B\xD1\x81\xD1\x82\xD1\x80\xD0\xB0\xD1\x8F \xD0\xBB\xD0\xB8\xD1\x81\xD0\xB0 "
     "\xD0\xBF\xD1\x80\xD1\x8B\xD0\xB3\xD0\xB0\xD0\xB5\xD1\x82. ",
     u"\u0411\u044b\u0441\u0442\u0440\u0430\u044f \u043b\u0438\u0441\u0430 "
     u"\u043f\u0440\u044b\u0433\u0430\u0435\u0442. ",
     "The fox jumps. "},
    {"\xE7\x8B\x90\xE7\x8B\xB8\xE3\x81\x8C\xE8\xB7\xB3\xE3\x81\xB6\xE3\x80\x82",
     u"\u72d0\u72f8\u304c\u8df3\u3076\u3002", "The fox jumps."},
    {"Er sagte: \\\"Stra\xC3\x9F"
     "e, Caf\xC3\xA9, \xC5\x93uvre\\\".\\n",
     u"Er sagte: \"Stra\u00dfe, Caf\u00e9, \u0153uvre\".\n",
     "He said: \\\"Street, caf\xC3\xA9, work\\\".\\n"},
    {"Zeile mit Tabulator\\tund Backslash \\\\ am Ende. ",
     u"Zeile mit Tabulator\tund Backslash \\ am Ende. ",
     "Line with a tab\\tand a backslash \\\\. "},
};

} // namespace

LargeTranslationAnswer makeLargeTranslationAnswer(qsizetype minimumBytes)
{
    LargeTranslationAnswer answer;
    answer.body.reserve(minimumBytes + 512);
    answer.body += "[[";
    const qsizetype tail = 200; // what follows the sentence list
    for (int row = 0; answer.body.size() + tail < minimumBytes || row == 0; ++row) {
        const Piece &piece = kPieces[row % std::size(kPieces)];
        if (row > 0)
            answer.body += ',';
        answer.body += "[\"";
        answer.body += piece.json;
        answer.body += "\",\"";
        answer.body += piece.source;
        // Older answers leave the two empty slots out; newer ones write nulls and add four
        // elements of model metadata.
        if (row % 2 == 0)
            answer.body += "\",,,3]";
        else
            answer.body +=
                "\",null,null,3,null,null,[[]],[[[\"a4c1f07e9b\",\"tea_DeEn_2023.md\"]]]]";
        answer.translation += QString::fromUtf16(piece.text);
        ++answer.sentenceRows;
    }
    answer.body += ",[null,null,\"Bystraya lisa prygayet.\",\"\"]],,\"en\",,,,0.93,[],"
                   "[[\"en\"],null,[0.93],[\"en\"]]]";
    return answer;
}
