#include "translation/ServiceProtocols.h"

#include "translation/GoogleTranslateByURL.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

namespace {

const QByteArray kJson = "application/json";

// The body as a JSON document, or null when it is none.
QJsonDocument readJson(QByteArrayView body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body.toByteArray(), &error);
    return error.error == QJsonParseError::NoError ? document : QJsonDocument();
}

ParsedAnswer unreadable(const QString &reason)
{
    return {TranslationEnd::Unreadable, QString(), QString(), reason};
}

ParsedAnswer answered(const QString &text, const QString &detected)
{
    return {TranslationEnd::Answered, text, detected, QString()};
}

// A base URL with a path appended, or nothing when the base is no absolute http(s) URL.
std::optional<QUrl> endpoint(const QString &baseUrl, const QString &path)
{
    QString base = baseUrl.trimmed();
    while (base.endsWith(QLatin1Char('/')))
        base.chop(1);
    const QUrl url(base + path, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() ||
        (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https")))
        return std::nullopt;
    return url;
}

// Table code -> ISO 639-3 code as Apertium names its languages.
const QHash<QString, QString> &apertiumCodes()
{
    static const QHash<QString, QString> codes{
        {"ar", "ara"},    {"bg", "bul"}, {"ca", "cat"}, {"zh-CN", "zho"}, {"zh-TW", "zho_TW"},
        {"hr", "hbs_HR"}, {"cs", "ces"}, {"da", "dan"}, {"nl", "nld"},    {"en", "eng"},
        {"et", "est"},    {"fi", "fin"}, {"fr", "fra"}, {"de", "deu"},    {"el", "ell"},
        {"iw", "heb"},    {"hi", "hin"}, {"hu", "hun"}, {"id", "ind"},    {"it", "ita"},
        {"ja", "jpn"},    {"ko", "kor"}, {"lv", "lav"}, {"lt", "lit"},    {"no", "nob"},
        {"pl", "pol"},    {"pt", "por"}, {"ro", "ron"}, {"ru", "rus"},    {"sr", "srp"},
        {"sk", "slk"},    {"sl", "slv"}, {"es", "spa"}, {"sv", "swe"},    {"th", "tha"},
        {"tr", "tur"},    {"uk", "ukr"}, {"vi", "vie"},
    };
    return codes;
}

} // namespace

bool isRefusalPage(int status, QByteArrayView body)
{
    if (status == 429 || status == 503)
        return true;
    return body.first(qMin<qsizetype>(body.size(), 512)).trimmed().startsWith('<');
}

ParsedAnswer refusalOf(int status, QByteArrayView body)
{
    const QJsonObject object = readJson(body).object();
    QString words = object.value(QStringLiteral("message")).toString();
    if (words.isEmpty())
        words = object.value(QStringLiteral("error")).toString();
    QString reason = QStringLiteral("HTTP %1").arg(status);
    if (!words.isEmpty())
        reason += QStringLiteral(": ") + words.left(200);
    return {TranslationEnd::Refused, QString(), QString(), reason};
}

// ---- Google (alternative client) ----

std::optional<WebRequest> GoogleAlternativeProtocol::buildRequest(const QString &baseUrl,
                                                                  const QString &text,
                                                                  const QString &targetLanguage)
{
    const std::optional<QUrl> url =
        endpoint(baseUrl, QStringLiteral("/translate_a/t?client=dict-chrome-ex&sl=auto&tl=") +
                              targetLanguage + QStringLiteral("&q=") + urlEncode(text));
    if (!url)
        return std::nullopt;
    WebRequest request;
    request.url = *url;
    request.headers = {{"User-Agent", GoogleTranslateByURL::kUserAgent}};
    return request;
}

ParsedAnswer GoogleAlternativeProtocol::parseAnswer(int status, QByteArrayView body)
{
    if (isRefusalPage(status, body) || status >= 400)
        return refusalOf(status, body);
    const QJsonDocument document = readJson(body);
    if (document.isObject()) {
        // The older shape: sentences with their "trans" pieces and the source in "src".
        QString text;
        bool any = false;
        for (const QJsonValue &sentence :
             document.object().value(QStringLiteral("sentences")).toArray()) {
            const QJsonValue piece = sentence.toObject().value(QStringLiteral("trans"));
            if (piece.isString()) {
                text += piece.toString();
                any = true;
            }
        }
        if (!any)
            return unreadable(QStringLiteral("no sentences in the answer"));
        const QJsonValue source = document.object().value(QStringLiteral("src"));
        return answered(text, source.isString() ? source.toString() : QString());
    }
    // One element per text sent: [translation, detected source] when the source was
    // detected, else the translation alone.
    const QJsonValue first = document.array().at(0);
    if (first.isString())
        return answered(first.toString(), QString());
    const QJsonArray pair = first.toArray();
    if (!pair.at(0).isString())
        return unreadable(QStringLiteral("no translation in the answer"));
    return answered(pair.at(0).toString(),
                    pair.at(1).isString() ? pair.at(1).toString() : QString());
}

// ---- DeepL ----

QString DeepLProtocol::baseUrlForKey(const QString &apiKey)
{
    return QString::fromLatin1(apiKey.trimmed().endsWith(QLatin1String(":fx")) ? kFreeUrl
                                                                               : kProUrl);
}

QString DeepLProtocol::targetLanguage(const QString &tableCode)
{
    static const QHash<QString, QString> differing{
        {"en", "EN-US"},      {"pt", "PT-BR"}, {"zh-CN", "ZH-HANS"},
        {"zh-TW", "ZH-HANT"}, {"iw", "HE"},    {"no", "NB"},
    };
    // Languages of the table that DeepL does not translate into.
    static const QStringList missing{"ca", "hr", "hi", "sr"};
    if (missing.contains(tableCode))
        return QString();
    return differing.value(tableCode, tableCode.toUpper());
}

std::optional<WebRequest> DeepLProtocol::buildRequest(const QString &baseUrl, const QString &apiKey,
                                                      const QString &text, const QString &tableCode)
{
    const QString target = targetLanguage(tableCode);
    const std::optional<QUrl> url = endpoint(baseUrl, QStringLiteral("/v2/translate"));
    if (target.isEmpty() || !url || apiKey.trimmed().isEmpty())
        return std::nullopt;
    WebRequest request;
    request.method = "POST";
    request.url = *url;
    request.headers = {{"Authorization", "DeepL-Auth-Key " + apiKey.trimmed().toUtf8()},
                       {"Content-Type", kJson}};
    const QJsonObject body{{QStringLiteral("text"), QJsonArray{text}},
                           {QStringLiteral("target_lang"), target}};
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact);
    return request;
}

