#include "translation/WebTranslator.h"

#include "common/Log.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QTimer>

namespace {

constexpr char kEndedByProperty[] = "tolkaroEndedBy";
constexpr char kEndedByTimeout[] = "The request timed out.";
constexpr char kEndedByCancel[] = "cancelled";

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

} // namespace

WebTranslator::WebTranslator(const QString &baseUrl, QObject *parent)
    : Translator(parent), m_baseUrl(baseUrl), m_network(new QNetworkAccessManager(this))
{
    // Paths are appended to the base, so "https://host/" must not become "https://host//".
    while (m_baseUrl.endsWith(QLatin1Char('/')))
        m_baseUrl.chop(1);
}

WebTranslator::~WebTranslator()
{
    // Subclasses cancel in their own destructors, where their reply handlers may still run;
    // by now those handlers would call into a destroyed subclass, so a request still in
    // flight ends here without them.
    m_handler = nullptr;
    cancelCurrentTranslationRequestIfAny();
}

void WebTranslator::beginTranslation(TranslationCompletion completion)
{
    cancelCurrentTranslationRequestIfAny();
    m_translationOpen = true;
    m_completion = std::move(completion);
}

void WebTranslator::complete(TranslationEnd end, bool success, const QString &translatedText,
                             const QString &guessedLanguageCode, const QString &errorMessage)
{
    if (!m_translationOpen)
        return;
    // Taken out first: the completion may start the next translation.
    const TranslationCompletion completion = std::move(m_completion);
    m_completion = nullptr;
    m_translationOpen = false;
    setLastEnd(end);
    if (completion)
        completion(success, translatedText, guessedLanguageCode, errorMessage);
}

void WebTranslator::send(const WebRequest &webRequest, ReplyHandler handler)
{
    QNetworkRequest request(webRequest.url);
    for (const auto &[name, value] : webRequest.headers)
        request.setRawHeader(name, value);
    // No cookies go out and none are kept.
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);

    QNetworkReply *reply =
        webRequest.method == "GET"
            ? m_network->get(request)
            : m_network->sendCustomRequest(request, webRequest.method, webRequest.body);
    m_reply = reply;
    m_handler = std::move(handler);
    m_sinceLastUse.start();

    // Qt's own transfer timeout only measures silence; this bounds the whole request.
    auto *deadline = new QTimer(reply);
    deadline->setSingleShot(true);
    connect(deadline, &QTimer::timeout, reply, [reply] {
        reply->setProperty(kEndedByProperty, QString::fromLatin1(kEndedByTimeout));
        reply->abort();
    });
    deadline->start(kRequestTimeout);

    connect(reply, &QNetworkReply::finished, this, [this, reply] { finishReply(reply); });
}

void WebTranslator::cancelCurrentTranslationRequestIfAny()
{
    QNetworkReply *reply = m_reply;
    if (reply) {
        reply->setProperty(kEndedByProperty, QString::fromLatin1(kEndedByCancel));
        reply->abort();
        // abort() reports the end at once; this covers a reply that would report it later.
        finishReply(reply);
    }
    // A translation between two requests (or one whose handler sent nothing) ends here.
    complete(TranslationEnd::Cancelled, false, QString(), QString(), QString());
}

void WebTranslator::finishReply(QNetworkReply *reply)
{
    if (reply != m_reply)
        return;
    m_reply = nullptr;
    const ReplyHandler handler = std::move(m_handler);
    m_handler = nullptr;
    reply->disconnect(this);
    reply->deleteLater();

    WebReply ended;
    ended.carriesAnswer = replyCarriesAnswer(reply);
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    ended.status = status.isValid() ? status.toInt() : 0;
    const QString endedBy = reply->property(kEndedByProperty).toString();
    ended.cancelled = endedBy == QLatin1String(kEndedByCancel);
    ended.timedOut = endedBy == QLatin1String(kEndedByTimeout);
    ended.responseDescription = describeResponse(reply);
    ended.errorDescription = describeError(reply);
    if (ended.carriesAnswer)
        ended.body = reply->readAll();
    if (handler)
        handler(ended);
}

void WebTranslator::prepare()
{
    // A request or a warm-up within the keep-alive time may have left a connection open.
    if (m_sinceLastUse.isValid() &&
        std::chrono::milliseconds(m_sinceLastUse.elapsed()) < kKeepAlive)
        return;
    const QUrl url(m_baseUrl);
    if (url.host().isEmpty())
        return;
    m_sinceLastUse.start();
    if (url.scheme() == QLatin1String("https")) {
        // The requests may speak HTTP/2; a warm-up that offered only HTTP/1.1 would open a
        // connection they do not take.
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        configuration.setAllowedNextProtocols(
            {QSslConfiguration::ALPNProtocolHTTP2, QSslConfiguration::NextProtocolHttp1_1});
        m_network->connectToHostEncrypted(url.host(), quint16(url.port(443)), configuration);
    } else if (url.scheme() == QLatin1String("http"))
        m_network->connectToHost(url.host(), quint16(url.port(80)));
}
