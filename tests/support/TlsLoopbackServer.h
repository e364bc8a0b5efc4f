#pragma once

#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QTcpServer>
#include <QTemporaryDir>

// A certificate and its private key, as a TLS server presents them.
struct TlsIdentity
{
    QSslCertificate certificate;
    QSslKey privateKey;
    bool isNull() const { return certificate.isNull() || privateKey.isNull(); }
};

// Certificates made for one test run with the openssl command: a private authority, and
// leaf certificates for 127.0.0.1 that it signs or that sign themselves. Nothing here is
// trusted until a test adds authority() to the trusted certificates.
class TestCertificates
{
public:
    enum class Kind
    {
        Trusted,    // signed by the authority
        SelfSigned, // signed by nobody the client knows
    };

    TestCertificates();
    bool isValid() const { return m_error.isEmpty(); }
    QString errorString() const { return m_error; }
    QSslCertificate authority() const { return m_authority; }

    // A null identity when openssl failed; errorString() says why.
    TlsIdentity make(Kind kind);

private:
    // Runs openssl with the arguments (split at spaces; "%D" the directory's path).
    bool openssl(const QString &arguments);

    QTemporaryDir m_dir;
    QSslCertificate m_authority;
    QString m_error;
    int m_made = 0;
};

// HTTPS on 127.0.0.1 (a free port): every request read over TLS gets the loopback
// server's echo answer, then the connection is closed. Lives on the thread that creates
// it, which must run its event loop (QTRY_* does).
class TlsLoopbackServer : public QTcpServer
{
public:
    explicit TlsLoopbackServer(const TlsIdentity &identity);

    // "https://127.0.0.1:<port>", the client's base URL.
    QString baseUrl() const;
    // Presented by connections accepted from now on.
    void setIdentity(const TlsIdentity &identity) { m_identity = identity; }

    int connectionCount() const { return m_connections; }
    int handshakeCount() const { return m_handshakes; } // connections that became encrypted
    int requestCount() const { return m_requests; }     // requests read over TLS

protected:
    void incomingConnection(qintptr socketDescriptor) override;

private:
    TlsIdentity m_identity;
    int m_connections = 0;
    int m_handshakes = 0;
    int m_requests = 0;
};
