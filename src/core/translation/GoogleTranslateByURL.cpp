#include "translation/GoogleTranslateByURL.h"

#include "common/Log.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStringDecoder>
#include <QTimer>

namespace {

constexpr char kSourceLanguage[] = "auto";
constexpr char kEndedByProperty[] = "tolkaroEndedBy";
constexpr char kEndedByTimeout[] = "The request timed out.";
constexpr char kEndedByCancel[] = "cancelled";

const QString kNoDataError = QStringLiteral("NSURLResponse's data is nil");

// Whether the reply ended with a complete answer from the server, whatever its status:
// HTTP error pages reach the parse like any other answer. Transport failures (refused,
// reset, too many redirects, timeout, cancel) leave no answer at all.
bool replyCarriesAnswer(const QNetworkReply *reply)
{
    if (reply->property(kEndedByProperty).isValid())
        return false;
    const QNetworkReply::NetworkError error = reply->error();
    if (error == QNetworkReply::NoError)
        return true;
    // Only an error status (4xx, 5xx) comes with a body worth reading: a 2xx with an error
    // (an answer that could not be decompressed) brought no data.
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid() || status.toInt() < 400)
        return false;
    // Errors that only restate the HTTP status of a finished answer.
    return (error >= QNetworkReply::ContentAccessDenied &&
            error <= QNetworkReply::UnknownContentError) ||
           error == QNetworkReply::ProtocolInvalidOperationError ||
           (error >= QNetworkReply::InternalServerError &&
            error <= QNetworkReply::UnknownServerError);
}

QString describeResponse(const QNetworkReply *reply)
{
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        return QStringLiteral("(null)");
    // One arg() call: the URL's own percent escapes must not be taken for placeholders.
    return QStringLiteral("{ URL: %1 } { Status Code: %2 }")
        .arg(reply->url()
                 .adjusted(tolkaro::isVerbose() ? QUrl::None : QUrl::RemoveQuery) // the text
                 .toString(QUrl::FullyEncoded),
             QString::number(status.toInt()));
}

QString describeError(const QNetworkReply *reply)
{
    const QVariant endedBy = reply->property(kEndedByProperty);
    if (endedBy.isValid())
        return endedBy.toString();
    if (reply->error() == QNetworkReply::NoError)
        return QStringLiteral("(null)");
    QString error = reply->errorString();
    // Qt names the URL in some errors, and its query holds the user's text.
    if (!tolkaro::isVerbose()) {
        const QString withoutText = reply->url().adjusted(QUrl::RemoveQuery).toString();
        error.replace(reply->url().toString(), withoutText)
            .replace(reply->url().toString(QUrl::FullyEncoded), withoutText);
    }
    return error;
}

void failAtOnce(const TranslationCompletion &completion, const QString &errorMessage)
{
    if (completion)
        completion(false, QString(), QString(), errorMessage);
}

} // namespace

GoogleTranslateByURL::GoogleTranslateByURL(const QString &baseUrl, QObject *parent)
    : QObject(parent), m_baseUrl(baseUrl), m_network(new QNetworkAccessManager(this))
{
    // The path is appended to the base, so "https://host/" must not become "https://host//".
    while (m_baseUrl.endsWith(QLatin1Char('/')))
        m_baseUrl.chop(1);
}

GoogleTranslateByURL::~GoogleTranslateByURL()
{
    // Every request still in flight ends as cancelled, so that its caller hears of it.
    const QList<QNetworkReply *> inFlight = m_completions.keys();
    for (QNetworkReply *reply : inFlight) {
        if (!reply->property(kEndedByProperty).isValid())
            reply->setProperty(kEndedByProperty, QString::fromLatin1(kEndedByCancel));
        reply->abort();
        finishRequest(reply);
    }
}

void GoogleTranslateByURL::translateText(const QString &textToTranslate,
                                         const QString &targetLanguage,
                                         TranslationCompletion completion)
{
    cancelCurrentTranslationRequestIfAny();

    tolkaro::logLine(QStringLiteral("Translating %1 into %2")
                         .arg(tolkaro::quotedPrivateText(textToTranslate), targetLanguage));

    const QString encodedText = urlEncode(textToTranslate);
    const QString urlString = m_baseUrl + QStringLiteral("/translate_a/single?client=gtx&sl=") +
                              QLatin1StringView(kSourceLanguage) + QStringLiteral("&tl=") +
                              targetLanguage + QStringLiteral("&dt=t&q=") + encodedText;

    // Strict parsing refuses what a well-formed URL cannot hold (spaces, stray percent
    // signs), which can only come from the target code or the configured base.
    const QUrl url(urlString, QUrl::StrictMode);
    if (!url.isValid()) {
        tolkaro::logLine(QStringLiteral("in method translateText: formed url is nil. Malformed "
                                        "textToTranslate or targetLang?"));
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
        failAtOnce(completion, QStringLiteral("NSURLRequest is nil. We supplied malformed NSURL?"));
        return;
    }

    QNetworkRequest request(url);
    request.setRawHeader("User-Agent", kUserAgent);
    // No cookies go out and none are kept.
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);

    QNetworkReply *reply = m_network->get(request);
    m_completions.insert(reply, std::move(completion));
    m_urlSessionTask = reply;

    // Qt's own transfer timeout only measures silence; this bounds the whole request.
    auto *deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, reply, [reply] {
        reply->setProperty(kEndedByProperty, QString::fromLatin1(kEndedByTimeout));
        reply->abort();
    });
    deadline->start(kRequestTimeout);

    connect(reply, &QNetworkReply::finished, this, [this, reply] { finishRequest(reply); });
}

void GoogleTranslateByURL::cancelCurrentTranslationRequestIfAny()
{
    QNetworkReply *reply = m_urlSessionTask;
    m_urlSessionTask = nullptr;
    if (!reply || !m_completions.contains(reply))
        return;
    reply->setProperty(kEndedByProperty, QString::fromLatin1(kEndedByCancel));
    reply->abort();
    // abort() reports the end at once; this covers a reply that would report it later.
    finishRequest(reply);
}

void GoogleTranslateByURL::finishRequest(QNetworkReply *reply)
{
    const auto found = m_completions.constFind(reply);
    if (found == m_completions.constEnd())
        return;
    // Taken out first: the completion may start the next request.
    const TranslationCompletion completion = found.value();
    m_completions.erase(found);
    reply->disconnect(this);
    reply->deleteLater();

    auto complete = [&completion](bool success, const QString &text, const QString &guessed,
                                  const QString &errorMessage) {
        if (completion)
            completion(success, text, guessed, errorMessage);
    };

    if (!replyCarriesAnswer(reply)) {
        tolkaro::logLine(QStringLiteral("data is nil :(. Response: %1, error: %2")
                             .arg(describeResponse(reply), describeError(reply)));
        complete(false, QString(), QString(), kNoDataError);
        return;
    }

    QByteArray data = reply->readAll();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString responseString = decoder.decode(data);
    if (decoder.hasError()) {
        tolkaro::logLine(QStringLiteral("responseDataString is nil"));
        complete(false, QString(), QString(),
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
        complete(false, QString(), QString(), QStringLiteral("Unable to translate text."));
        return;
    }
    complete(true, translation, guessedLanguageCode, QString());
}
