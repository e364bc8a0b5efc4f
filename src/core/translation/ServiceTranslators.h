#pragma once

#include "translation/ServiceProtocols.h"
#include "translation/WebTranslator.h"

#include <functional>
#include <optional>

// A service asked with one request per text: "Google (alternative client)", "DeepL" and
// "LibreTranslate", each given by its pure request builder and answer parser. Texts longer
// than the service takes are cut to its limit. Main thread, like every WebTranslator.
class ServiceTranslator : public WebTranslator
{
    Q_OBJECT
public:
    struct Service
    {
        QString name;
        QString baseUrl;
        bool configured = true;
        qsizetype maximumTextLength = 5000;
        // Null when this text cannot be sent (no key, no URL, a language it lacks).
        std::function<std::optional<WebRequest>(const QString &text, const QString &language)>
            buildRequest;
        std::function<ParsedAnswer(int status, QByteArrayView body)> parseAnswer;
    };

    explicit ServiceTranslator(Service service, QObject *parent = nullptr);
    ~ServiceTranslator() override;

    QString serviceName() const override { return m_service.name; }
    bool isConfigured() const override { return m_service.configured; }
    void translateText(const QString &textToTranslate, const QString &targetLanguage,
                       TranslationCompletion completion) override;

private:
    Service m_service;
};

// "Apertium (offline)": an APY server, usually on this machine. Its pair list is read
// once (and again after a failure); a text goes out only when a pair leads into the
// destination language, and when several do, the server's language identification picks
// the source. Anything else leaves the text to the next service. Main thread.
class ApertiumTranslator : public WebTranslator
{
    Q_OBJECT
public:
    explicit ApertiumTranslator(const QString &baseUrl, QObject *parent = nullptr);
    ~ApertiumTranslator() override;

    QString serviceName() const override;
    void translateText(const QString &textToTranslate, const QString &targetLanguage,
                       TranslationCompletion completion) override;

private:
    void withPairs(const QString &text, const QString &language);
    void chooseSource(const QString &text, const QString &language);
    void translatePair(const QString &text, const ApertiumProtocol::Pair &pair);

    std::optional<QList<ApertiumProtocol::Pair>> m_pairs;
};

// The error text and log line of a service's failure, shared by the engines above.
QString serviceFailureText(const QString &serviceName, const WebReply &reply,
                           const ParsedAnswer &parsed);
