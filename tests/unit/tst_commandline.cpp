#include "LoopbackTranslationServer.h"

#include "DataRows.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;

// Runs the built tolkaro as a user would, against the loopback server, with no display
// and with settings in a throw-away directory.
class TestCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_server = std::make_unique<LoopbackTranslationServer>();
        QVERIFY(m_server->isListening());
        m_configHome = std::make_unique<QTemporaryDir>();
        QVERIFY(m_configHome->isValid());
    }

    void cleanup()
    {
        m_server.reset();
        m_configHome.reset();
    }

    void translatesWithoutDisplay()
    {
        const Run run = runTolkaro({"--translate", "Hello & good+bye", "--to", "de"});
        QVERIFY2(run.exitCode == 0, run.err.constData());
        QCOMPARE(run.out, QByteArray("translation of Hello & good+bye\n"));

        // The request line and headers are the client test's.
        QCOMPARE(m_server->requestCount(), 1);
        // The user's text stays out of the log unless asked for.
        QVERIFY2(run.err.contains("Translating 16 characters into de\n"), run.err.constData());
        QVERIFY2(!run.err.contains("good+bye"), run.err.constData());
        const Run verbose = runTolkaro({"--verbose", "--translate", "Hello", "--to", "de"});
        QVERIFY2(verbose.err.contains("Translating \"Hello\" into de\n"), verbose.err.constData());
        QVERIFY2(verbose.err.contains("translation of Hello"), verbose.err.constData());
        // Nor does a failure's line carry it (Qt names the URL, text included, in some errors).
        for (const Behaviour failure : {Behaviour::ResetMidBody, Behaviour::RedirectLoop}) {
            m_server->setDefaultAnswer(Answer::of(failure));
            const Run failed = runTolkaro({"--translate", "Hello", "--to", "de"});
            QCOMPARE(failed.exitCode, 1);
            QVERIFY2(!failed.err.contains("Hello"), failed.err.constData());
        }
        m_server->setDefaultAnswer(Answer::echo());
        // Reading the settings never writes them.
        QVERIFY(QDir(m_configHome->path()).isEmpty());

        // Without log lines stderr stays empty on success, and holds only the client's error text
        // otherwise (which text for which failure is the client test's).
        const Run quiet = runTolkaro({"--quiet", "--translate", "x", "--to", "de"});
        QCOMPARE(quiet.exitCode, 0);
        QCOMPARE(quiet.out, QByteArray("translation of x\n"));
        QCOMPARE(quiet.err, QByteArray());
        m_server->setDefaultAnswer(Answer::of(Behaviour::Garbage));
        const Run quietFailure = runTolkaro({"-q", "--translate", "x", "--to", "de"});
        QCOMPARE(quietFailure.exitCode, 1);
        QCOMPARE(quietFailure.out, QByteArray());
        QCOMPARE(quietFailure.err, QByteArray("Unable to translate text.\n"));
    }

    void invocationAnswers_data()
    {
        DataRows::addColumns<QByteArray, QStringList, int, QByteArray, QByteArray>(
            "storedSettings", "arguments", "exitCode", "outContains", "errContains");

        // Without --to, the destination the tray would start with.
        QTest::newRow("translation into the stored destination")
            << QByteArray("[General]\npreviouslyUsedLanguageCode=fr\n")
            << QStringList{"--translate", "Hi"} << 0 << QByteArray("translation of Hi\n")
            << QByteArray("Translating 2 characters into fr\n");
        QTest::newRow("nothing stored, C locale: translation into English")
            << QByteArray() << QStringList{"--translate", "Hi"} << 0
            << QByteArray("translation of Hi\n")
            << QByteArray("Translating 2 characters into en\n");
        QTest::newRow("version") << QByteArray() << QStringList{"--version"} << 0
                                 << QByteArray("Tolkaro " TOLKARO_VERSION "\n") << QByteArray();
        QTest::newRow("typing mode with no Tolkaro running")
            << QByteArray() << QStringList{"--typing-mode"} << 1 << QByteArray()
            << QByteArray("Tolkaro is not running");
        QTest::newRow("--to alone")
            << QByteArray() << QStringList{"--to", "de"} << 1 << QByteArray()
            << QByteArray("--to, --quiet and --service only go with --translate.");
        QTest::newRow("unknown service")
            << QByteArray() << QStringList{"--translate", "a", "--service", "Bing"} << 1
            << QByteArray() << QByteArray("Unknown service 'Bing'");
        QTest::newRow("services by default")
            << QByteArray() << QStringList{"--list-services"} << 0
            << QByteArray("Google: configured\nGoogle (alternative client): configured\n"
                          "DeepL: not configured, not asked\nLibreTranslate: not configured, not "
                          "asked\nApertium (offline): configured, not asked\n")
            << QByteArray();
        QTest::newRow("services as chosen, unknown names dropped")
            << QByteArray("[General]\nTranslationServices=DeepL, Babel, Google\nDeepLAPIKey=k:fx\n")
            << QStringList{"--list-services"} << 0
            << QByteArray("DeepL: configured\nGoogle: configured\n") << QByteArray();
        QTest::newRow("tray without a desktop: what is missing and what works")
            << QByteArray() << QStringList{} << 1 << QByteArray()
            << QByteArray("no graphical session found (DISPLAY and WAYLAND_DISPLAY are not set).\n"
                          "Tolkaro lives in the system tray of a desktop session; start it from "
                          "there.\nWithout a desktop, 'tolkaro --translate <text>' translates");
    }

    void invocationAnswers()
    {
        auto [storedSettings, arguments, exitCode, outContains, errContains] =
            DataRows::fetch<QByteArray, QStringList, int, QByteArray, QByteArray>(
                "storedSettings", "arguments", "exitCode", "outContains", "errContains");

        if (!storedSettings.isEmpty())
            writeSettings(storedSettings);
        const Run run = runTolkaro(arguments);
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(run.out.contains(outContains), run.out.constData());
        QVERIFY2(run.err.contains(errContains), run.err.constData());
        QCOMPARE(m_server->requestCount(),
                 exitCode == 0 && arguments.contains("--translate") ? 1 : 0);
    }

    void offlineServiceTranslatesIntoSpanish()
    {
        // The real offline server with its English-Spanish pair, on a free loopback port.
        const QString apy = QStandardPaths::findExecutable("apertium-apy");
        if (apy.isEmpty() || !QFile::exists("/usr/share/apertium/modes/eng-spa.mode"))
            QSKIP("apertium-apy and apertium-eng-spa are not installed (scripts/install-deps.sh)");
        quint16 port = 0;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost));
            port = probe.serverPort();
        }
        QProcess server;
        server.setStandardOutputFile(QProcess::nullDevice());
        server.setStandardErrorFile(QProcess::nullDevice());
        server.start(apy, {"-p", QString::number(port), "/usr/share/apertium/modes"});
        QVERIFY2(server.waitForStarted(), qPrintable(server.errorString()));
        const auto stopServer = qScopeGuard([&server] {
            server.terminate();
            if (!server.waitForFinished(5000))
                server.kill();
            server.waitForFinished();
        });
        writeSettings("[General]\nApertiumURL=http://127.0.0.1:" + QByteArray::number(port) + "\n");

        // The server takes a few seconds to start: asked again until it answers.
        Run run;
        const auto translated = [&] {
            run = runTolkaro({"--translate", "The cat is black.", "--to", "es", "--service",
                              "Apertium (offline)"});
            return run.exitCode == 0;
        };
        QVERIFY2(QTest::qWaitFor(translated, 60000), run.err.constData());
        QVERIFY2(run.out.contains("gato") && run.out.contains("negro"), run.out.constData());
        QCOMPARE(m_server->requestCount(), 0);
    }

