#include "translation/GoogleTranslateByURL.h"

#include "common/Log.h"
#include "text/TextCut.h"
#include "translation/ServiceProtocols.h"

#include <QStringDecoder>

namespace {

constexpr char kSourceLanguage[] = "auto";

const QString kNoDataError = QStringLiteral("NSURLResponse's data is nil");

void failAtOnce(const TranslationCompletion &completion, const QString &errorMessage)
{
    if (completion)
        completion(false, QString(), QString(), errorMessage);
}

} // namespace

GoogleTranslateByURL::GoogleTranslateByURL(const QString &baseUrl, QObject *parent)
    : WebTranslator(baseUrl, parent)
{
}

void GoogleTranslateByURL::translateText(const QString &textToTranslate,
                                         const QString &targetLanguage,
                                         TranslationCompletion completion)
{
    cancelCurrentTranslationRequestIfAny();
    const QString text = cutText(textToTranslate, kMaximumTextLength);

    tolkaro::logLine(QStringLiteral("Translating %1 into %2")
                         .arg(tolkaro::quotedPrivateText(text), targetLanguage));

    const QString encodedText = urlEncode(text);
    const QString urlString = baseUrl() + QStringLiteral("/translate_a/single?client=gtx&sl=") +
                              QLatin1StringView(kSourceLanguage) + QStringLiteral("&tl=") +
                              targetLanguage + QStringLiteral("&dt=t&q=") + encodedText;

    // Strict parsing refuses what a well-formed URL cannot hold (spaces, stray percent
    // signs), which can only come from the target code or the configured base.
    const QUrl url(urlString, QUrl::StrictMode);
    if (!url.isValid()) {
        tolkaro::logLine(QStringLiteral("in method translateText: formed url is nil. Malformed "
                                        "textToTranslate or targetLang?"));
        setLastEnd(TranslationEnd::Unusable);
        failAtOnce(completion,
                   QStringLiteral("NSURL is nil. Malformed textToTranslate or targetLang?"));
        return;
    }
    // A base without "http://" or "https://" parses as a relative URL that no request can
    // be sent to.
    const QString scheme = url.scheme();
    if (url.isRelative() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        tolkaro::logLine(QStringLiteral("in method translateText: NSURLRequest is nil"));
        setLastEnd(TranslationEnd::Unusable);
        failAtOnce(completion, QStringLiteral("NSURLRequest is nil. We supplied malformed NSURL?"));
        return;
    }

    WebRequest request;
    request.url = url;
    request.headers = {{"User-Agent", kUserAgent}};
    beginTranslation(std::move(completion));
    send(request, [this](const WebReply &reply) { readReply(reply); });
}

GoogleTranslateByURL::~GoogleTranslateByURL()
{
    // A request still in flight ends as cancelled, so that its caller hears of it.
    cancelCurrentTranslationRequestIfAny();
}

void GoogleTranslateByURL::readReply(const WebReply &reply)
{
    if (!reply.carriesAnswer) {
        tolkaro::logLine(QStringLiteral("data is nil :(. Response: %1, error: %2")
                             .arg(reply.responseDescription, reply.errorDescription));
        complete(reply.cancelled ? TranslationEnd::Cancelled : TranslationEnd::Unreachable, false,
                 QString(), QString(), kNoDataError);
        return;
    }

    const QByteArray &data = reply.body;
    const TranslationEnd failed =
        isRefusalPage(reply.status, data) ? TranslationEnd::Refused : TranslationEnd::Unreadable;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString responseString = decoder.decode(data);
    if (decoder.hasError()) {
        tolkaro::logLine(QStringLiteral("responseDataString is nil"));
        complete(failed, false, QString(), QString(),
                 QStringLiteral("responseDataString is nil. Couldn't build string from returned "
                                "by the server NSData"));
        return;
    }
    tolkaro::logLine(tolkaro::privateText(responseString));

    // The decoder drops a leading byte order mark; the parse reads the same text.
    QByteArrayView utf8(data);
    if (utf8.startsWith("\xEF\xBB\xBF"))
        utf8 = utf8.sliced(3);
    QString guessedLanguageCode;
    const QString translation = parseGoogleJSONResponseUtf8(utf8, &guessedLanguageCode);
    if (translation.isNull()) {
        tolkaro::logLine(QStringLiteral("parseGoogleJSONResponseIntoReadableString returned nil. "
                                        "Looks like this is a malformed JSON or not JSON at all? "
                                        "Here's the printout of the responseDataString that we "
                                        "tried to parse: %1")
                             .arg(tolkaro::privateText(responseString)));
        complete(failed, false, QString(), QString(), QStringLiteral("Unable to translate text."));
        return;
    }
    complete(TranslationEnd::Answered, true, translation, guessedLanguageCode, QString());
}
