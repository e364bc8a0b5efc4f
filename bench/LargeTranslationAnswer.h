#pragma once

#include <QByteArray>
#include <QString>

// An answer shaped like the service's to a long text, at least minimumBytes long: sentence
// rows of five elements with empty slots (",,") and of nine elements with model metadata,
// pieces in Latin, Cyrillic and CJK script with escaped quotes and line breaks, a
// transliteration row that the parse skips, the detected language and trailing metadata.
struct LargeTranslationAnswer
{
    QByteArray body;     // the answer as sent, UTF-8
    QString translation; // what the parse must read out of it
    int sentenceRows = 0;
};

LargeTranslationAnswer makeLargeTranslationAnswer(qsizetype minimumBytes);
