// The translation services against real servers on loopback: Google's client byte for
// byte, the other engines against answers shaped from each service's documentation, the
// chain that falls back from one to the next, and endpoints that misbehave on purpose
// (each request ends with its one failure, and the same client then translates); last, the
// parse of Google's answer on its own.

#include "DataRows.h"

#include "LoopbackTranslationServer.h"
#include "TlsLoopbackServer.h"
#include "TranslationOutcome.h"

#include "common/Log.h"
#include "translation/GoogleTranslateByURL.h"
#include "translation/ServiceProtocols.h"
#include "translation/TranslationChain.h"
#include "translation/TranslationServices.h"

#include <QRegularExpression>
#include <QScopeGuard>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTest>

#include <memory>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;

Q_DECLARE_METATYPE(LoopbackTranslationServer::Answer)
Q_DECLARE_METATYPE(QList<LoopbackTranslationServer::Answer>)
Q_DECLARE_METATYPE(TranslationEnd)

namespace {

constexpr int kWaitMs = 15000;
using namespace TranslationFailure;
const QByteArray kUserAgent =
    "Mozilla/5.0 (iPhone; CPU iPhone OS 6_0 like Mac OS X) AppleWebKit/536.26 (KHTML, like "
    "Gecko) Version/6.0 Mobile/10A5376e Safari/8536.25";

const QString kAlternative = QString::fromLatin1(GoogleAlternativeProtocol::kServiceName);
const QString kDeepL = QString::fromLatin1(DeepLProtocol::kServiceName);
const QString kLibre = QString::fromLatin1(LibreTranslateProtocol::kServiceName);
const QString kApertium = QString::fromLatin1(ApertiumProtocol::kServiceName);

// Every service pointed at one loopback server, with a key and a URL each.
ServiceSettings settingsFor(const QString &baseUrl, const QStringList &order)
{
    ServiceSettings settings;
    settings.order = order;
    settings.googleUrl = settings.alternativeUrl = settings.deepLUrl = baseUrl;
    settings.libreTranslateURL = settings.apertiumURL = baseUrl;
    settings.deepLAPIKey = QStringLiteral("secret-key:fx");
    settings.libreTranslateAPIKey = QStringLiteral("libre-key");
    return settings;
}

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

const QString kNotJson = QStringLiteral(
    "parseGoogleJSONResponseIntoReadableString: couldn't parse the string into JSON. The string "
    "isn't real JSON? ");
const QString kTopNotArray = QStringLiteral("Top object is not NSArray");
const QString kFirstInnerNotArray =
    QStringLiteral("First Inner object is not NSArray or has 0 elements");
const QString kGuessedEn = QStringLiteral("Guessed source language: en");

// A null QString in a row stands for "no result" (nil).
const QString kNil;

} // namespace

