// The translation client against endpoints that misbehave on purpose, all real servers on
// loopback: each request must end with its one failure text (or, for a huge but proper
// answer, the translation), and the same client must then translate a good request.

#include "LargeTranslationAnswer.h"
#include "LoopbackTranslationServer.h"
#include "TlsLoopbackServer.h"
#include "TranslationOutcome.h"

#include "common/Log.h"
#include "translation/GoogleTranslateByURL.h"

#include <QMutex>
#include <QMutexLocker>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTest>

#include <memory>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;

Q_DECLARE_METATYPE(LoopbackTranslationServer::Answer)
Q_DECLARE_METATYPE(TestCertificates::Kind)

namespace {

// Every request ends by itself within the 4 s bound; twice that only guards against a hang.
constexpr int kHangGuardMs = 8000;

using TranslationFailure::kNoData;
using TranslationFailure::kNotUtf8;
using TranslationFailure::kUnable;

// An HTTP "deflate" body (a zlib stream): qCompress() without its four-byte length.
Answer deflated(const QByteArray &body)
{
    Answer answer = Answer::well(qCompress(body, 9).mid(4));
    answer.extraHeaders = {{"Content-Encoding", "deflate"}};
    return answer;
}

QByteArray tenMegabytes(const QByteArray &unit)
{
    return unit.repeated(10 * 1024 * 1024 / unit.size() + 1);
}

} // namespace

class TestHostileEndpoints : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void httpEndpointEndsAndClientStaysUsable_data();
    void httpEndpointEndsAndClientStaysUsable();
    void untrustedCertificateIsRefused_data();
    void untrustedCertificateIsRefused();

private:
    // The last log line, cut short: the client logs whole answers, here 10 MB long.
    QString lastLogLine();
    // A good request on the same client, after whatever came before.
    void requireUsable(GoogleTranslateByURL &client);

    std::unique_ptr<TestCertificates> m_certificates;
    QSslConfiguration m_savedSslConfiguration;
    QMutex m_logMutex;
    QString m_lastLogLine;
};

void TestHostileEndpoints::initTestCase()
{
    QVERIFY2(QSslSocket::supportsSsl(), "Qt has no TLS backend");
    m_certificates = std::make_unique<TestCertificates>();
    QVERIFY2(m_certificates->isValid(), qPrintable(m_certificates->errorString()));

    // The test's own authority is trusted, so a certificate it signed for 127.0.0.1 is the
    // good case and every refusal below is about that one certificate.
    m_savedSslConfiguration = QSslConfiguration::defaultConfiguration();
    QSslConfiguration trusting = m_savedSslConfiguration;
    trusting.addCaCertificate(m_certificates->authority());
    QSslConfiguration::setDefaultConfiguration(trusting);
}

void TestHostileEndpoints::cleanupTestCase()
{
    QSslConfiguration::setDefaultConfiguration(m_savedSslConfiguration);
}

void TestHostileEndpoints::init()
{
    tolkaro::setLogSink([this](const QString &line) {
        QMutexLocker locker(&m_logMutex);
        m_lastLogLine = line.left(300);
    });
}

void TestHostileEndpoints::cleanup()
{
    tolkaro::setLogSink({});
}

QString TestHostileEndpoints::lastLogLine()
{
    QMutexLocker locker(&m_logMutex);
    return m_lastLogLine;
}

void TestHostileEndpoints::requireUsable(GoogleTranslateByURL &client)
{
    TranslationOutcome good;
    // A failed wait leaves the request in flight; it must end while good still exists.
    const auto cancelLeftover =
        qScopeGuard([&client] { client.cancelCurrentTranslationRequestIfAny(); });
    client.translateText(QStringLiteral("good morning"), QStringLiteral("de"), good.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(good.calls, 1, kHangGuardMs);
    QVERIFY2(good.success, qPrintable(good.error));
    QCOMPARE(good.text, LoopbackTranslationServer::echoTranslation(QStringLiteral("good morning")));
    QCOMPARE(good.guessed, QStringLiteral("en"));
}

void TestHostileEndpoints::httpEndpointEndsAndClientStaysUsable_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("translation");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("lastLog"); // a regular expression for the whole (cut) line

    const QString unableLog =
        QStringLiteral(R"((?s)parseGoogleJSONResponseIntoReadableString returned nil\. .*)");

    const QString noAnswerLog = QStringLiteral(R"(data is nil :\(\. Response: .*)");
    const LargeTranslationAnswer large = makeLargeTranslationAnswer(10 * 1024 * 1024);
    QTest::newRow("10 MB answer of sentence rows")
        << Answer::well(large.body) << true << large.translation << QString()
        << QStringLiteral("Guessed source language: en");
    QTest::newRow("10 MB HTML page")
        << Answer::well("<!DOCTYPE html><html><body>\n" +
                        tenMegabytes("<p>Our systems have detected unusual traffic.</p>\n"))
        << false << QString() << kUnable << unableLog;
    QTest::newRow("10 MB of unclosed arrays")
        << Answer::well(tenMegabytes("[")) << false << QString() << kUnable << unableLog;
    QTest::newRow("10 MB answer whose last byte is not UTF-8")
        << Answer::well(large.body + "\xFF") << false << QString() << kNotUtf8
        << QStringLiteral(R"(responseDataString is nil)");
    QTest::newRow("connection reset mid-body")
        << Answer::of(Behaviour::ResetMidBody) << false << QString() << kNoData << noAnswerLog;
    QTest::newRow("redirect loop")
        << Answer::of(Behaviour::RedirectLoop) << false << QString() << kNoData
        << QStringLiteral(R"(data is nil :\(\. Response: .*, error: (?i).*redirect.*)");
    QTest::newRow("deflated answer")
        << deflated(LoopbackTranslationServer::echoBody("Hello")) << true
        << LoopbackTranslationServer::echoTranslation(QStringLiteral("Hello")) << QString()
        << QStringLiteral("Guessed source language: en");
    // Qt stops inflating past 10 MB at this ratio, and reports a body it cannot inflate as
    // UnknownContentError beside status 200: no answer arrived.
    QTest::newRow("16 MB of spaces deflated into 16 KB")
        << deflated(QByteArray(16 * 1024 * 1024, ' ')) << false << QString() << kNoData
        << noAnswerLog;
    Answer notGzip = Answer::well(LoopbackTranslationServer::echoBody("Hello"));
    notGzip.extraHeaders = {{"Content-Encoding", "gzip"}};
    QTest::newRow("gzip announced, plain answer sent")
        << notGzip << false << QString() << kNoData << noAnswerLog;
    QTest::newRow("request read, never answered")
        << Answer::of(Behaviour::Silent) << false << QString() << kNoData
        << QStringLiteral(
               R"(data is nil :\(\. Response: \(null\), error: The request timed out\.)");
}

