#pragma once

#include <QObject>
#include <QString>

#include <functional>

// Called exactly once per request: success, the translation (empty on failure), the
// detected source language (a null QString when unknown), the error text (empty on
// success). It may run before translateText() returns; users hand it to the main thread
// with a queued call before touching any state.
using TranslationCompletion =
    std::function<void(bool success, const QString &translatedText,
                       const QString &guessedLanguageCode, const QString &errorMessage)>;

// How a request ended, beyond the four values of its completion: what lets a chain of
// services tell a refusal (ask the next service) from a cancel (stop).
enum class TranslationEnd
{
    Answered,    // a translation was read
    Refused,     // the service said no: a rate limit, an unavailable service, an error page
    Unreachable, // no answer at all: nothing listening, a reset, the time limit
    Unusable,    // not asked: not configured, or it cannot translate into that language
    Unreadable,  // an answer came that could not be read
    Cancelled,   // cancelled by the caller or by a newer request
};

// One translation service as the translation flow sees it: one request at a time (a new
// one cancels the one in flight), the answer through a completion. The gesture and the
// typing mode share one Translator, so a request from one cancels the other's.
//
// Lives on the thread that creates it (the main thread). A completion runs there, inside
// cancelCurrentTranslationRequestIfAny() for a cancelled request; it must not destroy the
// translator.
class Translator : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // The name the user chooses the service by ("Google", "DeepL", ...).
    virtual QString serviceName() const = 0;
    // Whether the service has what it needs to be asked (an API key, a URL).
    virtual bool isConfigured() const { return true; }

    virtual void translateText(const QString &textToTranslate, const QString &targetLanguage,
                               TranslationCompletion completion) = 0;
    virtual void cancelCurrentTranslationRequestIfAny() = 0;

    // Opens the connection the next request will use, if none is open, and sends nothing
    // on it: the handshakes then happen while the user is still pressing keys.
    virtual void prepare() {}

    // How the request whose completion runs now (or ran last) ended.
    TranslationEnd lastEnd() const { return m_lastEnd; }
    // The service that gave the last answer (a chain names the member that answered).
    virtual QString answeringServiceName() const { return serviceName(); }

protected:
    void setLastEnd(TranslationEnd end) { m_lastEnd = end; }

private:
    TranslationEnd m_lastEnd = TranslationEnd::Answered;
};
