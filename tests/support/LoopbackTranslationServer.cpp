#include "LoopbackTranslationServer.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QMutex>
#include <QMutexLocker>
#include <QQueue>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>
#include <QUrlQuery>

#include <sys/socket.h>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;
using RecordedRequest = LoopbackTranslationServer::RecordedRequest;

namespace {

constexpr int kTrickleIntervalMs = 100;
constexpr qsizetype kMaxHeadSize = 1024 * 1024;

const QByteArray kGarbageBody = QByteArrayLiteral("<<< this is no translation >>> ]]}{,,\"");

} // namespace

// Server state shared between the test's thread and the server's thread.
struct LoopbackServerState
{
    mutable QMutex mutex;
    Answer defaultAnswer;
    QQueue<Answer> scripted;
    QList<RecordedRequest> requests;
    std::function<void(const RecordedRequest &)> observer;
};

// Lives on the server's thread: the listening socket and every connection.
class LoopbackServerWorker : public QObject
{
public:
    explicit LoopbackServerWorker(LoopbackServerState &state) : m_state(state) {}

    quint16 listen()
    {
        m_server = new QTcpServer(this);
        if (!m_server->listen(QHostAddress::LocalHost))
            return 0;
        connect(m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server->nextPendingConnection())
                accept(socket);
        });
        m_port = m_server->serverPort();
        return m_port;
    }

private:
    struct Connection
    {
        QByteArray buffer;
        bool busy = false; // an answer is still being written (or never will be)
    };

    void accept(QTcpSocket *socket)
    {
        auto connection = std::make_shared<Connection>();
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket, connection] {
            connection->buffer.append(socket->readAll());
            serveBufferedRequests(socket, connection);
        });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }

    void serveBufferedRequests(QTcpSocket *socket, const std::shared_ptr<Connection> &connection)
    {
        while (!connection->busy) {
            const qsizetype headEnd = connection->buffer.indexOf("\r\n\r\n");
            if (headEnd < 0) {
                if (connection->buffer.size() > kMaxHeadSize)
                    socket->abort();
                return;
            }
            RecordedRequest request = parseHead(connection->buffer.left(headEnd));
            qsizetype consumed = headEnd + 4;
            const qsizetype bodyLength = request.headerValue("Content-Length").toLongLong();
            if (connection->buffer.size() < consumed + bodyLength)
                return;
            request.body = connection->buffer.mid(consumed, bodyLength);
            consumed += bodyLength;
            connection->buffer.remove(0, consumed);
            Answer answer;
            std::function<void(const RecordedRequest &)> observer;
            {
                QMutexLocker locker(&m_state.mutex);
                m_state.requests.append(request);
                answer =
                    m_state.scripted.isEmpty() ? m_state.defaultAnswer : m_state.scripted.dequeue();
                observer = m_state.observer;
            }
            if (observer)
                observer(request);
            const bool closeAfter =
                request.headerValue("Connection").compare("close", Qt::CaseInsensitive) == 0;
            respond(socket, connection, request, answer, closeAfter);
        }
    }

    static RecordedRequest parseHead(const QByteArray &head)
    {
        RecordedRequest request;
        const QList<QByteArray> lines = head.split('\n');
        request.requestLine = lines.value(0).trimmed();
        for (const QByteArray &line : lines.mid(1)) {
            if (const qsizetype colon = line.indexOf(':'); colon > 0)
                request.headers.append({line.left(colon), line.mid(colon + 1).trimmed()});
        }
        return request;
    }

    static QByteArray head(int status, const QByteArray &contentType, qint64 contentLength,
                           const Answer &answer, const QByteArray &location = {})
    {
        QByteArray head = "HTTP/1.1 " + QByteArray::number(status) +
                          (status == 200 ? " OK" : " Status") + "\r\nContent-Type: " + contentType +
                          "\r\nContent-Length: " + QByteArray::number(contentLength) + "\r\n";
        if (!location.isEmpty())
            head += "Location: " + location + "\r\n";
        for (const auto &[name, value] : answer.extraHeaders)
            head += name + ": " + value + "\r\n";
        return head + "\r\n";
    }

    void respond(QTcpSocket *socket, const std::shared_ptr<Connection> &connection,
                 const RecordedRequest &request, const Answer &answer, bool closeAfter)
    {
        const QByteArray json = "application/json; charset=UTF-8";
        auto send = [socket, connection, closeAfter, this](const QByteArray &bytes) {
            socket->write(bytes);
            if (closeAfter) {
                socket->disconnectFromHost();
                return;
            }
            connection->busy = false;
            serveBufferedRequests(socket, connection);
        };
        connection->busy = true;

        switch (answer.behaviour) {
        case Behaviour::Echo: {
            const QByteArray body = LoopbackTranslationServer::echoBodyFor(request.target());
            send(head(200, json, body.size(), answer) + body);
            return;
        }
        case Behaviour::Well:
            send(head(answer.status, answer.contentType, answer.body.size(), answer) + answer.body);
            return;
        case Behaviour::Slowly: {
            const QByteArray bytes = head(200, json, answer.body.size(), answer) + answer.body;
            QTimer::singleShot(answer.delayMs, socket, [send, bytes] { send(bytes); });
            return;
        }
        case Behaviour::TrickleForever: {
            socket->write(head(200, json, 1024 * 1024 * 1024, answer) + "[");
            auto *timer = new QTimer(socket);
            connect(timer, &QTimer::timeout, socket, [socket] { socket->write(" "); });
            timer->start(kTrickleIntervalMs);
            return;
        }
        case Behaviour::Garbage:
            respond(socket, connection, request,
                    Answer::withStatus(200, kGarbageBody, "text/plain"), closeAfter);
            return;
        case Behaviour::ResetMidBody: {
            const QByteArray body = LoopbackTranslationServer::echoBody("reset");
            socket->write(head(200, json, body.size(), answer) + body.left(body.size() / 2));
            socket->waitForBytesWritten(1000);
            // A zero linger time makes the close a reset (RST) rather than an orderly end.
            const linger resetOnClose{1, 0};
            ::setsockopt(int(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &resetOnClose,
                         sizeof resetOnClose);
            socket->abort();
            return;
        }
        case Behaviour::RedirectLoop:
            send(head(302, "text/plain", 0, answer,
                      "http://127.0.0.1:" + QByteArray::number(m_port) + request.target()));
            return;
        case Behaviour::Silent:
            return;
        }
    }

    LoopbackServerState &m_state;
    QTcpServer *m_server = nullptr;
    quint16 m_port = 0;
};

