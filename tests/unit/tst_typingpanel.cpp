// The typing panel and the application's side of it, without a desktop: the panel's
// signals, its collapsed size, what goes to a real client talking to a loopback
// endpoint, and what reaches the paste. The keyboard grab, the paste into another application
// and the panel's growth with its top edge kept are the desktop test's.

#include "LoopbackTranslationServer.h"
#include "common/NotificationCenter.h"
#include "common/UsageEvents.h"
#include "platform/Platform.h"
#include "translation/GoogleTranslateByURL.h"
#include "typing/SpotlightWindow.h"
#include "typing/SpotlightWindowController.h"
#include "typing/TSTTextGrowth.h"
#include "typing/TypingModeCoordinator.h"
#include "typing/TypingModeRules.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTest>

class TestTypingPanel : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void typedTextSent_data();
    void typedTextSent();
    void emptyTextShrinksAndSendsNothing();
    void failedTranslationShowsAndPastesTheErrorText();
    void returnBeforeAnyTranslationAsksAtOnce();
    void shortcutClosesThroughTheOpeningPath();
    void observerEndsWithItsContext();
    void handlerMayAddObservers();

private:
    SpotlightWindowController *spotlight() const { return m_coordinator->spotlight(); }
    void postEditingFinished(const QString &text) { emit spotlight()->editingFinished(text); }

    std::unique_ptr<Platform> m_platform = Platform::create(Platform::Session::None);
    std::unique_ptr<LoopbackTranslationServer> m_server;
    std::unique_ptr<GoogleTranslateByURL> m_client;
    std::unique_ptr<TypingModeCoordinator> m_coordinator;
    QStringList m_pasted;
    QStringList m_enterNotifications;
};

void TestTypingPanel::initTestCase()
{
    m_server = std::make_unique<LoopbackTranslationServer>();
    QVERIFY(m_server->isListening());
    m_client = std::make_unique<GoogleTranslateByURL>(m_server->baseUrl());
    m_coordinator = std::make_unique<TypingModeCoordinator>(
        m_client.get(), [] { return QStringLiteral("fr"); },
        [this](const QString &text) { m_pasted.append(text); }, *m_platform);
    m_coordinator->showSpotlightTranslationPopup();
    QVERIFY(spotlight());
    connect(spotlight(), &SpotlightWindowController::enterPressed, this,
            [this](const QString &translation) { m_enterNotifications.append(translation); });
}

void TestTypingPanel::init()
{
    m_server->clearRequests();
    m_server->setDefaultAnswer(LoopbackTranslationServer::Answer::echo());
    m_pasted.clear();
    m_enterNotifications.clear();
    if (!spotlight()->isVisible())
        m_coordinator->showSpotlightTranslationPopup();
    QVERIFY(spotlight()->isVisible());
    spotlight()->shrinkDetails();
}

void TestTypingPanel::cleanup()
{
    // Let any late completion land before the next test counts anything.
    QTest::qWait(50);
}

void TestTypingPanel::typedTextSent_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("sent");
    const QString three00 = QString(300, QLatin1Char('a'));
    QTest::newRow("exactly 300 units, uncut") << three00 << three00;
    QTest::newRow("301 units: first 300 and ...")
        << three00 + QLatin1Char('b') << three00 + QStringLiteral("...");
}

void TestTypingPanel::typedTextSent()
{
    QFETCH(QString, typed);
    QFETCH(QString, sent);
    postEditingFinished(typed);
    QTRY_COMPARE(m_server->requestCount(), 1);
    QCOMPARE(m_server->requests().constFirst().queryText(), sent);
    QVERIFY(m_server->requests().constFirst().target().contains("tl=fr"));
    QTRY_COMPARE(spotlight()->detailsTextField()->text(),
                 LoopbackTranslationServer::echoTranslation(sent));
    QVERIFY(spotlight()->isExpanded());
}

void TestTypingPanel::emptyTextShrinksAndSendsNothing()
{
    spotlight()->expandWithDetailsText(QStringLiteral("an old translation"));
    QVERIFY(spotlight()->isExpanded());
    postEditingFinished(QString());
    QVERIFY(!spotlight()->isExpanded());
    QCOMPARE(spotlight()->detailsTextField()->text(), QString());
    QTRY_COMPARE(spotlight()->window()->height(),
                 spotlight()->inputTextField()->height() + 2 * TypingModeRules::kPanelMargin);
    QTest::qWait(200);
    QCOMPARE(m_server->requestCount(), 0);
}

