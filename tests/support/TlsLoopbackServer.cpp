#include "TlsLoopbackServer.h"

#include "LoopbackTranslationServer.h"

#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QSslSocket>

#include <memory>

namespace {

const QString kNewKey =
    QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 ");

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

TestCertificates::TestCertificates()
{
    if (!m_dir.isValid())
        m_error = QStringLiteral("no temporary directory: ") + m_dir.errorString();
    else if (openssl(kNewKey + QStringLiteral("-keyout %D/ca.key -out %D/ca.pem "
                                              "-subj /CN=Tolkaro-test-authority")))
        m_authority = QSslCertificate(readFile(m_dir.filePath(QStringLiteral("ca.pem"))));
    if (isValid() && m_authority.isNull())
        m_error = QStringLiteral("openssl wrote no readable authority certificate");
}

TlsIdentity TestCertificates::make(Kind kind)
{
    const QString name = QStringLiteral("%D/leaf%1").arg(++m_made);
    if (!isValid() ||
        !openssl(kNewKey +
                 (kind == Kind::Trusted ? QStringLiteral("-CA %D/ca.pem -CAkey %D/ca.key ")
                                        : QString()) +
                 QStringLiteral("-keyout %1.key -out %1.pem -subj /CN=127.0.0.1 -addext "
                                "subjectAltName=IP:127.0.0.1 -addext "
                                "basicConstraints=critical,CA:FALSE")
                     .arg(name)))
        return TlsIdentity();
    const QString path = QString(name).replace(QStringLiteral("%D"), m_dir.path());
    TlsIdentity identity{QSslCertificate(readFile(path + QStringLiteral(".pem"))),
                         QSslKey(readFile(path + QStringLiteral(".key")), QSsl::Ec)};
    if (identity.isNull())
        m_error = QStringLiteral("openssl wrote no readable certificate or key for ") + path;
    return identity;
}

bool TestCertificates::openssl(const QString &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"),
                  QString(arguments).replace(QStringLiteral("%D"), m_dir.path()).split(u' '));
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        m_error =
            QStringLiteral("openssl %1 failed: %2 %3")
                .arg(arguments, process.errorString(), QString::fromLocal8Bit(process.readAll()));
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
