// The time from the translate call (the gesture's second Control press) to the translation
// in hand, over HTTPS with 50 ms added to every round trip: on a cold connection, and on one
// that prepare() opened 300 ms before (the gesture's first tap comes 0.1-0.4 s ahead of the
// request). Prints numbers; asserts nothing.
//
// Usage: tolkaro-bench-warm-connection [ROUNDS]

#include "TlsLoopbackServer.h"

#include "common/Log.h"
#include "translation/GoogleTranslateByURL.h"

#include "Percentiles.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cstdio>
#include <vector>

namespace {

// Half of the added round-trip time, spent on every chunk in each direction.
constexpr int kOneWayDelayMs = 25;
constexpr int kFirstTapAheadMs = 300;

// A TCP relay on loopback that holds every chunk for kOneWayDelayMs before passing it on,
// so that each round trip between client and server takes 50 ms more.
class DelayingRelay : public QTcpServer
{
public:
    explicit DelayingRelay(quint16 serverPort) : m_serverPort(serverPort)
    {
        listen(QHostAddress::LocalHost);
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *client = new QTcpSocket(this);
        client->setSocketDescriptor(descriptor);
        auto *server = new QTcpSocket(this);
        server->connectToHost(QHostAddress::LocalHost, m_serverPort);
        // The TCP handshake's round trip happens on loopback here; the client's first bytes
        // wait for it instead.
        client->setProperty("firstChunk", true);
        relay(client, server);
        relay(server, client);
    }

private:
    static void relay(QTcpSocket *from, QTcpSocket *to)
    {
        QObject::connect(from, &QTcpSocket::readyRead, to, [from, to] {
            const QByteArray bytes = from->readAll();
            const bool first = from->property("firstChunk").toBool();
            from->setProperty("firstChunk", false);
            QTimer::singleShot(kOneWayDelayMs * (first ? 3 : 1), to,
                               [to, bytes] { to->write(bytes); });
        });
        QObject::connect(from, &QTcpSocket::disconnected, to, [to] {
            QTimer::singleShot(kOneWayDelayMs, to, [to] { to->disconnectFromHost(); });
        });
    }

    quint16 m_serverPort;
};

// Milliseconds from translateText() to the completion.
double timeOneTranslation(const QString &baseUrl, bool warm)
{
    GoogleTranslateByURL client(baseUrl);
    if (warm) {
        client.prepare();
        QElapsedTimer ahead;
        ahead.start();
        while (ahead.elapsed() < kFirstTapAheadMs)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    bool done = false;
    bool success = false;
    QElapsedTimer timer;
    timer.start();
    client.translateText(QStringLiteral("Hello"), QStringLiteral("de"),
                         [&](bool ok, const QString &, const QString &, const QString &) {
                             success = ok;
                             done = true;
                         });
    while (!done)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    const double elapsed = double(timer.nsecsElapsed()) / 1e6;
    return success ? elapsed : -1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const int rounds = argc > 1 ? qMax(1, atoi(argv[1])) : 15;
    tolkaro::setLogSink([](const QString &) {});

    TestCertificates certificates;
    const TlsIdentity identity = certificates.make(TestCertificates::Kind::Trusted);
    if (identity.isNull()) {
        std::fprintf(stderr, "no certificate: %s\n", qPrintable(certificates.errorString()));
        return 1;
    }
    QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
    trusting.addCaCertificate(certificates.authority());
    QSslConfiguration::setDefaultConfiguration(trusting);

    TlsLoopbackServer server(identity);
    DelayingRelay relay(server.serverPort());
    const QString baseUrl = QStringLiteral("https://127.0.0.1:%1").arg(relay.serverPort());

    std::vector<double> cold;
    std::vector<double> warm;
    for (int round = 0; round < rounds; ++round) {
        cold.push_back(timeOneTranslation(baseUrl, false));
        warm.push_back(timeOneTranslation(baseUrl, true));
        if (cold.back() < 0 || warm.back() < 0) {
            std::fprintf(stderr, "a translation failed\n");
            return 1;
        }
    }
    const Percentiles coldTimes = percentiles(cold);
    const Percentiles warmTimes = percentiles(warm);
    std::printf("translate call to translation, HTTPS, +%d ms per round trip, %d rounds\n",
                2 * kOneWayDelayMs, rounds);
    std::printf("  cold connection: median %.1f ms, p95 %.1f ms\n", coldTimes.median,
                coldTimes.p95);
    std::printf("  warm connection (prepare() %d ms ahead): median %.1f ms, p95 %.1f ms\n",
                kFirstTapAheadMs, warmTimes.median, warmTimes.p95);
    std::printf("  saved: %.1f ms, %.1f round trips\n", coldTimes.median - warmTimes.median,
                (coldTimes.median - warmTimes.median) / (2 * kOneWayDelayMs));
    return 0;
}
