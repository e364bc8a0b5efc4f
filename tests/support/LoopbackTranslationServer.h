#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

#include <functional>
#include <memory>

class QThread;
class LoopbackServerWorker;
struct LoopbackServerState;

// A real HTTP/1.1 server on 127.0.0.1 (a random free port) standing in for the
// translation endpoint. It serves from its own thread, so a test may block its own thread
// (QProcess::waitForFinished, a nested capture) while the server answers.
//
// Every request gets the next scripted answer (enqueueAnswer), else the default answer
// (setDefaultAnswer), which starts as Echo: "translation of <q>" with "en" detected.
// Every request's exact request line and headers are recorded. Thread-safe.
class LoopbackTranslationServer
{
public:
    enum class Behaviour
    {
        Echo,           // 200, [[["translation of <q>","<q>",null,null,10]],null,"en"]
        Well,           // the given status (200 unless set) and body
        Slowly,         // the given body after delayMs
        TrickleForever, // 200, then one byte of a never-ending body every 100 ms
        Garbage,        // 200 with a body that is no JSON
        ResetMidBody,   // half the announced body, then a connection reset
        RedirectLoop,   // 302 to the requested target itself, every time
        Silent,         // reads the request and never answers
    };

    struct Answer
    {
        Behaviour behaviour = Behaviour::Echo;
        QByteArray body;                                            // Well, Slowly
        int status = 200;                                           // Well
        QByteArray contentType = "application/json; charset=UTF-8"; // Well
        int delayMs = 0;                                            // Slowly
        QList<QPair<QByteArray, QByteArray>> extraHeaders;          // added to the response

        static Answer echo() { return {}; }
        static Answer of(Behaviour behaviour, const QByteArray &body = {})
        {
            Answer answer;
            answer.behaviour = behaviour;
            answer.body = body;
            return answer;
        }
        static Answer well(const QByteArray &body) { return of(Behaviour::Well, body); }
        // A service's error answer, or any answer with a status of its own.
        static Answer withStatus(int status, const QByteArray &body,
                                 const QByteArray &contentType = "application/json")
        {
            Answer answer = well(body);
            answer.status = status;
            answer.contentType = contentType;
            return answer;
        }
        // An HTML page where JSON belongs, as a service that turns a client away sends it.
        static Answer htmlPage(int status);
        static Answer slowly(const QByteArray &body, int delayMs)
        {
            Answer answer = of(Behaviour::Slowly, body);
            answer.delayMs = delayMs;
            return answer;
        }
    };

    struct RecordedRequest
    {
        QByteArray requestLine;                       // "GET /path?query HTTP/1.1"
        QList<QPair<QByteArray, QByteArray>> headers; // in the order sent, as sent
        QByteArray body;                              // as sent (Content-Length bytes)
        QByteArray target() const;                    // "/path?query"
        QString queryText() const; // the q parameter, decoded ('+' a space, as form-encoded)
        QByteArray headerValue(const QByteArray &name) const; // case-insensitive; null if absent
    };

    LoopbackTranslationServer();
    ~LoopbackTranslationServer();
    Q_DISABLE_COPY_MOVE(LoopbackTranslationServer)

    bool isListening() const;
    // "http://127.0.0.1:<port>", the client's base URL.
    QString baseUrl() const;

    void setDefaultAnswer(const Answer &answer);
    void enqueueAnswer(const Answer &answer);

    QList<RecordedRequest> requests() const;
    int requestCount() const;
    void clearRequests();
    // Called on the server's thread for every request, after it is recorded.
    void setRequestObserver(std::function<void(const RecordedRequest &)> observer);

    // The echo answer for a query value as it appears in the URL (form-encoded).
    static QByteArray echoBody(const QByteArray &encodedQueryValue);
    // The echo answer for a request target ("/path?...&q=<text>").
    static QByteArray echoBodyFor(const QByteArray &target);
    // The text echo answers translate "text" into.
    static QString echoTranslation(const QString &text);

private:
    std::unique_ptr<LoopbackServerState> m_state;
    std::unique_ptr<QThread> m_thread;
    LoopbackServerWorker *m_worker = nullptr;
    quint16 m_port = 0;
};
