#include "TlsLoopbackServer.h"

#include "LoopbackTranslationServer.h"

#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QSslSocket>

#include <memory>

namespace {

const QStringList kEcKey{QStringLiteral("-newkey"), QStringLiteral("ec"),
                         QStringLiteral("-pkeyopt"), QStringLiteral("ec_paramgen_curve:prime256v1"),
                         QStringLiteral("-nodes")};

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TestCertificates::TestCertificates()
{
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary directory: ") + m_dir.errorString();
        return;
    }
    if (!openssl(QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + kEcKey +
                 QStringList{QStringLiteral("-keyout"), m_dir.filePath(QStringLiteral("ca.key")),
                             QStringLiteral("-out"), m_dir.filePath(QStringLiteral("ca.pem")),
                             QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                             QStringLiteral("/CN=Tolkaro test authority")}))
        return;
    m_authority = QSslCertificate(readFile(m_dir.filePath(QStringLiteral("ca.pem"))));
    if (m_authority.isNull())
        m_error = QStringLiteral("openssl wrote no readable authority certificate");
}

TlsIdentity TestCertificates::make(Kind kind)
{
    if (!isValid())
        return TlsIdentity();
    const QString name = QStringLiteral("leaf%1").arg(++m_made);
    const QString key = m_dir.filePath(name + QStringLiteral(".key"));
    const QString certificate = m_dir.filePath(name + QStringLiteral(".pem"));
    const QString extensions = m_dir.filePath(name + QStringLiteral(".ext"));

    {
        QFile file(extensions);
        if (!file.open(QIODevice::WriteOnly)) {
            m_error = QStringLiteral("cannot write ") + extensions;
            return TlsIdentity();
        }
        file.write(kind == Kind::OtherHostName ? "subjectAltName=DNS:translate.example\n"
                                               : "subjectAltName=IP:127.0.0.1\n");
    }

    bool made = false;
    if (kind == Kind::SelfSigned) {
        made = openssl(QStringList{QStringLiteral("req"), QStringLiteral("-x509")} + kEcKey +
                       QStringList{QStringLiteral("-keyout"), key, QStringLiteral("-out"),
                                   certificate, QStringLiteral("-days"), QStringLiteral("2"),
                                   QStringLiteral("-subj"), QStringLiteral("/CN=127.0.0.1"),
                                   QStringLiteral("-addext"),
                                   QStringLiteral("subjectAltName=IP:127.0.0.1")});
    } else {
        const QString request = m_dir.filePath(name + QStringLiteral(".csr"));
        // Qt accepts a matching common name even beside alternative names, so the other
        // host's certificate names it in both places.
        const QString commonName = kind == Kind::OtherHostName
                                       ? QStringLiteral("/CN=translate.example")
                                       : QStringLiteral("/CN=127.0.0.1");
        // A negative validity puts the end before the start: expired from the first second.
        const QString days = kind == Kind::Expired ? QStringLiteral("-1") : QStringLiteral("2");
        made = openssl(QStringList{QStringLiteral("req"), QStringLiteral("-new")} + kEcKey +
                       QStringList{QStringLiteral("-keyout"), key, QStringLiteral("-out"), request,
                                   QStringLiteral("-subj"), commonName}) &&
               openssl({QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"),
                        request, QStringLiteral("-CA"), m_dir.filePath(QStringLiteral("ca.pem")),
                        QStringLiteral("-CAkey"), m_dir.filePath(QStringLiteral("ca.key")),
                        QStringLiteral("-set_serial"), QString::number(1000 + m_made),
                        QStringLiteral("-days"), days, QStringLiteral("-extfile"), extensions,
                        QStringLiteral("-out"), certificate});
    }
    if (!made)
        return TlsIdentity();

    TlsIdentity identity{QSslCertificate(readFile(certificate)), QSslKey(readFile(key), QSsl::Ec)};
    if (identity.isNull())
        m_error = QStringLiteral("openssl wrote no readable certificate or key for ") + name;
    return identity;
}

bool TestCertificates::openssl(const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"), arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        m_error = QStringLiteral("openssl %1 failed: %2 %3")
                      .arg(arguments.join(QLatin1Char(' ')), process.errorString(),
                           QString::fromLocal8Bit(process.readAll()));
        return false;
    }
    return true;
}

TlsLoopbackServer::TlsLoopbackServer(const TlsIdentity &identity) : m_identity(identity)
{
    listen(QHostAddress::LocalHost);
}

QString TlsLoopbackServer::baseUrl() const
{
    return QStringLiteral("https://127.0.0.1:%1").arg(serverPort());
}

void TlsLoopbackServer::incomingConnection(qintptr socketDescriptor)
{
    auto *socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(socketDescriptor)) {
        delete socket;
        return;
    }
    ++m_connections;
    socket->setLocalCertificate(m_identity.certificate);
    socket->setPrivateKey(m_identity.privateKey);
    socket->setPeerVerifyMode(QSslSocket::VerifyNone);
    connect(socket, &QSslSocket::encrypted, this, [this] { ++m_handshakes; });
    connect(socket, &QSslSocket::disconnected, socket, &QObject::deleteLater);
    // A client that refuses the certificate ends the handshake with an alert.
    connect(socket, &QSslSocket::errorOccurred, socket, [socket] { socket->abort(); });
    auto buffered = std::make_shared<QByteArray>();
    connect(socket, &QSslSocket::readyRead, socket, [this, socket, buffered] {
        QByteArray &buffer = *buffered;
        buffer += socket->readAll();
        const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
        if (headEnd < 0)
            return;
        ++m_requests;
        // "GET /translate_a/single?...&q=<text> HTTP/1.1"
        const QByteArray body = LoopbackTranslationServer::echoBodyFor(
            buffer.left(buffer.indexOf("\r\n")).split(' ').value(1));
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/json; charset=UTF-8\r\n"
                      "Content-Length: " +
                      QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
        socket->disconnectFromHost();
    });
    socket->startServerEncryption();
}