private:
    struct Run
    {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };

    Run runTolkaro(const QStringList &arguments)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TOLKARO_TRANSLATE_URL", m_server->baseUrl());
        environment.insert("XDG_CONFIG_HOME", m_configHome->path());
        // No display at all: a GUI application object would abort on the xcb platform.
        environment.remove("DISPLAY");
        environment.remove("WAYLAND_DISPLAY");
        environment.insert("QT_QPA_PLATFORM", "xcb");
        environment.insert("LC_ALL", "C.UTF-8");
        // A proxy from the surroundings must not stand between tolkaro and the loopback server.
        for (const char *proxy :
             {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY"})
            environment.remove(proxy);
        environment.remove("LANGUAGE");

        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(QStringLiteral(TOLKARO_BINARY), arguments);
        if (!process.waitForFinished(30000)) {
            process.kill(); // hung: reported as a crash
            process.waitForFinished();
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2,
                process.readAllStandardOutput(), process.readAllStandardError()};
    }

    void writeSettings(const QByteArray &settings)
    {
        QVERIFY(QDir(m_configHome->path()).mkpath("Tolkaro"));
        QFile file(m_configHome->filePath("Tolkaro/Tolkaro.conf"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(settings);
    }

    std::unique_ptr<LoopbackTranslationServer> m_server;
    std::unique_ptr<QTemporaryDir> m_configHome;
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
