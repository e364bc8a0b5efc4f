// The typing panel and the application's side of it, without a desktop: the panel's
// signals, its collapsed size, what goes to a real client talking to a loopback
// endpoint, and what reaches the paste. The keyboard grab, the paste into another application
// and the panel's growth with its top edge kept are the desktop test's. Last, the rules of
// the panel's shortcut: which keys record, its grabs, its matching and its text.

#include "DataRows.h"

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
#include "typing/TypingShortcut.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTest>

using namespace TypingShortcut;

namespace {
constexpr quint32 kShift = Qt::ShiftModifier;
constexpr quint32 kCtrl = Qt::ControlModifier;
constexpr quint32 kAlt = Qt::AltModifier;
constexpr quint32 kMeta = Qt::MetaModifier;
constexpr quint32 kKeypad = Qt::KeypadModifier;
} // namespace

class TestTypingPanel : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
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

    void init()
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

    void cleanup()
    {
        // Let any late completion land before the next test counts anything.
        QTest::qWait(50);
    }

    void typedTextSent_data()
    {
        DataRows::addColumns<QString, QString>("typed", "sent");
        const QString three00 = QString(300, QLatin1Char('a'));
        QTest::newRow("exactly 300 units, uncut") << three00 << three00;
        QTest::newRow("301 units: first 300 and ...")
            << three00 + QLatin1Char('b') << three00 + QStringLiteral("...");
    }

    void typedTextSent()
    {
        auto [typed, sent] = DataRows::fetch<QString, QString>("typed", "sent");
        postEditingFinished(typed);
        QTRY_COMPARE(m_server->requestCount(), 1);
        QCOMPARE(m_server->requests().constFirst().queryText(), sent);
        QVERIFY(m_server->requests().constFirst().target().contains("tl=fr"));
        QTRY_COMPARE(spotlight()->detailsTextField()->text(),
                     LoopbackTranslationServer::echoTranslation(sent));
        QVERIFY(spotlight()->isExpanded());
    }

    void emptyTextShrinksAndSendsNothing()
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
    void failedTranslationShowsAndPastesTheErrorText()
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
    void returnBeforeAnyTranslationAsksAtOnce()
    {
        m_server->setDefaultAnswer(LoopbackTranslationServer::Answer::slowly(
            LoopbackTranslationServer::echoBody("xy"), 1000));
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
    void shortcutClosesThroughTheOpeningPath()
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
    // observer ends with its context, and one added during a post hears the next post only.
    void notificationObservers()
    {
        const auto open = NotificationNames::kOpenTypingModeNotification;
        NotificationCenter center;
        int calls = 0;
        auto context = std::make_unique<QObject>();
        center.addObserver(open, context.get(), [&](const QVariantMap &) { ++calls; });
        center.post(open);
        context.reset();
        center.post(open);
        QCOMPARE(calls, 1);

        QObject other;
        center.addObserver(open, &other, [&](const QVariantMap &) { ++calls; });
        center.removeObservers(&other);
        center.post(open);
        QCOMPARE(calls, 1);

        int late = 0;
        center.addObserver(open, nullptr, [&](const QVariantMap &) {
            center.addObserver(open, nullptr, [&](const QVariantMap &) { ++late; });
        });
        center.post(open);
        QCOMPARE(late, 0);
        center.post(open);
        QCOMPARE(late, 1);
    }

    void recordedKey_data()
    {
        DataRows::addColumns<quint32, quint32, int>("keySym", "modifiers", "expected");
        auto row = [](const char *name, quint32 keySym, quint32 modifiers, RecordedKey expected) {
            QTest::newRow(name) << keySym << modifiers << int(expected);
        };
        // Alt+Space and Ctrl+Shift+T are recorded for real in the typing desktop test.
        row("Super+Return", 0xff0d, kMeta, RecordedKey::Accept);
        row("bare F5", 0xffc2, 0, RecordedKey::Accept);
        row("Shift+letter", 'A', kShift, RecordedKey::Reject);
        row("keypad flag alone", 0xffb5, kKeypad, RecordedKey::Reject);
        row("Alt held alone", 0xffe9, kAlt, RecordedKey::Ignore);
        row("Escape", 0xff1b, 0, RecordedKey::Cancel);
        row("Ctrl+Escape is a shortcut", 0xff1b, kCtrl, RecordedKey::Accept);
        row("Backspace", 0xff08, 0, RecordedKey::Clear);
    }

    void recordedKey()
    {
        auto [keySym, modifiers, expected] =
            DataRows::fetch<quint32, quint32, int>("keySym", "modifiers", "expected");
        QCOMPARE(int(decideRecordedKey(keySym, modifiers)), expected);
    }

    void grabVariants_data()
    {
        DataRows::addColumns<quint32, quint16, QList<quint16>>("qtModifiers", "numLockMask",
                                                               "expected");
        QTest::newRow("Alt with Num Lock on Mod2")
            << kAlt << X11Mask::kMod2 << QList<quint16>{0x08, 0x0a, 0x18, 0x1a};
        QTest::newRow("no Num Lock key") << kAlt << quint16(0) << QList<quint16>{0x08, 0x0a};
        QTest::newRow("Super with Shift")
            << (kMeta | kShift) << X11Mask::kMod2 << QList<quint16>{0x41, 0x43, 0x51, 0x53};
        QTest::newRow("keypad flag is not a grab bit")
            << (kAlt | kKeypad) << X11Mask::kMod2 << QList<quint16>{0x08, 0x0a, 0x18, 0x1a};
    }

    void grabVariants()
    {
        auto [qtModifiers, numLockMask, expected] =
            DataRows::fetch<quint32, quint16, QList<quint16>>("qtModifiers", "numLockMask",
                                                              "expected");
        QCOMPARE(grabModifierVariants(x11ModifierMask(qtModifiers), numLockMask), expected);
    }

    void matching_data()
    {
        DataRows::addColumns<quint32, quint32, bool>("keySym", "modifiers", "expected");
        // Against Ctrl+Shift+t as recorded.
        QTest::newRow("same key, capital from Shift") << quint32('T') << (kCtrl | kShift) << true;
        QTest::newRow("same key, small letter") << quint32('t') << (kCtrl | kShift) << true;
        QTest::newRow("missing Shift") << quint32('t') << kCtrl << false;
        QTest::newRow("extra Alt") << quint32('T') << (kCtrl | kShift | kAlt) << false;
        QTest::newRow("keypad flag ignored") << quint32('T') << (kCtrl | kShift | kKeypad) << true;
        QTest::newRow("other key") << quint32('y') << (kCtrl | kShift) << false;
    }

    void matching()
    {
        auto [keySym, modifiers, expected] =
            DataRows::fetch<quint32, quint32, bool>("keySym", "modifiers", "expected");
        QCOMPARE(matches(StoredShortcut{'t', kCtrl | kShift}, keySym, modifiers), expected);
    }

    void displayText_data()
    {
        DataRows::addColumns<quint32, quint32, QString>("keySym", "modifiers", "expected");
        // The default and a recorded shortcut are read off the recorder's button in the typing
        // desktop test, which also clears back to the default without writing it.
        QTest::newRow("modifiers in a fixed order")
            << quint32('t') << (kMeta | kShift | kAlt | kCtrl) << "Ctrl+Alt+Shift+Super+T";
        QTest::newRow("function key") << quint32(0xffc9) << quint32(0) << "F12";
        QTest::newRow("unnamed key") << quint32(0x1008ff13) << kCtrl << "Ctrl+0x1008ff13";
    }

    void displayText()
    {
        auto [keySym, modifiers, expected] =
            DataRows::fetch<quint32, quint32, QString>("keySym", "modifiers", "expected");
        QCOMPARE(TypingShortcut::displayText(StoredShortcut{keySym, modifiers}), expected);
    }

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

QTEST_MAIN(TestTypingPanel)
#include "tst_typingpanel.moc"