QByteArray RecordedRequest::target() const
{
    const QList<QByteArray> parts = requestLine.split(' ');
    return parts.size() == 3 ? parts.at(1) : QByteArray();
}

QString RecordedRequest::queryText() const
{
    const QUrlQuery query(QUrl(QString::fromLatin1(target())).query());
    return query.queryItemValue(QStringLiteral("q"), QUrl::FullyDecoded).replace('+', ' ');
}

QByteArray RecordedRequest::headerValue(const QByteArray &name) const
{
    for (const auto &[headerName, value] : headers) {
        if (headerName.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return QByteArray();
}

LoopbackTranslationServer::LoopbackTranslationServer()
    : m_state(std::make_unique<LoopbackServerState>()), m_thread(std::make_unique<QThread>())
{
    m_thread->setObjectName(QStringLiteral("LoopbackTranslationServer"));
    m_thread->start();
    m_worker = new LoopbackServerWorker(*m_state);
    m_worker->moveToThread(m_thread.get());
    QMetaObject::invokeMethod(
        m_worker, [this] { m_port = m_worker->listen(); }, Qt::BlockingQueuedConnection);
}

LoopbackTranslationServer::~LoopbackTranslationServer()
{
    QMetaObject::invokeMethod(
        m_worker, [this] { delete m_worker; }, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
}

bool LoopbackTranslationServer::isListening() const
{
    return m_port != 0;
}

QString LoopbackTranslationServer::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_port);
}

void LoopbackTranslationServer::setDefaultAnswer(const Answer &answer)
{
    QMutexLocker locker(&m_state->mutex);
    m_state->defaultAnswer = answer;
}

void LoopbackTranslationServer::enqueueAnswer(const Answer &answer)
{
    QMutexLocker locker(&m_state->mutex);
    m_state->scripted.enqueue(answer);
}

QList<RecordedRequest> LoopbackTranslationServer::requests() const
{
    QMutexLocker locker(&m_state->mutex);
    return m_state->requests;
}

int LoopbackTranslationServer::requestCount() const
{
    return int(requests().size());
}

void LoopbackTranslationServer::clearRequests()
{
    QMutexLocker locker(&m_state->mutex);
    m_state->requests.clear();
}

void LoopbackTranslationServer::setRequestObserver(
    std::function<void(const RecordedRequest &)> observer)
{
    QMutexLocker locker(&m_state->mutex);
    m_state->observer = std::move(observer);
}

Answer LoopbackTranslationServer::Answer::htmlPage(int status)
{
    return withStatus(status,
                      "<html><head><title>Sorry...</title></head><body><div>We're sorry... but "
                      "your computer or network may be sending automated queries.</div></body>"
                      "</html>",
                      "text/html; charset=UTF-8");
}

QString LoopbackTranslationServer::echoTranslation(const QString &text)
{
    return QStringLiteral("translation of ") + text;
}

QByteArray LoopbackTranslationServer::echoBody(const QByteArray &encodedQueryValue)
{
    QByteArray plus = encodedQueryValue;
    plus.replace('+', ' ');
    const QString text = QString::fromUtf8(QByteArray::fromPercentEncoding(plus));
    const QJsonArray row{echoTranslation(text), text, QJsonValue::Null, QJsonValue::Null, 10};
    const QJsonArray top{QJsonArray{row}, QJsonValue::Null, QStringLiteral("en")};
    return QJsonDocument(top).toJson(QJsonDocument::Compact);
}

QByteArray LoopbackTranslationServer::echoBodyFor(const QByteArray &target)
{
    const QList<QByteArray> pairs = target.mid(target.indexOf('?') + 1).split('&');
    const auto query = std::find_if(pairs.cbegin(), pairs.cend(),
                                    [](const QByteArray &pair) { return pair.startsWith("q="); });
    return echoBody(query == pairs.cend() ? QByteArray() : query->mid(2));
}