class TestGoogleTranslateByURL : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // A proxy from the surroundings must not stand between the client and the loopback
        // server.
        for (const char *proxy :
             {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"})
            qunsetenv(proxy);
        // The client's log lines word for word, with the texts the user asks for.
        tolkaro::setVerbose(true);

        QVERIFY2(QSslSocket::supportsSsl(), "Qt has no TLS backend");
        m_certificates = std::make_unique<TestCertificates>();
        QVERIFY2(m_certificates->isValid(), qPrintable(m_certificates->errorString()));
        // The test's own authority is trusted, so a certificate it signed for 127.0.0.1 is the
        // good case and every refusal below is about that one certificate.
        QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
        trusting.addCaCertificate(m_certificates->authority());
        QSslConfiguration::setDefaultConfiguration(trusting);
    }

    void init()
    {
        m_server = std::make_unique<LoopbackTranslationServer>();
        QVERIFY(m_server->isListening());
        m_log.clear();
        // Whole answers are logged, here up to 10 MB long.
        tolkaro::setLogSink([this](const QString &line) { m_log.append(line.left(300)); });
    }

    void cleanup()
    {
        tolkaro::setLogSink({});
        m_server.reset();
    }

    void sendsExactRequestLine_data()
    {
        DataRows::addColumns<QString, QString, QByteArray>("text", "target", "query");

        QTest::newRow("empty text sends an empty q")
            << QString() << QStringLiteral("fr") << QByteArray("client=gtx&sl=auto&tl=fr&dt=t&q=");
        QTest::newRow("non-ASCII letters and a four-byte emoji")
            << QStringLiteral("Stra\u00dfe \u65e5\u672c\U0001F600") << QStringLiteral("en")
            << QByteArray(
                   "client=gtx&sl=auto&tl=en&dt=t&q=Stra%C3%9Fe+%E6%97%A5%E6%9C%AC%F0%9F%98%80");
        QTest::newRow("unreserved bytes kept, reserved and control characters encoded")
            << QStringLiteral("AZaz09-._~ #%?*'()!=/:;,@$&+\n\t") << QStringLiteral("de")
            << QByteArray(
                   "client=gtx&sl=auto&tl=de&dt=t&q=AZaz09-._~+%23%25%3F%2A%27%28%29%21%3D%2F%3A%"
                   "3B%2C%40%24%26%2B%0A%09");
        QTest::newRow("NUL ends the text")
            << QString::fromLatin1("ab\0cd", 5) << QStringLiteral("de")
            << QByteArray("client=gtx&sl=auto&tl=de&dt=t&q=ab");
    }

    void sendsExactRequestLine()
    {
        auto [text, target, query] =
            DataRows::fetch<QString, QString, QByteArray>("text", "target", "query");

        GoogleTranslateByURL client(m_server->baseUrl());
        TranslationOutcome outcome;
        client.translateText(text, target, outcome.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);

        QCOMPARE(m_server->requestCount(), 1);
        QCOMPARE(m_server->requests().constFirst().requestLine,
                 "GET /translate_a/single?" + query + " HTTP/1.1");
        QVERIFY2(outcome.success, qPrintable(outcome.error));
        QCOMPARE(outcome.text,
                 LoopbackTranslationServer::echoTranslation(text.split(QChar(0)).first()));
    }

    void sendsOnlyTransportHeadersBesideUserAgent()
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
            QList<QByteArray> names;
            for (const auto &[name, value] : request.headers)
                names << name.toLower();
            std::sort(names.begin(), names.end());
            // Host, Connection, Accept-Encoding and Accept-Language are added by Qt's HTTP
            // stack and cannot be left out; anything beyond them is a regression.
            const QList<QByteArray> expected{"accept-encoding", "accept-language", "connection",
                                             "host", "user-agent"};
            QCOMPARE(names, expected);
            QCOMPARE(request.headerValue("User-Agent"), kUserAgent);
        }
    }

    void endsEachAnswerWithOneOutcome_data()
    {
        // The last log line, cut to 300 characters; "*" stands for any run of characters.
        DataRows::addColumns<Answer, bool, QString, QString, QString>("answer", "success", "text",
                                                                      "error", "lastLog");

        const QString unableLog = QStringLiteral("parseGoogleJSONResponseIntoReadableString "
                                                 "returned nil. Looks like this is a malformed "
                                                 "JSON or not JSON at all? Here's the printout of "
                                                 "the responseDataString that we tried to "
                                                 "parse: *");

        const auto failed = [](const char *name, const Answer &answer, const QString &error,
                               const QString &lastLog) {
            QTest::newRow(name) << answer << false << QString() << error << lastLog;
        };

        QTest::newRow("well, without a detected language")
            << Answer::well(R"([[["Hallo","Hello",null,null,10]]])") << true << "Hallo" << QString()
            << "[[[\"Hallo\",\"Hello\",null,null,10]]]";
        failed("HTML page with status 403", Answer::htmlPage(403), kUnable, unableLog);
        failed("10 MB of unclosed arrays", Answer::well(QByteArray(10 * 1024 * 1024, '[')), kUnable,
               unableLog);
        failed("answer whose last byte is not UTF-8",
               Answer::well(R"([[["Hallo","Hello",null,null,10]]])"
                            "\xFF"),
               kNotUtf8, QStringLiteral("responseDataString is nil"));
        failed(
            "answer trickling forever ends at the 4 s bound", Answer::of(Behaviour::TrickleForever),
            kNoData,
            QStringLiteral("data is nil :(. Response: { URL: http://127.0.0.1:*/translate_a/single?"
                           "client=gtx&sl=auto&tl=de&dt=t&q=Hello+%26+good%2Bbye } { Status Code: "
                           "200 }, error: The request timed out."));
        failed("connection reset mid-body", Answer::of(Behaviour::ResetMidBody), kNoData,
               QStringLiteral("data is nil :(. Response: *"));
        failed("request read, never answered", Answer::of(Behaviour::Silent), kNoData,
               QStringLiteral("data is nil :(. Response: (null), error: The request timed out."));
    }

    void endsEachAnswerWithOneOutcome()
    {
        auto [answer, success, text, error, lastLog] =
            DataRows::fetch<Answer, bool, QString, QString, QString>("answer", "success", "text",
                                                                     "error", "lastLog");

        m_server->setDefaultAnswer(answer);
        GoogleTranslateByURL client(m_server->baseUrl());
        TranslationOutcome outcome;
        client.translateText(QStringLiteral("Hello & good+bye"), QStringLiteral("de"),
                             outcome.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);

        QCOMPARE(outcome.success, success);
        QCOMPARE(outcome.text.size(), text.size());
        QVERIFY(outcome.text == text); // QCOMPARE would print 10 MB on a mismatch
        // No answer here names the language it was translated from.
        QVERIFY(outcome.guessed.isNull());
        QCOMPARE(outcome.error, error);

        const QStringList log = takeLog();
        QVERIFY(!log.isEmpty());
        QVERIFY2(matchesPattern(log.constLast(), lastLog), qPrintable(log.constLast()));

        // The same client goes on working, and nothing else arrives for this request.
        m_server->setDefaultAnswer(Answer::echo());
        requireUsable(client);
        QCOMPARE(outcome.calls, 1);
    }

    void failsAtOnceWhenNoUrlCanBeFormed_data()
    {
        DataRows::addColumns<QString, QString, QString, QString>("baseUrl", "target", "error",
                                                                 "log");

        const QString noUrl =
            QStringLiteral("NSURL is nil. Malformed textToTranslate or targetLang?");
        const QString noUrlLog = QStringLiteral(
            "in method translateText: formed url is nil. Malformed textToTranslate or targetLang?");
        const QString noRequest =
            QStringLiteral("NSURLRequest is nil. We supplied malformed NSURL?");
        const QString noRequestLog = QStringLiteral("in method translateText: NSURLRequest is nil");

        QTest::newRow("space in the target code") << QString() << "d e" << noUrl << noUrlLog;
        QTest::newRow("base without a scheme") << "translate.example"
                                               << "de" << noRequest << noRequestLog;
    }

    void failsAtOnceWhenNoUrlCanBeFormed()
    {
        auto [baseUrl, target, error, log] = DataRows::fetch<QString, QString, QString, QString>(
            "baseUrl", "target", "error", "log");

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

    void requestInFlightEndsOnce_data()
    {
        QTest::addColumn<QString>("how"); // what ends the request before its answer arrives
        QTest::newRow("a new request") << "new request";
        QTest::newRow("cancel") << "cancel";
        QTest::newRow("the client's destruction") << "destruction";
    }

    void requestInFlightEndsOnce()
    {
        QFETCH(QString, how);
        m_server->enqueueAnswer(Answer::of(Behaviour::Silent));
        auto client = std::make_unique<GoogleTranslateByURL>(m_server->baseUrl());
        TranslationOutcome ended;
        TranslationOutcome next;
        client->translateText(QStringLiteral("first"), QStringLiteral("de"), ended.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 1, kWaitMs);
        takeLog();

        if (how == "new request")
            client->translateText(QStringLiteral("second"), QStringLiteral("de"), next.recorder());
        else if (how == "cancel")
            client->cancelCurrentTranslationRequestIfAny();
        else
            client.reset();
        // Ended before the call returned.
        QCOMPARE(ended.calls, 1);
        QCOMPARE(ended.success, false);
        QCOMPARE(ended.error, kNoData);
        QVERIFY(ended.guessed.isNull());

        if (how == "new request") {
            QTRY_COMPARE_WITH_TIMEOUT(next.calls, 1, kWaitMs);
            QVERIFY(next.success);
            QCOMPARE(next.text,
                     LoopbackTranslationServer::echoTranslation(QStringLiteral("second")));
        } else if (how == "cancel") {
            QCOMPARE(takeLog(), QStringList{QStringLiteral(
                                    "data is nil :(. Response: (null), error: cancelled")});
            // A second cancel, and the 4 s deadline of the cancelled request, change nothing.
            client->cancelCurrentTranslationRequestIfAny();
            QTest::qWait(4500);
        } else {
            QTest::qWait(200);
        }
        QCOMPARE(ended.calls, 1);
    }

    void completionMayStartTheNextRequest()
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

    // Which certificates fail is TLS's business; here, that the client leaves checking on.
    void selfSignedCertificateIsRefused()
    {
        const TlsIdentity untrusted = m_certificates->make(TestCertificates::Kind::SelfSigned);
        QVERIFY2(!untrusted.isNull(), qPrintable(m_certificates->errorString()));
        const TlsIdentity trusted = m_certificates->make(TestCertificates::Kind::Trusted);
        QVERIFY2(!trusted.isNull(), qPrintable(m_certificates->errorString()));

        TlsLoopbackServer server(untrusted);
        QVERIFY(server.isListening());
        TranslationOutcome refused; // outlives the client, which ends a request left in flight
        GoogleTranslateByURL client(server.baseUrl());
        client.translateText(QStringLiteral("secret text"), QStringLiteral("de"),
                             refused.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(refused.calls, 1, kWaitMs);

        QCOMPARE(refused.success, false);
        QCOMPARE(refused.error, kNoData);
        QVERIFY(refused.guessed.isNull());
        QVERIFY2(takeLog().constLast().startsWith(
                     QStringLiteral("data is nil :(. Response: (null), error: ")),
                 "no transport failure logged");
        // The connection was made, and the text never went over it.
        QCOMPARE(server.connectionCount(), 1);
        QCOMPARE(server.requestCount(), 0);

        // The same endpoint with a certificate the client trusts: the refusal was about the
        // certificate alone, and the client goes on working.
        server.setIdentity(trusted);
        requireUsable(client);
        QCOMPARE(server.requestCount(), 1);
        QCOMPARE(refused.calls, 1);
    }

    void serviceReadsItsAnswers_data()
    {
        // before: the answers to the requests before the last
        // The last request's line and body as sent; empty: not checked.
        DataRows::addColumns<QString, QString, QList<Answer>, Answer, TranslationEnd, QString,
                             QByteArray, QByteArray>("service", "target", "before", "answer", "end",
                                                     "text", "requestLine", "body");

        using End = TranslationEnd;
        const auto row = [](const char *name, const QString &service, const QString &target,
                            const Answer &answer, End end, const QString &text = QString(),
                            const QByteArray &requestLine = {}, const QByteArray &body = {},
                            const QList<Answer> &before = {}) {
            QTest::newRow(name) << service << target << before << answer << end << text
                                << requestLine << body;
        };
        const QString de = QStringLiteral("de");
        const QString hallo = QStringLiteral("Hallo Welt");
        const Answer reset = Answer::of(Behaviour::ResetMidBody);

        row("alternative client: translation and detected language", kAlternative, de,
            Answer::well(R"([["Hallo Welt","en"]])"), End::Answered, hallo,
            "GET /translate_a/t?client=dict-chrome-ex&sl=auto&tl=de&q=Hello+world HTTP/1.1");
        row("alternative client: the older sentences shape", kAlternative, de,
            Answer::well(R"({"sentences":[{"trans":"Hallo ","orig":"Hello "},)"
                         R"({"trans":"Welt","orig":"world"}],"src":"en"})"),
            End::Answered, hallo);
        row("alternative client: 429 with an HTML page", kAlternative, de, Answer::htmlPage(429),
            End::Refused);

        row("DeepL: translation, target code its own", kDeepL, QStringLiteral("pt"),
            Answer::well(
                R"({"translations":[{"detected_source_language":"EN","text":"Hallo Welt"}]})"),
            End::Answered, hallo, "POST /v2/translate HTTP/1.1",
            R"({"target_lang":"PT-BR","text":["Hello world"]})");
        row("DeepL: 456, quota used up", kDeepL, de, Answer::withStatus(456, ""), End::Refused);
        row("DeepL: a language it lacks is not sent", kDeepL, QStringLiteral("ca"), Answer::echo(),
            End::Unusable);

        row("LibreTranslate: translation with key", kLibre, QStringLiteral("zh-TW"),
            Answer::well(R"({"translatedText":"Hallo Welt",)"
                         R"("detectedLanguage":{"confidence":90,"language":"en"}})"),
            End::Answered, hallo, "POST /translate HTTP/1.1",
            R"({"api_key":"libre-key","format":"text","q":"Hello world",)"
            R"("source":"auto","target":"zt"})");
        row("LibreTranslate: 403, key refused", kLibre, de,
            Answer::withStatus(403, R"({"error":"Invalid API key"})"), End::Refused);
        row("LibreTranslate: an HTML page with status 200", kLibre, de, Answer::htmlPage(200),
            End::Unreadable);

        const Answer twoPairs = Answer::well(
            R"({"responseData":[{"sourceLanguage":"eng","targetLanguage":"spa"},)"
            R"({"sourceLanguage":"cat","targetLanguage":"spa"},)"
            R"({"sourceLanguage":"spa","targetLanguage":"eng"}],"responseDetails":null,)"
            R"("responseStatus":200})");
        const Answer hola = Answer::well(
            R"({"responseData":{"translatedText":"Hola mundo"},"responseDetails":null,)"
            R"("responseStatus":200})");
        const QString es = QStringLiteral("es");
        row("Apertium: one pair into English", kApertium, QStringLiteral("en"), hola, End::Answered,
            QStringLiteral("Hola mundo"),
            "GET /translate?markUnknown=no&langpair=spa%7Ceng&q=Hello+world HTTP/1.1", {},
            {twoPairs});
        row("Apertium: two pairs into Spanish, the identification picks", kApertium, es, hola,
            End::Answered, QStringLiteral("Hola mundo"),
            "GET /translate?markUnknown=no&langpair=eng%7Cspa&q=Hello+world HTTP/1.1", {},
            {twoPairs, Answer::well(R"({"cat":0.2,"eng":0.7})")});
        row("Apertium: two pairs, no identification", kApertium, es,
            Answer::withStatus(400, R"({"status":"error","code":400})"), End::Unusable, {}, {}, {},
            {twoPairs});
        row("Apertium: no pair into German", kApertium, de, twoPairs, End::Unusable, {},
            "GET /listPairs HTTP/1.1");
        row("Apertium: no server there", kApertium, de, reset, End::Unreachable);
    }

    void serviceReadsItsAnswers()
    {
        auto [service, target, before, answer, end, text, requestLine, body] =
            DataRows::fetch<QString, QString, QList<Answer>, Answer, TranslationEnd, QString,
                            QByteArray, QByteArray>("service", "target", "before", "answer", "end",
                                                    "text", "requestLine", "body");

        for (const Answer &scripted : std::as_const(before))
            m_server->enqueueAnswer(scripted);
        m_server->setDefaultAnswer(answer);
        TranslationOutcome outcome; // outlives the client, which ends a request left in flight
        const std::unique_ptr<Translator> client(
            TranslationServices::create(service, settingsFor(m_server->baseUrl(), {service})));
        QVERIFY(client->isConfigured());
        client->translateText(QStringLiteral("Hello world"), target, outcome.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);

        QCOMPARE(client->lastEnd(), end);
        QCOMPARE(outcome.success, end == TranslationEnd::Answered);
        QCOMPARE(outcome.text, text);
        QCOMPARE(outcome.error.isEmpty(), outcome.success);
        // What was sent never holds a key where a log could show it.
        for (const QString &line : takeLog())
            QVERIFY2(!line.contains(QLatin1String("secret-key")), qPrintable(line));
        const QList<LoopbackTranslationServer::RecordedRequest> requests = m_server->requests();
        if (!requestLine.isEmpty()) {
            QCOMPARE(requests.constLast().requestLine, requestLine);
            if (service == kDeepL)
                QCOMPARE(requests.constLast().headerValue("Authorization"),
                         QByteArray("DeepL-Auth-Key secret-key:fx"));
        }
        if (!body.isEmpty())
            QCOMPARE(requests.constLast().body, body);
    }

    void chainAsksTheNextServiceWhenOneRefuses_data()
    {
        // answers: one for each request, in order
        // answeredBy empty: every service failed
        // result: the translation, or the error text
        DataRows::addColumns<QStringList, QList<Answer>, QString, QString, int>(
            "order", "answers", "answeredBy", "result", "requests");

        const QString google = QString::fromLatin1(GoogleTranslateByURL::kServiceName);
        const QStringList three{google, kAlternative, kLibre};
        const Answer alternativeAnswers = Answer::well(R"([["Hallo","en"]])");
        const Answer libreAnswers =
            Answer::well(R"({"translatedText":"Hallo","detectedLanguage":{"language":"en"}})");

        QTest::newRow("default refuses with a 429 page, the alternative answers")
            << TranslationServices::defaultOrder()
            << QList<Answer>{Answer::htmlPage(429), alternativeAnswers} << kAlternative
            << QStringLiteral("Hallo") << 2;
        QTest::newRow("both refuse, LibreTranslate answers")
            << three << QList<Answer>{Answer::htmlPage(429), Answer::htmlPage(503), libreAnswers}
            << kLibre << QStringLiteral("Hallo") << 3;
        QTest::newRow("default unreachable: the alternative client is not asked")
            << three << QList<Answer>{Answer::of(Behaviour::ResetMidBody), libreAnswers} << kLibre
            << QStringLiteral("Hallo") << 2;
        QTest::newRow("all refuse: the first service's error text")
            << three
            << QList<Answer>{Answer::htmlPage(429), Answer::htmlPage(429),
                             Answer::withStatus(429, R"({"error":"Slowdown"})")}
            << QString() << kUnable << 3;
        QTest::newRow("DeepL without a key is passed over")
            << QStringList{kDeepL, google} << QList<Answer>{Answer::echo()} << google
            << LoopbackTranslationServer::echoTranslation(QStringLiteral("Hello")) << 1;
    }

    void chainAsksTheNextServiceWhenOneRefuses()
    {
        auto [order, answers, answeredBy, result, requests] =
            DataRows::fetch<QStringList, QList<Answer>, QString, QString, int>(
                "order", "answers", "answeredBy", "result", "requests");

        for (const Answer &answer : std::as_const(answers))
            m_server->enqueueAnswer(answer);
        ServiceSettings settings = settingsFor(m_server->baseUrl(), order);
        settings.deepLAPIKey.clear();
        const std::unique_ptr<TranslationChain> chain(TranslationServices::createChain(settings));
        QStringList announced;
        connect(chain.get(), &TranslationChain::answered, this,
                [&announced](const QString &name, bool first) {
                    announced << name + (first ? QStringLiteral(" first") : QString());
                });
        TranslationOutcome outcome;
        chain->translateText(QStringLiteral("Hello"), QStringLiteral("de"), outcome.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(outcome.calls, 1, kWaitMs);

        QCOMPARE(m_server->requestCount(), requests);
        QCOMPARE(outcome.success, !answeredBy.isEmpty());
        QCOMPARE(outcome.success ? outcome.text : outcome.error, result);
        const bool byFirst = answeredBy == chain->services().constFirst()->serviceName();
        QCOMPARE(announced,
                 QStringList{answeredBy + (byFirst ? QStringLiteral(" first") : QString())});
        // The log says what each service that failed answered.
        const QStringList log = takeLog();
        const qsizetype failures = std::count_if(log.cbegin(), log.cend(), [](const QString &line) {
            return line.contains(QLatin1String(" answered: "));
        });
        QCOMPARE(failures, qsizetype(requests - (outcome.success ? 1 : 0)));
    }

    void cancelDuringFallbackSendsNothingMore()
    {
        m_server->enqueueAnswer(Answer::htmlPage(429));
        m_server->enqueueAnswer(Answer::of(Behaviour::Silent));
        const std::unique_ptr<TranslationChain> chain(TranslationServices::createChain(settingsFor(
            m_server->baseUrl(), TranslationServices::defaultOrder() + QStringList{kLibre})));
        TranslationOutcome outcome;
        chain->translateText(QStringLiteral("Hello"), QStringLiteral("de"), outcome.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 2, kWaitMs);

        chain->cancelCurrentTranslationRequestIfAny();
        QCOMPARE(outcome.calls, 1);
        QCOMPARE(outcome.success, false);
        QCOMPARE(chain->lastEnd(), TranslationEnd::Cancelled);
        QTest::qWait(500);
        QCOMPARE(m_server->requestCount(), 2);
        QCOMPARE(outcome.calls, 1);
    }

    void prepareOpensTheConnectionAndSendsNothing()
    {
        TlsLoopbackServer server(m_certificates->make(TestCertificates::Kind::Trusted));
        QVERIFY(server.isListening());
        GoogleTranslateByURL client(server.baseUrl());
        client.prepare();
        client.prepare(); // one connection is enough
        QTRY_COMPARE_WITH_TIMEOUT(server.handshakeCount(), 1, kWaitMs);
        QTest::qWait(200);
        QCOMPARE(server.connectionCount(), 1);
        QCOMPARE(server.requestCount(), 0);

        // The request goes out on that connection.
        requireUsable(client);
        QCOMPARE(server.connectionCount(), 1);
        QCOMPARE(server.requestCount(), 1);
    }

    // The answer's parse, without a server.
    void parsesAnswer_data()
    {
        // "*" stands for any run of characters.
        DataRows::addColumns<QString, QString, QString, QStringList>("response", "translation",
                                                                     "guessedLanguage", "log");

        QTest::newRow("two sentences, a short row skipped")
            << R"([[["A. ","a. ",null,null,10],["B","b",null,null,10],["x","y","z"]],null,"en"])"
            << QStringLiteral("A. B") << QStringLiteral("en") << QStringList{kGuessedEn};
        QTest::newRow("empty slots in a row and before the language are repaired")
            << R"([[["Hallo","Hello",,,1]],,"en"])" << QStringLiteral("Hallo")
            << QStringLiteral("en") << QStringList{kGuessedEn};
        QTest::newRow("empty first slot is not repaired")
            << R"([,[["T","S",null,null,1]]])" << kNil << kNil << QStringList{kNotJson + "*"};
        QTest::newRow("empty first piece is still a translation")
            << R"([[["","S",null,null,1]]])" << QString(QLatin1StringView("")) << kNil
            << QStringList{};
        QTest::newRow("number at index 2 is no language")
            << R"([[["T","S",null,null,1]],null,7])" << QStringLiteral("T") << kNil
            << QStringList{};
        QTest::newRow("nine-element row taken; other sizes, types and non-arrays skipped")
            << R"([["x",{"a":1},["T","S",null,1],["T","S",null,null,1,1],[5,"S",null,null,1],)"
               R"(["T",null,null,null,1],["T","S",null,null,"1"],["U","S",null,null,1,1,1,1,1]]])"
            << QStringLiteral("U") << kNil << QStringList{};
        QTest::newRow("no row of a sentence: no translation")
            << R"([[["T","S",null,1]],null,"en"])" << kNil << QStringLiteral("en")
            << QStringList{kGuessedEn};
        QTest::newRow("string fragment on top")
            << R"("just text")" << kNil << kNil << QStringList{kTopNotArray};
        QTest::newRow("empty sentence list") << R"([[],null,"en"])" << kNil << QStringLiteral("en")
                                             << QStringList{kGuessedEn, kFirstInnerNotArray};
    }

    void parsesAnswer()
    {
        auto [response, translation, guessedLanguage, log] =
            DataRows::fetch<QString, QString, QString, QStringList>("response", "translation",
                                                                    "guessedLanguage", "log");

        QString guessed = QStringLiteral("stale");
        const QString result =
            GoogleTranslateByURL::parseGoogleJSONResponseUtf8(response.toUtf8(), &guessed);
        QCOMPARE(result, translation);
        QCOMPARE(result.isNull(), translation.isNull());
        QCOMPARE(guessed, guessedLanguage);
        QCOMPARE(guessed.isNull(), guessedLanguage.isNull());

        QCOMPARE(m_log.size(), log.size());
        for (qsizetype i = 0; i < log.size(); ++i)
            QVERIFY2(matchesPattern(m_log.at(i), log.at(i)), qPrintable(m_log.at(i)));
        // Without a place for the detected language, the same translation.
        QCOMPARE(GoogleTranslateByURL::parseGoogleJSONResponseIntoReadableString(response, nullptr),
                 translation);
    }

    void fillsEmptySlotsLikeTwoReplacePasses_data()
    {
        QTest::addColumn<QByteArray>("json");

        QTest::newRow("empty") << QByteArray();
        for (int run = 0; run <= 7; ++run) {
            const QByteArray commas(run, ',');
            QTest::addRow("%d commas inside", run) << "[1" + commas + "2]";
            QTest::addRow("%d commas first", run) << commas + "x";
            QTest::addRow("%d commas last", run) << "x" + commas;
            QTest::addRow("%d commas twice", run) << "[" + commas + "a" + commas + "]";
        }
        QTest::newRow("mixed runs") << QByteArray("[[,,1,,,,2],,,\"a,,b\",[,],,]");
    }

    void fillsEmptySlotsLikeTwoReplacePasses()
    {
        QFETCH(QByteArray, json);
        // The rule as the service's answers need it: two passes, each replacing every
        // non-overlapping ",," from left to right.
        QByteArray reference = json;
        reference.replace(",,", ",null,");
        reference.replace(",,", ",null,");
        QCOMPARE(fillEmptyArraySlots(json), reference);
    }

private:
    QStringList takeLog() { return std::exchange(m_log, {}); }

    // A good request on the same client, after whatever came before.
    void requireUsable(GoogleTranslateByURL &client)
    {
        TranslationOutcome good;
        // A failed wait leaves the request in flight; it must end while good still exists.
        const auto cancelLeftover =
            qScopeGuard([&client] { client.cancelCurrentTranslationRequestIfAny(); });
        client.translateText(QStringLiteral("good morning"), QStringLiteral("de"), good.recorder());
        QTRY_COMPARE_WITH_TIMEOUT(good.calls, 1, kWaitMs);
        QVERIFY2(good.success, qPrintable(good.error));
        QCOMPARE(good.text,
                 LoopbackTranslationServer::echoTranslation(QStringLiteral("good morning")));
        QCOMPARE(good.guessed, QStringLiteral("en"));
    }

    std::unique_ptr<TestCertificates> m_certificates;
    std::unique_ptr<LoopbackTranslationServer> m_server;
    QStringList m_log;
};

QTEST_GUILESS_MAIN(TestGoogleTranslateByURL)
#include "tst_googletranslatebyurl.moc"
