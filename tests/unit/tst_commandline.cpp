#include "LoopbackTranslationServer.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;

Q_DECLARE_METATYPE(LoopbackTranslationServer::Answer)

namespace {

const QByteArray kUserAgent =
    "Mozilla/5.0 (iPhone; CPU iPhone OS 6_0 like Mac OS X) AppleWebKit/536.26 (KHTML, like "
    "Gecko) Version/6.0 Mobile/10A5376e Safari/8536.25";

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    // stderr's last line: the error text after any log lines.
    QByteArray lastErrorLine() const
    {
        const QList<QByteArray> lines = err.trimmed().split('\n');
        return lines.constLast();
    }
};

} // namespace

// Runs the built tolkaro as a user would, against the loopback server, with no display
// and with settings in a throw-away directory.
class TestCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void translatesWithoutDisplay();
    void failsWithTheClientsErrorText_data();
    void failsWithTheClientsErrorText();
    void destinationDefaultsToTheStartUpLanguage_data();
    void destinationDefaultsToTheStartUpLanguage();
    void informationAndMisuse_data();
    void informationAndMisuse();

private:
    Run runTolkaro(const QStringList &arguments, const QString &serviceUrl = {});

    std::unique_ptr<LoopbackTranslationServer> m_server;
    std::unique_ptr<QTemporaryDir> m_configHome;
};

void TestCommandLine::init()
{
    m_server = std::make_unique<LoopbackTranslationServer>();
    QVERIFY(m_server->isListening());
    m_configHome = std::make_unique<QTemporaryDir>();
    QVERIFY(m_configHome->isValid());
}

void TestCommandLine::cleanup()
{
    m_server.reset();
    m_configHome.reset();
}

Run TestCommandLine::runTolkaro(const QStringList &arguments, const QString &serviceUrl)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TOLKARO_TRANSLATE_URL"),
                       serviceUrl.isNull() ? m_server->baseUrl() : serviceUrl);
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_configHome->path());
    // No display at all: a GUI application object would abort on the xcb platform.
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    // A proxy from the surroundings must not stand between tolkaro and the loopback server.
    for (const char *proxy :
         {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"})
        environment.remove(QString::fromLatin1(proxy));
    environment.remove(QStringLiteral("LANGUAGE"));

    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(TOLKARO_BINARY), arguments);
    Run run;
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    return run;
}

void TestCommandLine::translatesWithoutDisplay()
{
    const Run run = runTolkaro({QStringLiteral("--translate"), QStringLiteral("Hello & good+bye"),
                                QStringLiteral("--to"), QStringLiteral("de")});
    QVERIFY2(run.exitCode == 0, run.err.constData());
    QCOMPARE(run.out, QByteArray("translation of Hello & good+bye\n"));

    QCOMPARE(m_server->requestCount(), 1);
    const auto request = m_server->requests().constFirst();
    QCOMPARE(request.requestLine, QByteArray("GET /translate_a/single?client=gtx&sl=auto&tl=de&dt=t"
                                             "&q=Hello+%26+good%2Bbye HTTP/1.1"));
    QCOMPARE(request.headerValue("User-Agent"), kUserAgent);
    // Reading the settings never writes them.
    QVERIFY(QDir(m_configHome->path()).isEmpty());

    // Without log lines stderr stays empty on success, and holds only the error otherwise.
    const Run quiet =
        runTolkaro({QStringLiteral("--quiet"), QStringLiteral("--translate"), QStringLiteral("x"),
                    QStringLiteral("--to"), QStringLiteral("de")});
    QCOMPARE(quiet.exitCode, 0);
    QCOMPARE(quiet.out, QByteArray("translation of x\n"));
    QCOMPARE(quiet.err, QByteArray());
    m_server->setDefaultAnswer(Answer::of(Behaviour::Garbage));
    const Run quietFailure =
        runTolkaro({QStringLiteral("-q"), QStringLiteral("--translate"), QStringLiteral("x"),
                    QStringLiteral("--to"), QStringLiteral("de")});
    QCOMPARE(quietFailure.exitCode, 1);
    QCOMPARE(quietFailure.err, QByteArray("Unable to translate text.\n"));
}