// Pasting a shown translation is the desktop test's; the error text is pasted like any other.
void TestTypingPanel::failedTranslationShowsAndPastesTheErrorText()
{
    const QString error = QStringLiteral("Error translating text");
    m_server->setDefaultAnswer(
        LoopbackTranslationServer::Answer::of(LoopbackTranslationServer::Behaviour::Garbage));
    postEditingFinished(QStringLiteral("unlucky"));
    QTRY_COMPARE(spotlight()->detailsTextField()->text(), error);
    QVERIFY(spotlight()->isExpanded());

    spotlight()->searchTextFieldEnterPressed();
    QCOMPARE(m_enterNotifications, QStringList{error});
    QCOMPARE(m_pasted, QStringList{error});
    QVERIFY(!spotlight()->isVisible());
}

// Return with no translation shown pastes nothing and asks at once; the countdown of the
// typing still runs and asks again.
void TestTypingPanel::returnBeforeAnyTranslationAsksAtOnce()
{
    m_server->setDefaultAnswer(
        LoopbackTranslationServer::Answer::slowly(LoopbackTranslationServer::echoBody("xy"), 1000));
    QTest::keyClicks(spotlight()->inputTextField(), QStringLiteral("xy"));
    spotlight()->searchTextFieldEnterPressed();
    QTRY_COMPARE(m_server->requestCount(), 1);
    QTRY_COMPARE(m_server->requestCount(), 2);
    QCOMPARE(m_server->requests().constLast().queryText(), QStringLiteral("xy"));
    QVERIFY(m_pasted.isEmpty() && spotlight()->isVisible());
    spotlight()->inputTextField()->clear();
}

// The shortcut pressed while the panel holds the keyboard closes it the way the desktop-wide
// shortcut opens it: one path, one usage event each way.
void TestTypingPanel::shortcutClosesThroughTheOpeningPath()
{
    QSignalSpy usage(m_coordinator.get(), &TypingModeCoordinator::usageEvent);
    emit spotlight()->shortcutPressed();
    QVERIFY(!spotlight()->isVisible());
    emit spotlight()->shortcutPressed();
    QVERIFY(spotlight()->isVisible());
    QCOMPARE(usage.size(), 2);
    for (const QList<QVariant> &event : usage)
        QCOMPARE(event.at(0).toString(), QLatin1String(UsageEvents::kTypingModeOpened));
}

// The named notifications (the shortcut's opens the panel in the typing desktop test): an
// observer ends with its context.
void TestTypingPanel::observerEndsWithItsContext()
{
    NotificationCenter center;
    int calls = 0;
    auto context = std::make_unique<QObject>();
    center.addObserver(NotificationNames::kOpenTypingModeNotification, context.get(),
                       [&](const QVariantMap &) { ++calls; });
    center.post(NotificationNames::kOpenTypingModeNotification);
    context.reset();
    center.post(NotificationNames::kOpenTypingModeNotification);
    QCOMPARE(calls, 1);

    QObject other;
    center.addObserver(NotificationNames::kOpenTypingModeNotification, &other,
                       [&](const QVariantMap &) { ++calls; });
    center.removeObservers(&other);
    center.post(NotificationNames::kOpenTypingModeNotification);
    QCOMPARE(calls, 1);
}

void TestTypingPanel::handlerMayAddObservers()
{
    NotificationCenter center;
    int late = 0;
    center.addObserver(NotificationNames::kOpenTypingModeNotification, nullptr,
                       [&](const QVariantMap &) {
                           center.addObserver(NotificationNames::kOpenTypingModeNotification,
                                              nullptr, [&](const QVariantMap &) { ++late; });
                       });
    center.post(NotificationNames::kOpenTypingModeNotification);
    // An observer added during a post hears the next one, not the current one.
    QCOMPARE(late, 0);
    center.post(NotificationNames::kOpenTypingModeNotification);
    QCOMPARE(late, 1);
}

QTEST_MAIN(TestTypingPanel)
#include "tst_typingpanel.moc"
