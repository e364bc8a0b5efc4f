#include "translation/TranslationServices.h"

#include "settings/Preferences.h"
#include "translation/GoogleTranslateByURL.h"
#include "translation/ServiceProtocols.h"
#include "translation/ServiceTranslators.h"
#include "translation/TranslationChain.h"

namespace TranslationServices {

QStringList names()
{
    return {QString::fromLatin1(GoogleTranslateByURL::kServiceName),
            QString::fromLatin1(GoogleAlternativeProtocol::kServiceName),
            QString::fromLatin1(DeepLProtocol::kServiceName),
            QString::fromLatin1(LibreTranslateProtocol::kServiceName),
            QString::fromLatin1(ApertiumProtocol::kServiceName)};
}

QStringList defaultOrder()
{
    return names().mid(0, 2);
}

QStringList usableOrder(const QStringList &stored)
{
    const QStringList known = names();
    QStringList order;
    for (const QString &name : stored) {
        const QString trimmed = name.trimmed();
        if (known.contains(trimmed) && !order.contains(trimmed))
            order.append(trimmed);
    }
    return order.isEmpty() ? defaultOrder() : order;
}

QStringList allInOrder(const QStringList &stored)
{
    QStringList order = usableOrder(stored);
    for (const QString &name : names()) {
        if (!order.contains(name))
            order.append(name);
    }
    return order;
}

QStringList chosenFirst(const QStringList &stored, const QString &name)
{
    QStringList order = usableOrder(stored);
    order.removeAll(name);
    order.prepend(name);
    return usableOrder(order);
}

ServiceSettings readSettings(const Preferences &preferences, bool allServices)
{
    ServiceSettings settings;
    settings.order = usableOrder(preferences.translationServices());
    settings.googleUrl = preferences.translationServiceURL();
    // A Google endpoint named in the environment (a test's loopback server) serves both
    // clients, so that nothing reaches the real service behind the test's back.
    const QString googleOverride = qEnvironmentVariable(kTranslationUrlEnvironmentVariable);
    settings.alternativeUrl = qEnvironmentVariable(
        kAlternativeUrlEnvironmentVariable,
        googleOverride.isEmpty() ? QString::fromLatin1(GoogleAlternativeProtocol::kDefaultUrl)
                                 : googleOverride);
    auto wanted = [&settings, allServices](const char *name) {
        return allServices || settings.order.contains(QLatin1String(name));
    };
    if (wanted(DeepLProtocol::kServiceName))
        settings.deepLAPIKey = preferences.deepLAPIKey();
    settings.deepLUrl = qEnvironmentVariable(kDeepLUrlEnvironmentVariable,
                                             DeepLProtocol::baseUrlForKey(settings.deepLAPIKey));
    settings.libreTranslateURL = preferences.libreTranslateURL();
    if (wanted(LibreTranslateProtocol::kServiceName))
        settings.libreTranslateAPIKey = preferences.libreTranslateAPIKey();
    settings.apertiumURL = preferences.apertiumURL();
    return settings;
}

Translator *create(const QString &name, const ServiceSettings &settings, QObject *parent)
{
    if (name == QLatin1String(GoogleTranslateByURL::kServiceName))
        return new GoogleTranslateByURL(settings.googleUrl, parent);
    if (name == QLatin1String(ApertiumProtocol::kServiceName))
        return new ApertiumTranslator(settings.apertiumURL.isEmpty()
                                          ? QString::fromLatin1(ApertiumProtocol::kDefaultUrl)
                                          : settings.apertiumURL,
                                      parent);

    ServiceTranslator::Service service;
    service.name = name;
    if (name == QLatin1String(GoogleAlternativeProtocol::kServiceName)) {
        service.baseUrl = settings.alternativeUrl;
        service.maximumTextLength = GoogleAlternativeProtocol::kMaximumTextLength;
        service.buildRequest = [base = service.baseUrl](const QString &text,
                                                        const QString &language) {
            return GoogleAlternativeProtocol::buildRequest(base, text, language);
        };
        service.parseAnswer = &GoogleAlternativeProtocol::parseAnswer;
    } else if (name == QLatin1String(DeepLProtocol::kServiceName)) {
        const QString key = settings.deepLAPIKey;
        service.baseUrl =
            settings.deepLUrl.isEmpty() ? DeepLProtocol::baseUrlForKey(key) : settings.deepLUrl;
        service.configured = !key.trimmed().isEmpty();
        service.maximumTextLength = DeepLProtocol::kMaximumTextLength;
        service.buildRequest = [base = service.baseUrl, key](const QString &text,
                                                             const QString &language) {
            return DeepLProtocol::buildRequest(base, key, text, language);
        };
        service.parseAnswer = &DeepLProtocol::parseAnswer;
    } else if (name == QLatin1String(LibreTranslateProtocol::kServiceName)) {
        service.baseUrl = settings.libreTranslateURL;
        service.configured = !settings.libreTranslateURL.trimmed().isEmpty();
        service.maximumTextLength = LibreTranslateProtocol::kMaximumTextLength;
        service.buildRequest = [base = service.baseUrl, key = settings.libreTranslateAPIKey](
                                   const QString &text, const QString &language) {
            return LibreTranslateProtocol::buildRequest(base, key, text, language);
        };
        service.parseAnswer = &LibreTranslateProtocol::parseAnswer;
    } else {
        return nullptr;
    }
    return new ServiceTranslator(std::move(service), parent);
}

TranslationChain *createChain(const ServiceSettings &settings, QObject *parent)
{
    auto *chain = new TranslationChain(parent);
    refillChain(*chain, settings);
    return chain;
}

void refillChain(TranslationChain &chain, const ServiceSettings &settings)
{
    chain.removeAllServices();
    for (const QString &name : usableOrder(settings.order)) {
        if (Translator *service = create(name, settings))
            chain.append(service);
    }
}

} // namespace TranslationServices
