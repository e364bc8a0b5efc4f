#pragma once

#include "translation/WebTranslator.h"

#include <QByteArrayView>
#include <QString>

// urlEncode: form encoding of a query value (space as '+', unreserved bytes kept, every
// other byte as %XX upper-case; input ends at the first NUL).
QString urlEncode(const QString &text);

// The service's answer with every empty array slot filled: each comma that directly
// follows another comma gets "null" before it ("[a,,,b]" becomes "[a,null,null,b]").
QByteArray fillEmptyArraySlots(QByteArrayView json);

// "Google", the default service: one GET per text to the endpoint's /translate_a/single
// with the fixed query of its public "gtx" client, the answer parsed into the translation
// and the detected language. Its texts and failures are the ones every user has seen.
//
// Lives on the thread that creates it (the main thread) and calls completions there.
// A completion runs synchronously inside translateText() when the URL cannot be formed,
// inside cancelCurrentTranslationRequestIfAny() (or the translateText() that cancels) for
// the cancelled request, and inside the destructor for a request still in flight, which
// ends as cancelled. A completion must not destroy the client.
class GoogleTranslateByURL : public WebTranslator
{
    Q_OBJECT
public:
    static constexpr char kServiceName[] = "Google";
    // The service's own limit on one text (its web page's), in UTF-16 code units.
    static constexpr qsizetype kMaximumTextLength = 5000;
    // The service answers this mobile-browser identification with the format parsed
    // below; it is sent exactly so.
    static constexpr char kUserAgent[] =
        "Mozilla/5.0 (iPhone; CPU iPhone OS 6_0 like Mac OS X) AppleWebKit/536.26 (KHTML, "
        "like Gecko) Version/6.0 Mobile/10A5376e Safari/8536.25";

    // baseUrl: scheme, host and optional port, e.g. "http://127.0.0.1:8765".
    explicit GoogleTranslateByURL(const QString &baseUrl, QObject *parent = nullptr);
    ~GoogleTranslateByURL() override;

    QString serviceName() const override { return QString::fromLatin1(kServiceName); }
    void translateText(const QString &textToTranslate, const QString &targetLanguage,
                       TranslationCompletion completion) override;

    // The translation, or a null QString when the answer cannot be read.
    static QString parseGoogleJSONResponseIntoReadableString(const QString &response,
                                                             QString *guessedLanguageCode);
    // The same parse of an answer already in UTF-8 (spares a round trip through UTF-16).
    static QString parseGoogleJSONResponseUtf8(QByteArrayView response,
                                               QString *guessedLanguageCode);

private:
    void readReply(const WebReply &reply);
};
