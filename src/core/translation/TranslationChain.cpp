#include "translation/TranslationChain.h"

#include "common/Log.h"
#include "translation/GoogleTranslateByURL.h"
#include "translation/ServiceProtocols.h"

#include <algorithm>

TranslationChain::TranslationChain(QObject *parent) : Translator(parent) {}

TranslationChain::~TranslationChain()
{
    cancelCurrentTranslationRequestIfAny();
}

void TranslationChain::append(Translator *service)
{
    service->setParent(this);
    m_services.append(service);
}

void TranslationChain::removeAllServices()
{
    cancelCurrentTranslationRequestIfAny();
    qDeleteAll(std::exchange(m_services, {}));
}

QList<Translator *> TranslationChain::services() const
{
    return m_services;
}

QString TranslationChain::serviceName() const
{
    return m_services.isEmpty() ? QString() : m_services.constFirst()->serviceName();
}

bool TranslationChain::isConfigured() const
{
    return std::any_of(m_services.cbegin(), m_services.cend(),
                       [](const Translator *service) { return service->isConfigured(); });
}

void TranslationChain::translateText(const QString &textToTranslate, const QString &targetLanguage,
                                     TranslationCompletion completion)
{
    cancelCurrentTranslationRequestIfAny();
    m_open = true;
    ++m_generation;
    m_index = -1;
    m_text = textToTranslate;
    m_language = targetLanguage;
    m_completion = std::move(completion);
    m_firstFailure.reset();
    m_defaultRefused = false;
    askNext();
}

void TranslationChain::askNext()
{
    while (m_open && ++m_index < m_services.size()) {
        Translator *service = m_services.at(m_index);
        const QString name = service->serviceName();
        if (!service->isConfigured()) {
            tolkaro::logLine(
                QStringLiteral("%1 is not configured; asking the next service").arg(name));
            continue;
        }
        // The other client of the same service is asked only when the first was turned away.
        if (m_index > 0 && name == QLatin1String(GoogleAlternativeProtocol::kServiceName) &&
            !m_defaultRefused)
            continue;
        const int generation = m_generation;
        QPointer<TranslationChain> self(this);
        service->translateText(m_text, m_language,
                               [self, generation](bool success, const QString &text,
                                                  const QString &guessed, const QString &error) {
                                   if (self)
                                       self->serviceCompleted(generation, success, text, guessed,
                                                              error);
                               });
        return;
    }
    if (!m_open)
        return;
    if (m_firstFailure) {
        const Failure failure = *m_firstFailure;
        finish(failure.end, false, failure.text, failure.guessed, failure.error);
        return;
    }
    const QString error = QStringLiteral("No translation service is configured");
    tolkaro::logLine(error);
    finish(TranslationEnd::Unusable, false, QString(), QString(), error);
}

void TranslationChain::serviceCompleted(int generation, bool success, const QString &translatedText,
                                        const QString &guessedLanguageCode,
                                        const QString &errorMessage)
{
    if (!m_open || generation != m_generation || m_index >= m_services.size())
        return;
    Translator *service = m_services.at(m_index);
    const TranslationEnd end = success ? TranslationEnd::Answered : service->lastEnd();
    if (success || end == TranslationEnd::Cancelled) {
        if (success)
            m_answeringService = service->serviceName();
        finish(end, success, translatedText, guessedLanguageCode, errorMessage);
        return;
    }
    tolkaro::logLine(QStringLiteral("%1 answered: %2").arg(service->serviceName(), errorMessage));
    if (service->serviceName() == QLatin1String(GoogleTranslateByURL::kServiceName) &&
        end == TranslationEnd::Refused)
        m_defaultRefused = true;
    if (!m_firstFailure)
        m_firstFailure = Failure{translatedText, guessedLanguageCode, errorMessage, end};
    askNext();
}

void TranslationChain::finish(TranslationEnd end, bool success, const QString &translatedText,
                              const QString &guessedLanguageCode, const QString &errorMessage)
{
    m_open = false;
    const TranslationCompletion completion = std::move(m_completion);
    m_completion = nullptr;
    setLastEnd(end);
    const bool byFirst = success && m_index == 0;
    emit answered(success ? m_answeringService : QString(), byFirst);
    if (completion)
        completion(success, translatedText, guessedLanguageCode, errorMessage);
}

void TranslationChain::cancelCurrentTranslationRequestIfAny()
{
    if (!m_open)
        return;
    // The service being asked ends its request, which ends this one as cancelled.
    if (m_index >= 0 && m_index < m_services.size())
        m_services.at(m_index)->cancelCurrentTranslationRequestIfAny();
    if (m_open)
        finish(TranslationEnd::Cancelled, false, QString(), QString(),
               QStringLiteral("NSURLResponse's data is nil"));
}

void TranslationChain::prepare()
{
    for (Translator *service : std::as_const(m_services)) {
        if (service->isConfigured()) {
            service->prepare();
            return;
        }
    }
}
