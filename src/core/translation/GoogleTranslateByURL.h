#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

// Called exactly once per request: success, the translation (empty on failure), the
// detected source language (a null QString when unknown), the error text (empty on
// success). It may run before translateText() returns; users hand it to the main thread
// with a queued call before touching any state.
using TranslationCompletion = std::function<void(bool success, const QString &translatedText,
                                                 const QString &guessedLanguageCode,
                                                 const QString &errorMessage)>;

// urlEncode: form encoding of a query value (space as '+', unreserved bytes kept, every
// other byte as %XX upper-case; input ends at the first NUL).
QString urlEncode(const QString &text);

// The one translation client: one GET per text to the endpoint's /translate_a/single,
// at most one request in flight (a new one cancels the old), the answer parsed into the
// translation and the detected language.
class GoogleTranslateByURL : public QObject
{
    Q_OBJECT
public:
    // baseUrl: scheme, host and optional port, e.g. "http://127.0.0.1:8765".
    explicit GoogleTranslateByURL(const QString &baseUrl, QObject *parent = nullptr);
    ~GoogleTranslateByURL() override;

    void translateText(const QString &textToTranslate, const QString &targetLanguage,
                       TranslationCompletion completion);
    void cancelCurrentTranslationRequestIfAny();

    // The translation, or a null QString when the answer cannot be read.
    static QString parseGoogleJSONResponseIntoReadableString(const QString &response,
                                                             QString *guessedLanguageCode);

    QString baseUrl() const { return m_baseUrl; }

private:
    QString m_baseUrl;
    QNetworkAccessManager *m_network = nullptr;
    QPointer<QNetworkReply> m_urlSessionTask;
};
