#include "LoopbackTranslationServer.h"

#include "DataRows.h"

#include "common/Log.h"
#include "settings/Preferences.h"
#include "system/Updater.h"
#include "system/UsageReporter.h"
#include "updates/Appcast.h"
#include "updates/VersionComparator.h"

#include <QSignalSpy>
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
    UpdatePermission permission;
    void askForUpdatePermission(std::function<void(const UpdatePermission &)> answer) override
    {
        shown << "asked";
        answer(permission);
    }
    void showUpdateFound(const UpdateCheckResult &) override { shown << "found"; }
    void showUpToDate(const UpdateCheckResult &) override { shown << "up to date"; }
    void showCheckFailed(const UpdateCheckResult &) override { shown << "failed"; }
    void showNoFeed() override { shown << "no feed"; }
};

QByteArray feed(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\""
           " xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n"
           "<channel><title>Tolkaro</title><link>https://example.invalid/</link>\n" +
           items + "</channel></rss>\n";
}

QByteArray item(const QByteArray &version, const QByteArray &extra = {})
{
    return "<item><title>Version " + version +
           "</title>"
           "<sparkle:releaseNotesLink>https://example.invalid/notes/" +
           version +
           "</sparkle:releaseNotesLink>"
           "<enclosure url=\"https://example.invalid/Tolkaro-" +
           version + ".AppImage\" sparkle:shortVersionString=\"" + version +
           "\" sparkle:version=\"77\" " + extra +
           " length=\"1\" type=\"application/octet-stream\"/></item>\n";
}

} // namespace

Q_DECLARE_METATYPE(Answer)