ParsedAnswer DeepLProtocol::parseAnswer(int status, QByteArrayView body)
{
    if (status >= 400) {
        ParsedAnswer refused = refusalOf(status, body);
        if (status == 403)
            refused.reason += QStringLiteral(" (the API key was not accepted)");
        else if (status == 456)
            refused.reason += QStringLiteral(" (the quota is used up)");
        return refused;
    }
    const QJsonObject first =
        readJson(body).object().value(QStringLiteral("translations")).toArray().at(0).toObject();
    const QJsonValue text = first.value(QStringLiteral("text"));
    if (!text.isString())
        return unreadable(QStringLiteral("no translation in the answer"));
    return answered(text.toString(),
                    first.value(QStringLiteral("detected_source_language")).toString().toLower());
}

// ---- LibreTranslate ----

QString LibreTranslateProtocol::targetLanguage(const QString &tableCode)
{
    static const QHash<QString, QString> differing{
        {"zh-CN", "zh"}, {"zh-TW", "zt"}, {"iw", "he"}, {"no", "nb"}};
    return differing.value(tableCode, tableCode);
}

std::optional<WebRequest> LibreTranslateProtocol::buildRequest(const QString &instanceUrl,
                                                               const QString &apiKey,
                                                               const QString &text,
                                                               const QString &tableCode)
{
    const std::optional<QUrl> url = endpoint(instanceUrl, QStringLiteral("/translate"));
    if (!url)
        return std::nullopt;
    WebRequest request;
    request.method = "POST";
    request.url = *url;
    request.headers = {{"Content-Type", kJson}};
    QJsonObject body{{QStringLiteral("q"), text},
                     {QStringLiteral("source"), QStringLiteral("auto")},
                     {QStringLiteral("target"), targetLanguage(tableCode)},
                     {QStringLiteral("format"), QStringLiteral("text")}};
    if (!apiKey.trimmed().isEmpty())
        body.insert(QStringLiteral("api_key"), apiKey.trimmed());
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact);
    return request;
}

