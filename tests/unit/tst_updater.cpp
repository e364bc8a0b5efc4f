#include "LoopbackTranslationServer.h"

#include "common/Log.h"
#include "settings/Preferences.h"
#include "system/Updater.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;
using Outcome = UpdateCheckResult::Outcome;

namespace {

// Records what the user would have been shown.
class RecordingPresenter : public UpdatePresenter
{
public:
    QStringList shown;
    UpdateCheckResult last;
    void showUpdateFound(const UpdateCheckResult &result) override { record("found", result); }
    void showUpToDate(const UpdateCheckResult &result) override { record("up to date", result); }
    void showCheckFailed(const UpdateCheckResult &result) override { record("failed", result); }
    void showNoFeed() override { shown << "no feed"; }

private:
    void record(const QString &what, const UpdateCheckResult &result)
    {
        shown << what;
        last = result;
    }
};

QByteArray appcast(const QByteArray &version)
{
    return "<?xml version=\"1.0\"?>\n<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>"
           "<title>Tolkaro</title><item><title>Tolkaro " +
           version +
           "</title>"
           "<sparkle:releaseNotesLink>https://example.invalid/notes.html</sparkle:releaseNotesLink>"
           "<enclosure url=\"https://example.invalid/Tolkaro-" +
           version +
           ".AppImage\" "
           "sparkle:shortVersionString=\"" +
           version +
           "\" sparkle:version=\"1\" length=\"1\" "
           "type=\"application/octet-stream\"/></item></channel></rss>\n";
}

// A loopback port that nobody listens on.
quint16 closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

} // namespace

Q_DECLARE_METATYPE(Answer)

class TestUpdater : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void check_data();
    void check();
    void noFeed_data();
    void noFeed();
    void systemProfile_data();
    void systemProfile();
    void askingDuringBackgroundCheckSpeaksUp();

private:
    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<LoopbackTranslationServer> m_server;
    QStringList m_log;
};

void TestUpdater::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_preferences = std::make_unique<Preferences>(m_root->path() + "/Tolkaro.conf");
    m_server = std::make_unique<LoopbackTranslationServer>();
    QVERIFY(m_server->isListening());
    m_preferences->settings().setValue("UpdateFeedURL", m_server->baseUrl() + "/appcast.xml");
    m_log.clear();
    tolkaro::setLogSink([this](const QString &line) { m_log << line; });
}

void TestUpdater::cleanup()
{
    tolkaro::setLogSink({});
    m_server.reset();
    m_preferences.reset();
    m_root.reset();
}

void TestUpdater::check_data()
{
    QTest::addColumn<Answer>("answer");
    QTest::addColumn<bool>("asked");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QStringList>("shown");

    // Which version is newer is the update feed test's; here, what each outcome shows.
    const Answer newer = Answer::well(appcast("0.2.0"));
    const Answer same = Answer::well(appcast(TOLKARO_VERSION));
    const Answer malformed = Answer::well("<rss><channel><item><title>cut off");
    const Answer forbidden = Answer::of(Behaviour::HtmlForbidden);

    QTest::newRow("newer, background")
        << newer << false << int(Outcome::UpdateFound) << QStringList{"found"};
    QTest::newRow("same, background: silent")
        << same << false << int(Outcome::UpToDate) << QStringList{};
    QTest::newRow("same, asked") << same << true << int(Outcome::UpToDate)
                                 << QStringList{"up to date"};
    QTest::newRow("malformed, background: only logged")
        << malformed << false << int(Outcome::Failed) << QStringList{};
    QTest::newRow("HTTP error page, asked")
        << forbidden << true << int(Outcome::Failed) << QStringList{"failed"};
    QTest::newRow("unreachable, asked")
        << Answer() << true << int(Outcome::Failed) << QStringList{"failed"};
}

void TestUpdater::check()
{
    QFETCH(Answer, answer);
    QFETCH(bool, asked);
    QFETCH(int, outcome);
    QFETCH(QStringList, shown);

    const bool unreachable = QByteArray(QTest::currentDataTag()).startsWith("unreachable");
    if (unreachable)
        m_preferences->settings().setValue(
            "UpdateFeedURL", QString("http://127.0.0.1:%1/appcast.xml").arg(closedPort()));
    else
        m_server->setDefaultAnswer(answer);

    RecordingPresenter presenter;
    Updater updater(m_preferences.get(), &presenter);
    QVERIFY(updater.hasFeed());
    QSignalSpy finished(&updater, &Updater::updateCheckFinished);
    if (asked)
        updater.checkForUpdates();
    else
        updater.checkForUpdatesInBackground();
    QVERIFY(finished.wait(20000));

    const auto result = finished.first().first().value<UpdateCheckResult>();
    QCOMPARE(int(result.outcome), outcome);
    QCOMPARE(presenter.shown, shown);
    QCOMPARE(result.currentVersion, QString(TOLKARO_VERSION));
    if (result.outcome == Outcome::UpdateFound) {
        QCOMPARE(result.newestVersion, QString("0.2.0"));
        QCOMPARE(result.downloadURL, QUrl("https://example.invalid/Tolkaro-0.2.0.AppImage"));
        QCOMPARE(result.releaseNotesURL, QUrl("https://example.invalid/notes.html"));
    }
    if (result.outcome == Outcome::Failed) {
        QVERIFY(!result.error.isEmpty());
        QCOMPARE(m_log.size(), 1);
        QVERIFY2(m_log.first().startsWith("Update check failed: "), qPrintable(m_log.first()));
    } else {
        QCOMPARE(m_log, QStringList{});
    }
    if (!unreachable) {
        QCOMPARE(m_server->requestCount(), 1);
        QCOMPARE(m_server->requests().first().method(), QByteArray("GET"));
        QCOMPARE(m_server->requests().first().target(), QByteArray("/appcast.xml"));
    }
}