// Every answer's error text is the client's own test; here, that the command line prints it.
void TestCommandLine::failsWithTheClientsErrorText_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("refused");
    QTest::addColumn<QByteArray>("error");

    QTest::newRow("refused connection")
        << Answer::echo() << true << QByteArray("NSURLResponse's data is nil");
    QTest::newRow("not UTF-8")
        << Answer::of(Behaviour::NonUtf8) << false
        << QByteArray("responseDataString is nil. Couldn't build string from returned by the "
                      "server NSData");
}

void TestCommandLine::failsWithTheClientsErrorText()
{
    QFETCH(Answer, answer);
    QFETCH(bool, refused);
    QFETCH(QByteArray, error);

    m_server->setDefaultAnswer(answer);
    QString serviceUrl;
    if (refused) {
        serviceUrl = m_server->baseUrl();
        m_server.reset();
    }
    const Run run = runTolkaro({QStringLiteral("--translate"), QStringLiteral("Hello"),
                                QStringLiteral("--to"), QStringLiteral("de")},
                               serviceUrl);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.out, QByteArray());
    QCOMPARE(run.lastErrorLine(), error);
}

void TestCommandLine::destinationDefaultsToTheStartUpLanguage_data()
{
    QTest::addColumn<QByteArray>("storedSettings");
    QTest::addColumn<QByteArray>("target");

    QTest::newRow("stored destination")
        << QByteArray("[General]\npreviouslyUsedLanguageCode=fr\n") << QByteArray("fr");
    QTest::newRow("nothing stored, C locale: English") << QByteArray() << QByteArray("en");
}

void TestCommandLine::destinationDefaultsToTheStartUpLanguage()
{
    QFETCH(QByteArray, storedSettings);
    QFETCH(QByteArray, target);

    if (!storedSettings.isEmpty()) {
        QVERIFY(QDir(m_configHome->path()).mkpath(QStringLiteral("Tolkaro")));
        QFile settings(m_configHome->filePath(QStringLiteral("Tolkaro/Tolkaro.conf")));
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write(storedSettings);
    }
    const Run run = runTolkaro({QStringLiteral("--translate"), QStringLiteral("Hi")});
    QVERIFY2(run.exitCode == 0, run.err.constData());
    QCOMPARE(run.out, QByteArray("translation of Hi\n"));
    QCOMPARE(m_server->requestCount(), 1);
    QVERIFY2(m_server->requests().constFirst().target().contains("&tl=" + target + "&"),
             m_server->requests().constFirst().requestLine.constData());
}

void TestCommandLine::informationAndMisuse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("outContains");
    QTest::addColumn<QByteArray>("errContains");

    QTest::newRow("help") << QStringList{QStringLiteral("--help")} << 0
                          << QByteArray("Open or close the typing panel of the running Tolkaro.")
                          << QByteArray();
    QTest::newRow("version") << QStringList{QStringLiteral("--version")} << 0
                             << QByteArray("Tolkaro " TOLKARO_VERSION "\n") << QByteArray();
    QTest::newRow("typing mode with no Tolkaro running")
        << QStringList{QStringLiteral("--typing-mode")} << 1 << QByteArray()
        << QByteArray("Tolkaro is not running");
    QTest::newRow("unknown option") << QStringList{QStringLiteral("--frobnicate")} << 1
                                    << QByteArray() << QByteArray("Unknown option 'frobnicate'");
    QTest::newRow("--to alone") << QStringList{QStringLiteral("--to"), QStringLiteral("de")} << 1
                                << QByteArray()
                                << QByteArray("--to and --quiet only go with --translate.");
    QTest::newRow("--translate without text")
        << QStringList{QStringLiteral("--translate")} << 1 << QByteArray()
        << QByteArray("Missing value after '--translate'");
    QTest::newRow("stray argument")
        << QStringList{QStringLiteral("--translate"), QStringLiteral("a"), QStringLiteral("b")} << 1
        << QByteArray() << QByteArray("Unexpected argument 'b'");
}

void TestCommandLine::informationAndMisuse()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, outContains);
    QFETCH(QByteArray, errContains);

    const Run run = runTolkaro(arguments);
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY2(run.out.contains(outContains), run.out.constData());
    QVERIFY2(run.err.contains(errContains), run.err.constData());
    QCOMPARE(m_server->requestCount(), 0);
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
