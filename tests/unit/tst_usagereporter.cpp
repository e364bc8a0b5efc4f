#include "LoopbackTranslationServer.h"

#include "settings/Preferences.h"
#include "system/UsageReporter.h"

#include <QTemporaryDir>
#include <QTest>

class TestUsageReporter : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void sentOnlyWhileTurnedOn();

private:
    // Sends a last event through a reporter that is surely on, and waits for it, so that
    // every event sent before it has arrived too.
    void sendSentinel();
    QList<LoopbackTranslationServer::RecordedRequest> eventsSentTo(const QByteArray &target) const;
    // Sets the switch (invalid: the key absent) and the endpoint ($SERVER: the loopback server).
    void configure(const QVariant &enabled, QString endpoint);

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<LoopbackTranslationServer> m_server;
};

void TestUsageReporter::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_preferences = std::make_unique<Preferences>(m_root->path() + "/Tolkaro.conf");
    m_server = std::make_unique<LoopbackTranslationServer>();
    QVERIFY(m_server->isListening());
}

void TestUsageReporter::cleanup()
{
    m_server.reset();
    m_preferences.reset();
    m_root.reset();
}

void TestUsageReporter::sendSentinel()
{
    Preferences on(m_root->path() + "/sentinel.conf");
    on.settings().setValue("UsageReportingEnabled", true);
    on.settings().setValue("UsageReportingURL", m_server->baseUrl() + "/sentinel");
    UsageReporter reporter(&on);
    reporter.report("sentinel");
    QTRY_COMPARE_WITH_TIMEOUT(eventsSentTo("/sentinel").size(), 1, 20000);
}

QList<LoopbackTranslationServer::RecordedRequest>
TestUsageReporter::eventsSentTo(const QByteArray &target) const
{
    QList<LoopbackTranslationServer::RecordedRequest> sent;
    for (const auto &request : m_server->requests()) {
        if (request.target() == target)
            sent << request;
    }
    return sent;
}

void TestUsageReporter::configure(const QVariant &enabled, QString endpoint)
{
    if (enabled.isValid())
        m_preferences->settings().setValue("UsageReportingEnabled", enabled);
    else
        m_preferences->settings().remove("UsageReportingEnabled");
    m_preferences->settings().setValue("UsageReportingURL",
                                       endpoint.replace("$SERVER", m_server->baseUrl()));
}

// One reporter throughout: the settings are read at every report, so turning reporting off
// takes effect at once.
void TestUsageReporter::sentOnlyWhileTurnedOn()
{
    UsageReporter reporter(m_preferences.get());
    configure(QVariant(), "$SERVER/events");
    QVERIFY(!reporter.isEnabled());
    reporter.report(UsageEvents::kFirstLaunchEver);
    configure(true, "::events");
    QVERIFY(!reporter.isEnabled());
    reporter.report(UsageEvents::kAccessibilityConsentGiven);
    configure(true, "$SERVER/events");
    QVERIFY(reporter.isEnabled());
    reporter.report(UsageEvents::kTranslationMade,
                    {{"language", "de"}, {"text length", 12}, {"note", "a&b=c+d é"}});
    configure(false, "$SERVER/events");
    reporter.report(UsageEvents::kAccessibilityConsentDeclined);
    sendSentinel();
    QTRY_COMPARE_WITH_TIMEOUT(eventsSentTo("/events").size(), 1, 20000);

    QCOMPARE(m_server->requestCount(), 2);
    const LoopbackTranslationServer::RecordedRequest event = eventsSentTo("/events").first();
    QVERIFY2(event.requestLine.startsWith("POST "), event.requestLine.constData());
    QCOMPARE(event.headerValue("Content-Type"), QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(event.body, QByteArray("event=translationHasBeenMadeAnalytics&version=" TOLKARO_VERSION
                                    "&language=de&note=a%26b%3Dc%2Bd+%C3%A9&text+length=12"));
}

QTEST_GUILESS_MAIN(TestUsageReporter)
#include "tst_usagereporter.moc"