void TestUpdater::noFeed_data()
{
    QTest::addColumn<QString>("feed");
    QTest::addColumn<bool>("asked");
    QTest::addColumn<QStringList>("shown");

    QTest::newRow("none, asked: the package manager") << "" << true << QStringList{"no feed"};
    QTest::newRow("none, background: silent") << "" << false << QStringList{};
    QTest::newRow("relative URL is none") << "appcast.xml" << true << QStringList{"no feed"};
}

void TestUpdater::noFeed()
{
    QFETCH(QString, feed);
    QFETCH(bool, asked);
    QFETCH(QStringList, shown);

    m_preferences->settings().setValue("UpdateFeedURL", feed);
    RecordingPresenter presenter;
    Updater updater(m_preferences.get(), &presenter);
    QVERIFY(!updater.hasFeed());
    QSignalSpy finished(&updater, &Updater::updateCheckFinished);
    asked ? updater.checkForUpdates() : updater.checkForUpdatesInBackground();
    QCOMPARE(finished.size(), 1);
    QCOMPARE(int(finished.first().first().value<UpdateCheckResult>().outcome),
             int(Outcome::NoFeed));
    QCOMPARE(presenter.shown, shown);
    QCOMPARE(m_server->requestCount(), 0);
}

void TestUpdater::systemProfile_data()
{
    QTest::addColumn<bool>("sendsProfile");
    QTest::addColumn<QString>("feedQuery");

    QTest::newRow("profile off") << false << "";
    QTest::newRow("profile on, feed with its own query") << true << "channel=beta";
}

void TestUpdater::systemProfile()
{
    QFETCH(bool, sendsProfile);
    QFETCH(QString, feedQuery);

    QString feed = m_server->baseUrl() + "/appcast.xml";
    if (!feedQuery.isEmpty())
        feed += "?" + feedQuery;
    m_preferences->settings().setValue("UpdateFeedURL", feed);
    m_server->setDefaultAnswer(Answer::well(appcast(TOLKARO_VERSION)));
    RecordingPresenter presenter;
    Updater updater(m_preferences.get(), &presenter);
    updater.setSendsSystemProfile(sendsProfile);
    QSignalSpy finished(&updater, &Updater::updateCheckFinished);
    updater.checkForUpdatesInBackground();
    QVERIFY(finished.wait(20000));

    const QUrl target("http://x" + QString::fromUtf8(m_server->requests().first().target()));
    QCOMPARE(target.path(), QString("/appcast.xml"));
    const QUrlQuery query(target);
    if (!feedQuery.isEmpty())
        QCOMPARE(query.queryItemValue("channel"), QString("beta"));
    QCOMPARE(query.hasQueryItem("appVersion"), sendsProfile);
    if (!sendsProfile) {
        QCOMPARE(query.queryItems().size(), feedQuery.isEmpty() ? 0 : 1);
        return;
    }
    QCOMPARE(query.queryItemValue("appName"), QString("Tolkaro"));
    QCOMPARE(query.queryItemValue("appVersion"), QString(TOLKARO_VERSION));
    QCOMPARE(query.queryItemValue("cpuArchitecture"), QSysInfo::currentCpuArchitecture());
    QCOMPARE(query.queryItemValue("osVersion", QUrl::FullyDecoded), QSysInfo::productVersion());
    QVERIFY(query.hasQueryItem("lang"));
}

void TestUpdater::askingDuringBackgroundCheckSpeaksUp()
{
    m_server->setDefaultAnswer(Answer::slowly(appcast(TOLKARO_VERSION), 300));
    RecordingPresenter presenter;
    Updater updater(m_preferences.get(), &presenter);
    QSignalSpy finished(&updater, &Updater::updateCheckFinished);
    updater.checkForUpdatesInBackground();
    updater.checkForUpdates();
    QVERIFY(finished.wait(20000));
    // One request answers both, and the user hears of it.
    QCOMPARE(m_server->requestCount(), 1);
    QCOMPARE(presenter.shown, QStringList{"up to date"});
}

QTEST_GUILESS_MAIN(TestUpdater)
#include "tst_updater.moc"
