#pragma once

#include "translation/Translator.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QPair>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

// One HTTP request of a service, as its pure request builder makes it.
struct WebRequest
{
    QByteArray method = "GET";
    QUrl url;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
};

// How one HTTP request ended.
struct WebReply
{
    // A complete answer arrived, whatever its status: error pages are answers too.
    bool carriesAnswer = false;
    int status = 0; // 0 when no HTTP answer arrived
    QByteArray body;
    bool cancelled = false;
    bool timedOut = false;
    // "{ URL: ... } { Status Code: N }", or "(null)" without an HTTP answer.
    QString responseDescription;
    // Why no answer arrived ("The request timed out.", "cancelled", Qt's text), or "(null)".
    QString errorDescription;
};

// What every web service's translator shares: one network manager, one request at a time
// (a new one cancels the one in flight), a bound on the whole life of a request, a cancel
// that still ends the request through its completion, a destructor that cancels, and the
// warm connection of prepare(). A subclass sends the requests of one translation (one or
// several in a row) and reads each reply in its handler, which either sends the next
// request or completes.
//
// Lives on the thread that creates it; handlers and completions run there.
class WebTranslator : public Translator
{
    Q_OBJECT
public:
    // The whole life of a request, from start to the last byte of the answer. An answer
    // that keeps trickling in still ends here.
    static constexpr std::chrono::milliseconds kRequestTimeout{4000};
    // How long an idle connection stays open for the next request; prepare() opens none
    // while one may still be open.
    static constexpr std::chrono::seconds kKeepAlive{120};

    // baseUrl: scheme, host, optional port and path prefix, e.g. "http://127.0.0.1:8765".
    explicit WebTranslator(const QString &baseUrl, QObject *parent = nullptr);
    ~WebTranslator() override;

    void cancelCurrentTranslationRequestIfAny() override;
    void prepare() override;

    QString baseUrl() const { return m_baseUrl; }

protected:
    using ReplyHandler = std::function<void(const WebReply &reply)>;

    // Starts a translation whose completion is called by complete(); cancels any other
    // first.
    void beginTranslation(TranslationCompletion completion);
    // Sends one request of the current translation; the handler runs once when it ends
    // (cancelled included) and must send the next request or complete.
    void send(const WebRequest &request, ReplyHandler handler);
    // Ends the current translation with its one completion.
    void complete(TranslationEnd end, bool success, const QString &translatedText,
                  const QString &guessedLanguageCode, const QString &errorMessage);
    // Subclasses with requests that are not HTTP GET with a body may need the manager.
    QNetworkAccessManager *network() const { return m_network; }

private:
    void finishReply(QNetworkReply *reply);

    QString m_baseUrl;
    QNetworkAccessManager *m_network = nullptr;
    QPointer<QNetworkReply> m_reply;
    ReplyHandler m_handler;
    bool m_translationOpen = false;
    TranslationCompletion m_completion;
    // Since the last request or prepare(): whether a connection may still be open.
    QElapsedTimer m_sinceLastUse;
};
