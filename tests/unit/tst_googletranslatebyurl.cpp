#include "LoopbackTranslationServer.h"
#include "TranslationOutcome.h"

#include "common/Log.h"
#include "translation/GoogleTranslateByURL.h"

#include <QMutex>
#include <QMutexLocker>
#include <QRegularExpression>
#include <QTest>

#include <memory>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;

Q_DECLARE_METATYPE(LoopbackTranslationServer::Answer)

namespace {

constexpr int kWaitMs = 15000;
using TranslationFailure::kNoData;
using TranslationFailure::kNotUtf8;
using TranslationFailure::kUnable;
const QByteArray kUserAgent =
    "Mozilla/5.0 (iPhone; CPU iPhone OS 6_0 like Mac OS X) AppleWebKit/536.26 (KHTML, like "
    "Gecko) Version/6.0 Mobile/10A5376e Safari/8536.25";

// Whether line matches pattern, in which each "*" stands for any run of characters.
bool matchesPattern(const QString &line, const QString &pattern)
{
    QStringList parts = pattern.split(QLatin1Char('*'));
    for (QString &part : parts)
        part = QRegularExpression::escape(part);
    return QRegularExpression(QRegularExpression::anchoredPattern(parts.join(QStringLiteral(".*"))),
                              QRegularExpression::DotMatchesEverythingOption)
        .match(line)
        .hasMatch();
}

} // namespace

class TestGoogleTranslateByURL : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void sendsExactRequestLine_data();
    void sendsExactRequestLine();
    void sendsOnlyTransportHeadersBesideUserAgent();
    void endsEachAnswerWithOneOutcome_data();
    void endsEachAnswerWithOneOutcome();
    void refusedConnectionGivesNoData();
    void failsAtOnceWhenNoUrlCanBeFormed_data();
    void failsAtOnceWhenNoUrlCanBeFormed();
    void newRequestCancelsTheOneInFlight();
    void cancelAndDestructionEndTheRequest();
    void completionMayStartTheNextRequest();

private:
    QStringList takeLog();

    std::unique_ptr<LoopbackTranslationServer> m_server;
    QMutex m_logMutex;
    QStringList m_log;
};