class TestUpdater : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(m_root->isValid());
        m_preferences = std::make_unique<Preferences>(m_root->path() + "/Tolkaro.conf");
        m_server = std::make_unique<LoopbackTranslationServer>();
        QVERIFY(m_server->isListening());
        m_preferences->settings().setValue("UpdateFeedURL", m_server->baseUrl() + "/appcast.xml");
        m_preferences->setCheckForUpdatesAutomatically(true);
        m_log.clear();
        tolkaro::setLogSink([this](const QString &line) { m_log << line; });
    }

    void cleanup()
    {
        tolkaro::setLogSink({});
        m_server.reset();
        m_preferences.reset();
        m_root.reset();
    }

    void check_data()
    {
        // feed null: the loopback server's feed
        DataRows::addColumns<QString, Answer, bool, int, QStringList>("feed", "answer", "asked",
                                                                      "outcome", "shown");

        // Which version is newer is compareVersions's; here, what each outcome shows.
        const QString server;
        const Answer newer = Answer::well(feed(item("0.2.0")));
        const Answer same = Answer::well(feed(item(TOLKARO_VERSION)));
        const Answer malformed = Answer::well("<rss><channel><item><title>cut off");
        const Answer forbidden = Answer::htmlPage(403);

        QTest::newRow("newer, background")
            << server << newer << false << int(Outcome::UpdateFound) << QStringList{"found"};
        QTest::newRow("same, background: silent")
            << server << same << false << int(Outcome::UpToDate) << QStringList{};
        QTest::newRow("same, asked")
            << server << same << true << int(Outcome::UpToDate) << QStringList{"up to date"};
        QTest::newRow("malformed, background: only logged")
            << server << malformed << false << int(Outcome::Failed) << QStringList{};
        QTest::newRow("HTTP error page, asked")
            << server << forbidden << true << int(Outcome::Failed) << QStringList{"failed"};
        QTest::newRow("no feed, asked: the package manager")
            << "" << same << true << int(Outcome::NoFeed) << QStringList{"no feed"};
    }

    void check()
    {
        auto [feed, answer, asked, outcome, shown] =
            DataRows::fetch<QString, Answer, bool, int, QStringList>("feed", "answer", "asked",
                                                                     "outcome", "shown");

        if (!feed.isNull())
            m_preferences->settings().setValue("UpdateFeedURL", feed);
        m_server->setDefaultAnswer(answer);

        RecordingPresenter presenter;
        Updater updater(m_preferences.get(), &presenter);
        QCOMPARE(updater.hasFeed(), feed.isNull());
        QSignalSpy finished(&updater, &Updater::updateCheckFinished);
        if (asked)
            updater.checkForUpdates();
        else
            updater.checkForUpdatesInBackground();
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 20000);

        const auto result = finished.first().first().value<UpdateCheckResult>();
        QCOMPARE(int(result.outcome), outcome);
        QCOMPARE(presenter.shown, shown);
        if (result.outcome == Outcome::UpdateFound)
            QCOMPARE(result.newestVersion, QString("0.2.0"));
        if (result.outcome == Outcome::Failed) {
            QVERIFY(!result.error.isEmpty());
            QCOMPARE(m_log.size(), 1);
            QVERIFY2(m_log.first().startsWith("Update check failed: "), qPrintable(m_log.first()));
        } else {
            QCOMPARE(m_log, QStringList{});
        }
        QCOMPARE(m_server->requestCount(), feed.isNull() ? 1 : 0);
    }

    void firstBackgroundCheckAsks_data()
    {
        DataRows::addColumns<bool, bool>("checkAutomatically", "sendProfile");

        QTest::newRow("agreed, box ticked: the profile joins the feed's own query") << true << true;
        QTest::newRow("agreed, box left empty: no profile") << true << false;
        QTest::newRow("declined: no check, now or later") << false << false;
    }

    void firstBackgroundCheckAsks()
    {
        auto [checkAutomatically, sendProfile] =
            DataRows::fetch<bool, bool>("checkAutomatically", "sendProfile");

        m_preferences->settings().remove("CheckForUpdatesAutomatically");
        m_preferences->settings().setValue("UpdateFeedURL",
                                           m_server->baseUrl() + "/appcast.xml?channel=beta");
        m_server->setDefaultAnswer(Answer::well(feed(item(TOLKARO_VERSION))));
        RecordingPresenter presenter;
        presenter.permission = {checkAutomatically, sendProfile};
        Updater updater(m_preferences.get(), &presenter);
        QSignalSpy finished(&updater, &Updater::updateCheckFinished);
        updater.checkForUpdatesInBackground();
        if (checkAutomatically)
            QVERIFY(finished.wait(20000));
        updater.checkForUpdatesInBackground(); // the next start: asked once only
        if (checkAutomatically)
            QVERIFY(finished.wait(20000));
        else
            QTest::qWait(200);

        QCOMPARE(presenter.shown, QStringList{"asked"});
        QCOMPARE(m_server->requestCount(), checkAutomatically ? 2 : 0);
        // The answers are the user's settings, kept for the next start.
        const Preferences stored(m_root->path() + "/Tolkaro.conf");
        QCOMPARE(stored.checkForUpdatesAutomatically(), std::optional<bool>(checkAutomatically));
        QCOMPARE(stored.sendSystemProfileWithUpdateChecks(), sendProfile);
        for (const auto &request : m_server->requests()) {
            const QUrl target("http://x" + QString::fromUtf8(request.target()));
            QCOMPARE(target.path(), QString("/appcast.xml"));
            const QUrlQuery query(target);
            QCOMPARE(query.queryItemValue("channel"), QString("beta"));
            QCOMPARE(query.hasQueryItem("appVersion"), sendProfile);
        }
    }

    void askingDuringBackgroundCheckSpeaksUp()
    {
        m_server->setDefaultAnswer(Answer::slowly(feed(item(TOLKARO_VERSION)), 300));
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

    void compareVersions_data()
    {
        DataRows::addColumns<QString, QString, int>("a", "b", "expected");

        const auto row = [](const char *name, const char *a, const char *b, int expected) {
            QTest::newRow(name) << QString(a) << QString(b) << expected;
        };
        row("numbers by value, not text", "1.10", "1.9", 1);
        row("trailing zeros do not count", "1.0", "1.0.0", 0);
        row("extra non-zero part is newer", "1.0", "1.0.1", -1);
        row("beta before release", "1.0b2", "1.0", -1);
        row("alpha before beta", "1.0alpha", "1.0beta", -1);
        row("release after pre-release of next", "1.1b1", "1.0", 1);
        row("leading v ignored", "v0.2.0", "0.2.0", 0);
        row("build metadata ignored", "1.0.0+20261122", "1.0.0", 0);
        row("numbers longer than 64 bits", "1.123456789012345678901234567890",
            "1.123456789012345678901234567889", 1);
    }

    void compareVersions()
    {
        auto [a, b, expected] = DataRows::fetch<QString, QString, int>("a", "b", "expected");

        QCOMPARE(VersionComparator::compareVersions(a, b), expected);
        QCOMPARE(VersionComparator::compareVersions(b, a), -expected);
    }

    void newestItem_data()
    {
        DataRows::addColumns<QByteArray, QString, QString>("document", "version", "downloadURL");

        QTest::newRow("newest by version, not by position")
            << feed(item("0.9.0") + item("0.10.0") + item("0.2.0")) << "0.10.0"
            << "https://example.invalid/Tolkaro-0.10.0.AppImage";
        QTest::newRow("items for other systems skipped")
            << feed(item("0.3.0") + item("9.0", "sparkle:os=\"macos\"") +
                    item("0.4.0", "sparkle:os=\"linux\""))
            << "0.4.0"
            << "https://example.invalid/Tolkaro-0.4.0.AppImage";
        QTest::newRow("version as item elements, download from link")
            << feed("<item><title>T</title><link>https://example.invalid/get</link>"
                    "<sparkle:version>123</sparkle:version>"
                    "<sparkle:shortVersionString>1.2.3</sparkle:shortVersionString></item>")
            << "1.2.3"
            << "https://example.invalid/get";
        QTest::newRow("items without a version ignored")
            << feed("<item><title>News</title></item>" + item("0.5")) << "0.5"
            << "https://example.invalid/Tolkaro-0.5.AppImage";
        QTest::newRow("truncated after a good item") << feed(item("0.2.0")).left(420) << ""
                                                     << "";
    }

    void newestItem()
    {
        auto [document, version, downloadURL] =
            DataRows::fetch<QByteArray, QString, QString>("document", "version", "downloadURL");

        QString error;
        const std::optional<Appcast::Item> newest = Appcast::newestItem(document, &error);
        if (version.isEmpty()) {
            QVERIFY(!newest.has_value());
            QVERIFY(!error.isEmpty());
            return;
        }
        QVERIFY2(newest.has_value(), qPrintable(error));
        QCOMPARE(newest->version, version);
        QCOMPARE(newest->downloadURL.toString(), downloadURL);
    }

    // One reporter throughout: the settings are read at every report, so turning reporting off
    // takes effect at once. Events are sent in order, so once a last event sent through a
    // reporter that is surely on has arrived, every event before it has too.
    void usageSentOnlyWhileTurnedOn()
    {
        QSettings &settings = m_preferences->settings();
        const QString events = m_server->baseUrl() + "/events";
        UsageReporter reporter(m_preferences.get());
        settings.setValue("UsageReportingURL", events);
        QVERIFY(!reporter.isEnabled()); // the switch absent
        reporter.report(UsageEvents::kFirstLaunchEver);
        settings.setValue("UsageReportingEnabled", true);
        settings.setValue("UsageReportingURL", "::events");
        QVERIFY(!reporter.isEnabled());
        reporter.report(UsageEvents::kAccessibilityConsentGiven);
        settings.setValue("UsageReportingURL", events);
        QVERIFY(reporter.isEnabled());
        reporter.report(UsageEvents::kTranslationMade,
                        {{"language", "de"}, {"text length", 12}, {"note", "a&b=c+d é"}});
        settings.setValue("UsageReportingEnabled", false);
        reporter.report(UsageEvents::kAccessibilityConsentDeclined);

        Preferences on(m_root->path() + "/sentinel.conf");
        on.settings().setValue("UsageReportingEnabled", true);
        on.settings().setValue("UsageReportingURL", m_server->baseUrl() + "/sentinel");
        UsageReporter sentinel(&on);
        sentinel.report("sentinel");
        QTRY_COMPARE_WITH_TIMEOUT(sentTo("/sentinel").size(), 1, 20000);

        QCOMPARE(m_server->requestCount(), 2);
        const LoopbackTranslationServer::RecordedRequest event = sentTo("/events").first();
        QVERIFY2(event.requestLine.startsWith("POST "), event.requestLine.constData());
        QCOMPARE(event.headerValue("Content-Type"),
                 QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(event.body,
                 QByteArray("event=translationHasBeenMadeAnalytics&version=" TOLKARO_VERSION
                            "&language=de&note=a%26b%3Dc%2Bd+%C3%A9&text+length=12"));
    }

private:
    QList<LoopbackTranslationServer::RecordedRequest> sentTo(const QByteArray &target) const
    {
        QList<LoopbackTranslationServer::RecordedRequest> sent;
        for (const auto &request : m_server->requests()) {
            if (request.target() == target)
                sent << request;
        }
        return sent;
    }

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<LoopbackTranslationServer> m_server;
    QStringList m_log;
};

QTEST_GUILESS_MAIN(TestUpdater)
#include "tst_updater.moc"
