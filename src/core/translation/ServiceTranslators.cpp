#include "translation/ServiceTranslators.h"

#include "common/Log.h"
#include "text/TextCut.h"

namespace {

// What a request that brought no answer counts as.
TranslationEnd endWithoutAnswer(const WebReply &reply)
{
    return reply.cancelled ? TranslationEnd::Cancelled : TranslationEnd::Unreachable;
}

} // namespace

QString serviceFailureText(const QString &serviceName, const WebReply &reply,
                           const ParsedAnswer &parsed)
{
    if (!reply.carriesAnswer)
        return QStringLiteral("%1 could not be reached: %2")
            .arg(serviceName, reply.errorDescription);
    return QStringLiteral("%1 could not translate the text: %2").arg(serviceName, parsed.reason);
}

// ---- One request per text ----

ServiceTranslator::ServiceTranslator(Service service, QObject *parent)
    : WebTranslator(service.baseUrl, parent), m_service(std::move(service))
{
}

ServiceTranslator::~ServiceTranslator()
{
    cancelCurrentTranslationRequestIfAny();
}

void ServiceTranslator::translateText(const QString &textToTranslate, const QString &targetLanguage,
                                      TranslationCompletion completion)
{
    beginTranslation(std::move(completion));
    const QString text = cutText(textToTranslate, m_service.maximumTextLength);
    tolkaro::logLine(QStringLiteral("Translating %1 into %2 with %3")
                         .arg(tolkaro::quotedPrivateText(text), targetLanguage, m_service.name));
    const std::optional<WebRequest> request =
        m_service.configured ? m_service.buildRequest(text, targetLanguage) : std::nullopt;
    if (!request) {
        const QString error = QStringLiteral("%1 cannot translate into %2 as configured")
                                  .arg(m_service.name, targetLanguage);
        tolkaro::logLine(error);
        complete(TranslationEnd::Unusable, false, QString(), QString(), error);
        return;
    }
    send(*request, [this](const WebReply &reply) {
        const ParsedAnswer parsed = reply.carriesAnswer
                                        ? m_service.parseAnswer(reply.status, reply.body)
                                        : ParsedAnswer{endWithoutAnswer(reply), {}, {}, {}};
        if (parsed.end == TranslationEnd::Answered) {
            complete(parsed.end, true, parsed.text, parsed.detected, QString());
            return;
        }
        const QString error = serviceFailureText(m_service.name, reply, parsed);
        tolkaro::logLine(error);
        complete(parsed.end, false, QString(), QString(), error);
    });
}

// ---- Apertium ----

using ApertiumProtocol::Pair;

ApertiumTranslator::ApertiumTranslator(const QString &baseUrl, QObject *parent)
    : WebTranslator(baseUrl, parent)
{
}

ApertiumTranslator::~ApertiumTranslator()
{
    cancelCurrentTranslationRequestIfAny();
}

QString ApertiumTranslator::serviceName() const
{
    return QString::fromLatin1(ApertiumProtocol::kServiceName);
}

void ApertiumTranslator::translateText(const QString &textToTranslate,
                                       const QString &targetLanguage,
                                       TranslationCompletion completion)
{
    beginTranslation(std::move(completion));
    const QString text = cutText(textToTranslate, ApertiumProtocol::kMaximumTextLength);
    tolkaro::logLine(QStringLiteral("Translating %1 into %2 with %3")
                         .arg(tolkaro::quotedPrivateText(text), targetLanguage, serviceName()));
    if (m_pairs) {
        chooseSource(text, targetLanguage);
        return;
    }
    send(ApertiumProtocol::pairsRequest(baseUrl()),
         [this, text, targetLanguage](const WebReply &reply) {
             if (reply.carriesAnswer && reply.status < 400)
                 m_pairs = ApertiumProtocol::parsePairs(reply.body);
             if (m_pairs) {
                 chooseSource(text, targetLanguage);
                 return;
             }
             const ParsedAnswer parsed =
                 reply.carriesAnswer
                     ? ParsedAnswer{TranslationEnd::Refused, {}, {}, QStringLiteral("no pair list")}
                     : ParsedAnswer{endWithoutAnswer(reply), {}, {}, {}};
             const QString error = serviceFailureText(serviceName(), reply, parsed);
             tolkaro::logLine(error);
             complete(parsed.end, false, QString(), QString(), error);
         });
}

void ApertiumTranslator::chooseSource(const QString &text, const QString &language)
{
    const QStringList sources = ApertiumProtocol::sourcesInto(*m_pairs, language);
    const QString target = ApertiumProtocol::apertiumCode(language);
    auto pairFrom = [this, target](const QString &source) {
        // The plain target when the server has it, else its first variant.
        for (const Pair &pair : std::as_const(*m_pairs)) {
            if (pair.source == source && pair.target == target)
                return pair;
        }
        for (const Pair &pair : std::as_const(*m_pairs)) {
            if (pair.source == source && pair.target.startsWith(target))
                return pair;
        }
        return Pair{};
    };
    if (sources.isEmpty()) {
        const QString error =
            QStringLiteral("%1 has no language pair into %2").arg(serviceName(), language);
        tolkaro::logLine(error);
        complete(TranslationEnd::Unusable, false, QString(), QString(), error);
        return;
    }
    if (sources.size() == 1) {
        translatePair(text, pairFrom(sources.constFirst()));
        return;
    }
    send(ApertiumProtocol::identificationRequest(baseUrl(), text),
         [this, text, language, sources, pairFrom](const WebReply &reply) {
             if (reply.cancelled) {
                 complete(TranslationEnd::Cancelled, false, QString(), QString(),
                          serviceFailureText(serviceName(), reply, {}));
                 return;
             }
             const QString source = reply.carriesAnswer && reply.status < 400
                                        ? ApertiumProtocol::identifiedSource(reply.body, sources)
                                        : QString();
             if (source.isEmpty()) {
                 const QString error = QStringLiteral("%1 cannot tell which of %2 the text is in")
                                           .arg(serviceName(), sources.join(QStringLiteral(", ")));
                 tolkaro::logLine(error);
                 complete(TranslationEnd::Unusable, false, QString(), QString(), error);
                 return;
             }
             translatePair(text, pairFrom(source));
         });
}

void ApertiumTranslator::translatePair(const QString &text, const Pair &pair)
{
    send(ApertiumProtocol::translationRequest(baseUrl(), pair, text),
         [this, pair](const WebReply &reply) {
             const ParsedAnswer parsed =
                 reply.carriesAnswer
                     ? ApertiumProtocol::parseTranslation(reply.status, reply.body, pair)
                     : ParsedAnswer{endWithoutAnswer(reply), {}, {}, {}};
             if (parsed.end == TranslationEnd::Answered) {
                 complete(parsed.end, true, parsed.text, parsed.detected, QString());
                 return;
             }
             // A server that went away may come back with other pairs.
             if (!reply.carriesAnswer)
                 m_pairs.reset();
             const QString error = serviceFailureText(serviceName(), reply, parsed);
             tolkaro::logLine(error);
             complete(parsed.end, false, QString(), QString(), error);
         });
}
