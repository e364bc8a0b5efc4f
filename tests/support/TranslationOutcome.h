#pragma once

#include "translation/Translator.h"

#include <QString>

// The failure texts a translation completion can receive.
namespace TranslationFailure {
inline const QString kNoData = QStringLiteral("NSURLResponse's data is nil");
inline const QString kNotUtf8 = QStringLiteral(
    "responseDataString is nil. Couldn't build string from returned by the server NSData");
inline const QString kUnable = QStringLiteral("Unable to translate text.");
} // namespace TranslationFailure

// What one request's completion was called with, and how often. Tests hand recorder() to
// translateText() and wait on calls.
struct TranslationOutcome
{
    int calls = 0;
    bool success = false;
    QString text;
    QString guessed;
    QString error;

    TranslationCompletion recorder()
    {
        return [this](bool ok, const QString &t, const QString &g, const QString &e) {
            ++calls;
            success = ok;
            text = t;
            guessed = g;
            error = e;
        };
    }
};