void TestGoogleTranslateByURL::initTestCase()
{
    // A proxy from the surroundings must not stand between the client and the loopback
    // server.
    for (const char *proxy :
         {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"})
        qunsetenv(proxy);
    // The client's log lines word for word, with the texts the user asks for.
    tolkaro::setVerbose(true);
}

void TestGoogleTranslateByURL::init()
{
    m_server = std::make_unique<LoopbackTranslationServer>();
    QVERIFY(m_server->isListening());
    {
        QMutexLocker locker(&m_logMutex);
        m_log.clear();
    }
    tolkaro::setLogSink([this](const QString &line) {
        QMutexLocker locker(&m_logMutex);
        m_log.append(line);
    });
}

void TestGoogleTranslateByURL::cleanup()
{
    tolkaro::setLogSink({});
    m_server.reset();
}

QStringList TestGoogleTranslateByURL::takeLog()
{
    QMutexLocker locker(&m_logMutex);
    return std::exchange(m_log, {});
}

void TestGoogleTranslateByURL::sendsExactRequestLine_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("query");

    QTest::newRow("ampersand and plus")
        << QStringLiteral("Hello & good+bye") << QStringLiteral("de")
        << QByteArray("client=gtx&sl=auto&tl=de&dt=t&q=Hello+%26+good%2Bbye");
    QTest::newRow("empty text sends an empty q")
        << QString() << QStringLiteral("fr") << QByteArray("client=gtx&sl=auto&tl=fr&dt=t&q=");
    QTest::newRow("non-ASCII letters")
        << QStringLiteral("Stra\u00dfe \u65e5\u672c") << QStringLiteral("en")
        << QByteArray("client=gtx&sl=auto&tl=en&dt=t&q=Stra%C3%9Fe+%E6%97%A5%E6%9C%AC");
}

void TestGoogleTranslateByURL::sendsExactRequestLine()
{
    QFETCH(QString, text);
    QFETCH(QString, target);
    QFETCH(QByteArray, query);

    GoogleTranslateByURL client(m_server->baseUrl());
    TranslationOutcome outcome;
    client.translateText(text, target, outcome.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);

    QCOMPARE(m_server->requestCount(), 1);
    QCOMPARE(m_server->requests().constFirst().requestLine,
             "GET /translate_a/single?" + query + " HTTP/1.1");
    QVERIFY2(outcome.success, qPrintable(outcome.error));
    QCOMPARE(outcome.text,
             LoopbackTranslationServer::echoTranslation(text.isNull() ? QStringLiteral("") : text));
}

void TestGoogleTranslateByURL::sendsOnlyTransportHeadersBesideUserAgent()
{
    // The first answer tries to set a cookie; the second request must not carry it.
    Answer withCookie = Answer::echo();
    withCookie.extraHeaders = {{"Set-Cookie", "NID=tracking; Path=/"}};
    m_server->enqueueAnswer(withCookie);

    GoogleTranslateByURL client(m_server->baseUrl());
    for (int i = 0; i < 2; ++i) {
        TranslationOutcome outcome;
        client.translateText(QStringLiteral("Hi"), QStringLiteral("de"), outcome.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);
        QVERIFY(outcome.success);
    }

    const QList<LoopbackTranslationServer::RecordedRequest> requests = m_server->requests();
    QCOMPARE(requests.size(), 2);
    for (const auto &request : requests) {
        QList<QByteArray> names = request.headerNames();
        for (QByteArray &name : names)
            name = name.toLower();
        std::sort(names.begin(), names.end());
        // Host, Connection, Accept-Encoding and Accept-Language are added by Qt's HTTP
        // stack and cannot be left out; anything beyond them is a regression.
        const QList<QByteArray> expected{"accept-encoding", "accept-language", "connection", "host",
                                         "user-agent"};
        QCOMPARE(names, expected);
        QCOMPARE(request.headerValue("User-Agent"), kUserAgent);
    }
}

void TestGoogleTranslateByURL::endsEachAnswerWithOneOutcome_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("guessed");
    QTest::addColumn<QString>("error");
    // The last log line; "*" stands for any run of characters. A reset, a redirect loop and
    // an endpoint that never answers are the hostile endpoints test's.
    QTest::addColumn<QString>("lastLog");

    const QString unableLog = QStringLiteral(
        "parseGoogleJSONResponseIntoReadableString returned nil. Looks like this is a malformed "
        "JSON or not JSON at all? Here's the printout of the responseDataString that we tried to "
        "parse: *");

    QTest::newRow("well, without a detected language")
        << Answer::well(R"([[["Hallo","Hello",null,null,10]]])") << true << QStringLiteral("Hallo")
        << QString() << QString() << QStringLiteral("[[[\"Hallo\",\"Hello\",null,null,10]]]");
    QTest::newRow("HTML page with status 403") << Answer::of(Behaviour::HtmlForbidden) << false
                                               << QString() << QString() << kUnable << unableLog;
    QTest::newRow("bytes that are not UTF-8")
        << Answer::of(Behaviour::NonUtf8) << false << QString() << QString() << kNotUtf8
        << QStringLiteral("responseDataString is nil");
    QTest::newRow("answer trickling forever ends at the 4 s bound")
        << Answer::of(Behaviour::TrickleForever) << false << QString() << QString() << kNoData
        << QStringLiteral("data is nil :(. Response: { URL: http://127.0.0.1:*/translate_a/single?"
                          "client=gtx&sl=auto&tl=de&dt=t&q=Hello+%26+good%2Bbye } { Status Code: "
                          "200 }, error: The request timed out.");
}

void TestGoogleTranslateByURL::endsEachAnswerWithOneOutcome()
{
    QFETCH(Answer, answer);
    QFETCH(bool, success);
    QFETCH(QString, text);
    QFETCH(QString, guessed);
    QFETCH(QString, error);
    QFETCH(QString, lastLog);

    m_server->setDefaultAnswer(answer);
    GoogleTranslateByURL client(m_server->baseUrl());
    TranslationOutcome outcome;
    client.translateText(QStringLiteral("Hello & good+bye"), QStringLiteral("de"),
                         outcome.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);

    QCOMPARE(outcome.success, success);
    QCOMPARE(outcome.text, text);
    QCOMPARE(outcome.guessed, guessed);
    QCOMPARE(outcome.guessed.isNull(), guessed.isNull());
    QCOMPARE(outcome.error, error);

    const QStringList log = takeLog();
    QVERIFY(!log.isEmpty());
    QVERIFY2(matchesPattern(log.constLast(), lastLog), qPrintable(log.constLast()));

    // Nothing else arrives for this request later.
    QTest::qWait(200);
    QCOMPARE(outcome.calls, 1);
}

void TestGoogleTranslateByURL::refusedConnectionGivesNoData()
{
    const QString deadUrl = m_server->baseUrl();
    m_server.reset(); // nothing listens on that port any more

    GoogleTranslateByURL client(deadUrl);
    TranslationOutcome outcome;
    client.translateText(QStringLiteral("Hello"), QStringLiteral("de"), outcome.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);
    QCOMPARE(outcome.success, false);
    QCOMPARE(outcome.error, kNoData);
    QVERIFY(outcome.guessed.isNull());
    const QStringList log = takeLog();
    QVERIFY2(matchesPattern(log.constLast(),
                            QStringLiteral("data is nil :(. Response: (null), error: *refused*")),
             qPrintable(log.constLast()));
}

