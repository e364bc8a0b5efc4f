#pragma once

#include <QByteArrayView>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

// Called exactly once per request: success, the translation (empty on failure), the
// detected source language (a null QString when unknown), the error text (empty on
// success). It may run before translateText() returns; users hand it to the main thread
// with a queued call before touching any state.
using TranslationCompletion =
    std::function<void(bool success, const QString &translatedText,
                       const QString &guessedLanguageCode, const QString &errorMessage)>;

// urlEncode: form encoding of a query value (space as '+', unreserved bytes kept, every
// other byte as %XX upper-case; input ends at the first NUL).
QString urlEncode(const QString &text);

// The service's answer with every empty array slot filled: each comma that directly
// follows another comma gets "null" before it ("[a,,,b]" becomes "[a,null,null,b]").
QByteArray fillEmptyArraySlots(QByteArrayView json);

// The one translation client: one GET per text to the endpoint's /translate_a/single,
// at most one request in flight (a new one cancels the old), the answer parsed into the
// translation and the detected language.
//
// Lives on the thread that creates it (the main thread) and calls completions there.
// A completion runs synchronously inside translateText() when the URL cannot be formed,
// inside cancelCurrentTranslationRequestIfAny() (or the translateText() that cancels) for
// the cancelled request, and inside the destructor for a request still in flight, which
// ends as cancelled. A completion must not destroy the client.
class GoogleTranslateByURL : public QObject
{
    Q_OBJECT
public:
    // The whole life of a request, from start to the last byte of the answer. An answer
    // that keeps trickling in still ends here.
    static constexpr std::chrono::milliseconds kRequestTimeout{4000};
    // The service answers this mobile-browser identification with the format parsed
    // below; it is sent exactly so.
    static constexpr char kUserAgent[] =
        "Mozilla/5.0 (iPhone; CPU iPhone OS 6_0 like Mac OS X) AppleWebKit/536.26 (KHTML, "
        "like Gecko) Version/6.0 Mobile/10A5376e Safari/8536.25";

    // baseUrl: scheme, host and optional port, e.g. "http://127.0.0.1:8765".
    explicit GoogleTranslateByURL(const QString &baseUrl, QObject *parent = nullptr);
    ~GoogleTranslateByURL() override;

    void translateText(const QString &textToTranslate, const QString &targetLanguage,
                       TranslationCompletion completion);
    void cancelCurrentTranslationRequestIfAny();

    // The translation, or a null QString when the answer cannot be read.
    static QString parseGoogleJSONResponseIntoReadableString(const QString &response,
                                                             QString *guessedLanguageCode);
    // The same parse of an answer already in UTF-8 (spares a round trip through UTF-16).
    static QString parseGoogleJSONResponseUtf8(QByteArrayView response,
                                               QString *guessedLanguageCode);

    QString baseUrl() const { return m_baseUrl; }

private:
    void finishRequest(QNetworkReply *reply);

    QString m_baseUrl;
    QNetworkAccessManager *m_network = nullptr;
    QPointer<QNetworkReply> m_urlSessionTask;
    // Requests whose completion has not been called yet.
    QHash<QNetworkReply *, TranslationCompletion> m_completions;
};