ParsedAnswer LibreTranslateProtocol::parseAnswer(int status, QByteArrayView body)
{
    if (status >= 400)
        return refusalOf(status, body);
    const QJsonObject object = readJson(body).object();
    const QJsonValue text = object.value(QStringLiteral("translatedText"));
    if (!text.isString())
        return unreadable(QStringLiteral("no translatedText in the answer"));
    const QJsonValue detected = object.value(QStringLiteral("detectedLanguage"))
                                    .toObject()
                                    .value(QStringLiteral("language"));
    return answered(text.toString(), detected.isString() ? detected.toString() : QString());
}

// ---- Apertium ----

QString ApertiumProtocol::apertiumCode(const QString &tableCode)
{
    return apertiumCodes().value(tableCode);
}

QString ApertiumProtocol::tableCode(const QString &apertiumCode)
{
    const QString language = apertiumCode.section(QLatin1Char('_'), 0, 0);
    for (auto it = apertiumCodes().cbegin(); it != apertiumCodes().cend(); ++it) {
        if (it.value() == language)
            return it.key();
    }
    return QString();
}

WebRequest ApertiumProtocol::pairsRequest(const QString &baseUrl)
{
    WebRequest request;
    request.url = endpoint(baseUrl, QStringLiteral("/listPairs")).value_or(QUrl());
    return request;
}

std::optional<QList<ApertiumProtocol::Pair>> ApertiumProtocol::parsePairs(QByteArrayView body)
{
    const QJsonValue data = readJson(body).object().value(QStringLiteral("responseData"));
    if (!data.isArray())
        return std::nullopt;
    QList<Pair> pairs;
    for (const QJsonValue &value : data.toArray()) {
        const QJsonObject pair = value.toObject();
        const QString source = pair.value(QStringLiteral("sourceLanguage")).toString();
        const QString target = pair.value(QStringLiteral("targetLanguage")).toString();
        if (!source.isEmpty() && !target.isEmpty())
            pairs.append({source, target});
    }
    return pairs;
}

QStringList ApertiumProtocol::sourcesInto(const QList<Pair> &pairs, const QString &tableCode)
{
    const QString target = apertiumCode(tableCode);
    QStringList sources;
    if (target.isEmpty())
        return sources;
    for (const Pair &pair : pairs) {
        // A variant of the language ("spa_VE") is that language too; the plain one wins.
        const bool into =
            pair.target == target || pair.target.startsWith(target + QLatin1Char('_'));
        if (into && !sources.contains(pair.source))
            sources.append(pair.source);
    }
    return sources;
}

WebRequest ApertiumProtocol::identificationRequest(const QString &baseUrl, const QString &text)
{
    WebRequest request;
    request.url =
        endpoint(baseUrl, QStringLiteral("/identifyLang?q=") + urlEncode(text)).value_or(QUrl());
    return request;
}

QString ApertiumProtocol::identifiedSource(QByteArrayView body, const QStringList &candidates)
{
    const QJsonObject scores = readJson(body).object();
    QString best;
    double bestScore = -1;
    for (const QString &candidate : candidates) {
        const QString language = candidate.section(QLatin1Char('_'), 0, 0);
        const QJsonValue score = scores.value(language);
        if (score.isDouble() && score.toDouble() > bestScore) {
            best = candidate;
            bestScore = score.toDouble();
        }
    }
    return best;
}

WebRequest ApertiumProtocol::translationRequest(const QString &baseUrl, const Pair &pair,
                                                const QString &text)
{
    WebRequest request;
    // Unknown words unmarked: the user reads the text, not the analyser's notes.
    request.url = endpoint(baseUrl, QStringLiteral("/translate?markUnknown=no&langpair=") +
                                        urlEncode(pair.source + QLatin1Char('|') + pair.target) +
                                        QStringLiteral("&q=") + urlEncode(text))
                      .value_or(QUrl());
    return request;
}

ParsedAnswer ApertiumProtocol::parseTranslation(int status, QByteArrayView body, const Pair &pair)
{
    if (status >= 400)
        return refusalOf(status, body);
    const QJsonObject object = readJson(body).object();
    const QJsonValue text = object.value(QStringLiteral("responseData"))
                                .toObject()
                                .value(QStringLiteral("translatedText"));
    if (!text.isString())
        return unreadable(QStringLiteral("no translatedText in the answer"));
    const QString detected = tableCode(pair.source);
    return answered(text.toString(), detected.isEmpty() ? pair.source : detected);
}