void TestHostileEndpoints::httpEndpointEndsAndClientStaysUsable()
{
    QFETCH(Answer, answer);
    QFETCH(bool, success);
    QFETCH(QString, translation);
    QFETCH(QString, error);
    QFETCH(QString, lastLog);

    LoopbackTranslationServer server;
    QVERIFY(server.isListening());
    // The default answer, so that a redirect comes back to it.
    server.setDefaultAnswer(answer);

    TranslationOutcome hostile; // outlives the client, which ends a request left in flight
    GoogleTranslateByURL client(server.baseUrl());
    client.translateText(QStringLiteral("Hello"), QStringLiteral("de"), hostile.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(hostile.calls, 1, kHangGuardMs);

    QCOMPARE(hostile.success, success);
    QCOMPARE(hostile.error, error);
    QCOMPARE(hostile.text.size(), translation.size());
    QVERIFY(hostile.text == translation); // QCOMPARE would print 10 MB on a mismatch
    if (success)
        QCOMPARE(hostile.guessed, QStringLiteral("en"));
    else
        QVERIFY(hostile.guessed.isNull());
    const QString logged = lastLogLine();
    QVERIFY2(
        QRegularExpression(QRegularExpression::anchoredPattern(lastLog)).match(logged).hasMatch(),
        qPrintable(logged));

    server.setDefaultAnswer(Answer::echo());
    requireUsable(client);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(hostile.calls, 1);
}

void TestHostileEndpoints::untrustedCertificateIsRefused_data()
{
    QTest::addColumn<TestCertificates::Kind>("kind");

    QTest::newRow("self-signed") << TestCertificates::Kind::SelfSigned;
    QTest::newRow("for another host name") << TestCertificates::Kind::OtherHostName;
    QTest::newRow("expired") << TestCertificates::Kind::Expired;
}

void TestHostileEndpoints::untrustedCertificateIsRefused()
{
    QFETCH(TestCertificates::Kind, kind);
    const TlsIdentity untrusted = m_certificates->make(kind);
    QVERIFY2(!untrusted.isNull(), qPrintable(m_certificates->errorString()));
    const TlsIdentity trusted = m_certificates->make(TestCertificates::Kind::Trusted);
    QVERIFY2(!trusted.isNull(), qPrintable(m_certificates->errorString()));

    TlsLoopbackServer server(untrusted);
    QVERIFY(server.isListening());
    TranslationOutcome refused; // outlives the client, which ends a request left in flight
    GoogleTranslateByURL client(server.baseUrl());
    client.translateText(QStringLiteral("secret text"), QStringLiteral("de"), refused.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(refused.calls, 1, kHangGuardMs);

    QCOMPARE(refused.success, false);
    QCOMPARE(refused.error, kNoData);
    QCOMPARE(refused.text, QString());
    QVERIFY(refused.guessed.isNull());
    QVERIFY2(lastLogLine().startsWith(QStringLiteral("data is nil :(. Response: (null), error: ")),
             qPrintable(lastLogLine()));
    // The connection was made, and the text never went over it.
    QCOMPARE(server.connectionCount(), 1);
    QCOMPARE(server.requestCount(), 0);

    // The same endpoint with a certificate the client trusts: the refusal was about the
    // certificate alone, and the client goes on working.
    server.setIdentity(trusted);
    requireUsable(client);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(server.requestCount(), 1);
    QCOMPARE(refused.calls, 1);
}

QTEST_GUILESS_MAIN(TestHostileEndpoints)
#include "tst_hostile_endpoints.moc"
