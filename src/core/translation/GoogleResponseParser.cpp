#include "translation/GoogleTranslateByURL.h"

#include "common/Log.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QJsonValue>

#include <cstring>

namespace {

// Appends input with every empty array slot filled: the service writes "[a,,b]" where
// JSON needs "[a,null,b]". Doing this as two left-to-right passes that each replace every
// non-overlapping ",," by ",null," turns any run of commas into commas joined by null;
// inserting "null" before every comma that directly follows another comma gives the same
// text in one pass, without the intermediate copy.
void appendWithEmptySlotsFilled(QByteArrayView input, QByteArray &output)
{
    const char *const end = input.data() + input.size();
    const char *copiedUpTo = input.data();
    const char *cursor = input.data();
    while (cursor < end) {
        const auto *comma = static_cast<const char *>(std::memchr(cursor, ',', end - cursor));
        if (!comma)
            break;
        cursor = comma + 1;
        if (cursor == end || *cursor != ',')
            continue;
        output.append(copiedUpTo, cursor - copiedUpTo);
        while (cursor < end && *cursor == ',') {
            output.append("null,", 5);
            ++cursor;
        }
        copiedUpTo = cursor;
    }
    output.append(copiedUpTo, end - copiedUpTo);
}

// The reader accepts a lone value (a string, a number) at the top as well as an array or
// an object. QJsonDocument only takes arrays and objects, so the text is read as the only
// element of an array: "[" + text + "]" holds exactly one element exactly when the text
// is one JSON value surrounded by nothing but white space.
bool parseJsonFragment(const QByteArray &wrappedText, QJsonValue &value, QString &errorText)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(wrappedText, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        // Offsets are reported in the text as given, without the added bracket.
        errorText =
            QStringLiteral("%1 at offset %2")
                .arg(parseError.errorString(), QString::number(qMax(0, parseError.offset - 1)));
        return false;
    }
    const QJsonArray wrapper = document.array();
    if (wrapper.size() != 1) {
        errorText = wrapper.isEmpty() ? QStringLiteral("no value in the text")
                                      : QStringLiteral("more than one value in the text");
        return false;
    }
    value = wrapper.at(0);
    return true;
}

} // namespace

QByteArray fillEmptyArraySlots(QByteArrayView json)
{
    QByteArray filled;
    filled.reserve(json.size() + json.size() / 8);
    appendWithEmptySlotsFilled(json, filled);
    return filled;
}

QString
GoogleTranslateByURL::parseGoogleJSONResponseIntoReadableString(const QString &response,
                                                                QString *guessedLanguageCode)
{
    return parseGoogleJSONResponseUtf8(response.toUtf8(), guessedLanguageCode);
}

QString GoogleTranslateByURL::parseGoogleJSONResponseUtf8(QByteArrayView response,
                                                          QString *guessedLanguageCode)
{
    if (guessedLanguageCode)
        *guessedLanguageCode = QString();

    QByteArray wrapped;
    wrapped.reserve(response.size() + response.size() / 8 + 2);
    wrapped.append('[');
    appendWithEmptySlotsFilled(response, wrapped);
    wrapped.append(']');

    QJsonValue topObject;
    QString parseError;
    if (!parseJsonFragment(wrapped, topObject, parseError)) {
        tolkaro::logLine(QStringLiteral("parseGoogleJSONResponseIntoReadableString: couldn't parse "
                                        "the string into JSON. The string isn't real JSON? %1")
                             .arg(parseError));
        return QString();
    }
    wrapped = QByteArray();

    const QJsonArray topArray = topObject.toArray();
    if (topObject.isArray() && topArray.size() >= 3 && topArray.at(2).isString()) {
        const QString guessed = topArray.at(2).toString();
        tolkaro::logLine(QStringLiteral("Guessed source language: %1").arg(guessed));
        if (guessedLanguageCode)
            *guessedLanguageCode = guessed;
    }

    if (!topObject.isArray() || topArray.isEmpty()) {
        tolkaro::logLine(QStringLiteral("Top object is not NSArray"));
        return QString();
    }

    const QJsonValue sentencesValue = topArray.at(0);
    const QJsonArray sentences = sentencesValue.toArray();
    if (!sentencesValue.isArray() || sentences.isEmpty()) {
        tolkaro::logLine(QStringLiteral("First Inner object is not NSArray or has 0 elements"));
        return QString();
    }

    // A row of 5 or 9 elements is a translated sentence: [translation, source, ..., ..., a
    // number, ...]. Other rows (transliterations, dictionary entries) are skipped. The
    // pieces carry their own spaces and line breaks, so they are joined as they are.
    QString result;
    bool anyPiece = false;
    for (const QJsonValue &rowValue : sentences) {
        if (!rowValue.isArray())
            continue;
        const QJsonArray row = rowValue.toArray();
        if (row.size() != 5 && row.size() != 9)
            continue;
        const QJsonValue translated = row.at(0);
        if (!row.at(1).isString() || !translated.isString() || !row.at(4).isDouble())
            continue;
        if (!anyPiece) {
            // An empty first piece still makes a (non-null) result.
            result = QString(QLatin1StringView(""));
            anyPiece = true;
        }
        result.append(translated.toString());
    }
    return anyPiece ? result : QString();
}