void TestGoogleTranslateByURL::failsAtOnceWhenNoUrlCanBeFormed_data()
{
    QTest::addColumn<QString>("baseUrl");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("log");

    const QString noUrl = QStringLiteral("NSURL is nil. Malformed textToTranslate or targetLang?");
    const QString noUrlLog = QStringLiteral(
        "in method translateText: formed url is nil. Malformed textToTranslate or targetLang?");
    const QString noRequest = QStringLiteral("NSURLRequest is nil. We supplied malformed NSURL?");
    const QString noRequestLog = QStringLiteral("in method translateText: NSURLRequest is nil");

    QTest::newRow("space in the target code")
        << QString() << QStringLiteral("d e") << noUrl << noUrlLog;
    QTest::newRow("base without a scheme")
        << QStringLiteral("translate.example") << QStringLiteral("de") << noRequest << noRequestLog;
}

void TestGoogleTranslateByURL::failsAtOnceWhenNoUrlCanBeFormed()
{
    QFETCH(QString, baseUrl);
    QFETCH(QString, target);
    QFETCH(QString, error);
    QFETCH(QString, log);

    GoogleTranslateByURL client(baseUrl.isNull() ? m_server->baseUrl() : baseUrl);
    TranslationOutcome outcome;
    client.translateText(QStringLiteral("Hello"), target, outcome.recorder());
    // Called before translateText() returned.
    QCOMPARE(outcome.calls, 1);
    QCOMPARE(outcome.success, false);
    QCOMPARE(outcome.text, QString());
    QVERIFY(outcome.guessed.isNull());
    QCOMPARE(outcome.error, error);
    QCOMPARE(takeLog(),
             (QStringList{QStringLiteral("Translating \"Hello\" into %1").arg(target), log}));

    QTest::qWait(100);
    QCOMPARE(outcome.calls, 1);
    QCOMPARE(m_server->requestCount(), 0);
}

void TestGoogleTranslateByURL::newRequestCancelsTheOneInFlight()
{
    m_server->enqueueAnswer(Answer::of(Behaviour::Silent));
    GoogleTranslateByURL client(m_server->baseUrl());
    TranslationOutcome first;
    TranslationOutcome second;
    client.translateText(QStringLiteral("first"), QStringLiteral("de"), first.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 1, kWaitMs);

    client.translateText(QStringLiteral("second"), QStringLiteral("de"), second.recorder());
    QCOMPARE(first.calls, 1);
    QCOMPARE(first.success, false);
    QCOMPARE(first.error, kNoData);
    QVERIFY(first.guessed.isNull());

    QTRY_COMPARE_WITH_TIMEOUT(second.calls, 1, kWaitMs);
    QVERIFY(second.success);
    QCOMPARE(second.text, LoopbackTranslationServer::echoTranslation(QStringLiteral("second")));
    QCOMPARE(first.calls, 1);
}

void TestGoogleTranslateByURL::cancelAndDestructionEndTheRequest()
{
    m_server->setDefaultAnswer(Answer::of(Behaviour::Silent));
    auto client = std::make_unique<GoogleTranslateByURL>(m_server->baseUrl());
    TranslationOutcome cancelled;
    client->translateText(QStringLiteral("Hello"), QStringLiteral("de"), cancelled.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 1, kWaitMs);
    takeLog();

    client->cancelCurrentTranslationRequestIfAny();
    QCOMPARE(cancelled.calls, 1);
    QCOMPARE(cancelled.error, kNoData);
    QCOMPARE(takeLog(),
             QStringList{QStringLiteral("data is nil :(. Response: (null), error: cancelled")});
    // A second cancel, and the 4 s deadline of the cancelled request, change nothing.
    client->cancelCurrentTranslationRequestIfAny();
    QTest::qWait(4500);
    QCOMPARE(cancelled.calls, 1);

    TranslationOutcome destroyed;
    client->translateText(QStringLiteral("Hello"), QStringLiteral("de"), destroyed.recorder());
    QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 2, kWaitMs);
    client.reset();
    QCOMPARE(destroyed.calls, 1);
    QCOMPARE(destroyed.error, kNoData);
    QTest::qWait(200);
    QCOMPARE(destroyed.calls, 1);
}

void TestGoogleTranslateByURL::completionMayStartTheNextRequest()
{
    m_server->enqueueAnswer(Answer::of(Behaviour::Garbage));
    GoogleTranslateByURL client(m_server->baseUrl());
    TranslationOutcome retried;
    int firstCalls = 0;
    client.translateText(QStringLiteral("one"), QStringLiteral("de"),
                         [&](bool, const QString &, const QString &, const QString &) {
                             ++firstCalls;
                             client.translateText(QStringLiteral("two"), QStringLiteral("de"),
                                                  retried.recorder());
                         });
    QTRY_COMPARE_WITH_TIMEOUT(retried.calls, 1, kWaitMs);
    QCOMPARE(firstCalls, 1);
    QVERIFY(retried.success);
    QCOMPARE(retried.text, LoopbackTranslationServer::echoTranslation(QStringLiteral("two")));
}

QTEST_GUILESS_MAIN(TestGoogleTranslateByURL)
#include "tst_googletranslatebyurl.moc"
