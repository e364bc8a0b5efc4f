#include "DataRows.h"
#include "LoopbackTranslationServer.h"

#include "common/Log.h"

#include "controller/TranslationController.h"
#include "languages/LanguageTable.h"
#include "settings/Preferences.h"
#include "translation/GoogleTranslateByURL.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using Answer = LoopbackTranslationServer::Answer;
using Behaviour = LoopbackTranslationServer::Behaviour;

Q_DECLARE_METATYPE(LoopbackTranslationServer::Answer)

namespace {

constexpr int kWaitMs = 15000;

// The popover as the user would see it: whether it is up, and every text it showed.
struct RecordingPresenter : TranslationPresenter
{
    bool shown = false;
    QStringList texts; // "open:<text>", "plain:<text>" or "gray:<text>", in order
    bool isPopoverShown() const override { return shown; }
    void displayPopOverWithText(const QString &text, const QPoint &) override
    {
        shown = true;
        texts << QStringLiteral("open:") + text;
    }
    void hidePopOver() override { shown = false; }
    void setAnimatedStringValue(const QString &text) override
    {
        texts << QStringLiteral("plain:") + text;
    }
    void setAnimatedGrayStringValue(const QString &text) override
    {
        texts << QStringLiteral("gray:") + text;
    }
    QPoint pointerPosition() const override { return {100, 100}; }
};

// The other application: the text it offers and what was pasted into it.
struct ScriptedTextSource : TextSource
{
    std::optional<QString> text;
    QStringList pasted;
    bool isBooksAppActive() override { return false; }
    std::optional<QString> getStringForBooksApp() override { return std::nullopt; }
    CapturedText getStringForCurrentUIElement() override { return {text, UIElement()}; }
    void pasteIntoApplicationThatContains(const UIElement &, const QString &t) override
    {
        pasted << t;
    }
};

} // namespace

class TestTranslationController : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_server = std::make_unique<LoopbackTranslationServer>();
        m_preferences = std::make_unique<Preferences>(m_dir->filePath("Tolkaro.conf"));
        m_client = std::make_unique<GoogleTranslateByURL>(m_server->baseUrl());
        m_languages = std::make_unique<LanguageSelection>(*m_preferences);
        m_languages->setLanguage(*LanguageTable::languageWithCode("de"));
        m_languages->setLanguage2(*LanguageTable::languageWithCode("ja"));
        m_presenter = std::make_unique<RecordingPresenter>();
        m_source = std::make_unique<ScriptedTextSource>();
        m_source->text = "Hello"; // what the pointer is over, unless a test says otherwise
        m_controller = std::make_unique<TranslationController>(
            *m_client, *m_languages, *m_preferences, *m_presenter, *m_source);
        m_events.clear();
        m_controller->setUsageReport([this](const QString &event, const QVariantMap &fields) {
            m_events << event + QLatin1Char(':') + fields.value("counter").toString();
        });
    }

    void cleanup()
    {
        m_controller.reset();
        m_client.reset();
        m_server.reset();
    }

    void gestureShowsSourceThenAnswer_data()
    {
        DataRows::addColumns<QString, Answer, QString, QString, bool, QString>(
            "captured", "answer", "shownSource", "shownAnswer", "kept", "event");

        // A plain text shown and translated is the gesture desktop test's; here, the edges.
        const auto echoed = [](const char *name, const QString &captured, const QString &shown) {
            QTest::newRow(name) << captured << Answer::echo() << shown
                                << "plain:" + LoopbackTranslationServer::echoTranslation(shown)
                                << true << "translationHasBeenMadeAnalytics:1";
        };
        echoed("empty text is sent like any other", "", "");
        echoed("exactly 1500 units kept whole", QString(1500, u'a'), QString(1500, u'a'));
        echoed("1501 units cut to 1500 and dots", QString(1501, u'b'), QString(1500, u'b') + "...");
        QTest::newRow("malformed answer shows the error in gray")
            << "Hello" << Answer::of(Behaviour::Garbage) << "Hello"
            << "gray:Unable to translate text." << false << "translationError:1";
    }

    void gestureShowsSourceThenAnswer()
    {
        auto [captured, answer, shownSource, shownAnswer, kept, event] =
            DataRows::fetch<QString, Answer, QString, QString, bool, QString>(
                "captured", "answer", "shownSource", "shownAnswer", "kept", "event");

        m_server->setDefaultAnswer(answer);
        m_source->text = captured;
        pressAndWaitForAnswer();

        QCOMPARE(m_presenter->texts, QStringList({"open:" + shownSource, shownAnswer}));
        QCOMPARE(m_server->requestCount(), 1);
        QVERIFY(m_server->requests().first().target().contains("&tl=de&"));
        QCOMPARE(m_controller->lastTranslatedText().has_value(), kept);
        QCOMPARE(m_controller->getTranslationsCounter(), 1);
        QCOMPARE(m_events, QStringList{event});
    }

    void noTextShowsMessageAndSendsNothing()
    {
        pressAndWaitForAnswer();
        QVERIFY(m_controller->lastTranslatedText());

        m_presenter->hidePopOver();
        m_presenter->texts.clear();
        m_source->text.reset();
        m_controller->controlDoublePressed(false);
        QCOMPARE(m_presenter->texts,
                 QStringList({"open:No text to translate", "gray:No text to translate"}));
        QVERIFY(!m_controller->lastTranslatedText());
        QTest::qWait(200);
        QCOMPARE(m_server->requestCount(), 1);
    }

    void releaseWhilePendingHidesAndCountsTheCancel()
    {
        pressAndWaitForAnswer();
        QVERIFY(m_controller->lastTranslatedText());

        m_server->setDefaultAnswer(Answer::of(Behaviour::Silent));
        QSignalSpy shown(m_controller.get(), &TranslationController::translationShown);
        m_controller->controlDoublePressed(false);
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requestCount(), 2, kWaitMs);
        m_controller->controlDoublePressReleased();
        QVERIFY(!m_presenter->isPopoverShown());
        QVERIFY(shown.wait(kWaitMs));

        // The cancelled request still ends as a failure: counted, reported, translation dropped.
        QCOMPARE(m_presenter->texts.last(), QStringLiteral("gray:NSURLResponse's data is nil"));
        QVERIFY(!m_controller->lastTranslatedText());
        QCOMPARE(m_controller->getTranslationsCounter(), 2);
        QCOMPARE(m_events.last(), QStringLiteral("translationError:2"));
    }

    void optionPastesOnlyAKeptTranslation()
    {
        m_controller->altPressedWhenControlIsDoublePressed();
        QVERIFY(m_source->pasted.isEmpty());

        pressAndWaitForAnswer();
        m_controller->altPressedWhenControlIsDoublePressed();
        QCOMPARE(m_source->pasted,
                 QStringList{LoopbackTranslationServer::echoTranslation("Hello")});
    }

    void actionsDriveTheTranslation_data()
    {
        // actions: which keys make them is the gesture test's
        // languages: those of the requests, in order
        DataRows::addColumns<QString, QStringList, bool, bool>("actions", "languages", "pasted",
                                                               "shownAtEnd");

        QTest::newRow("released") << "translate hide" << QStringList{"de"} << false << false;
        QTest::newRow("with the alternative key held")
            << "translateAlt" << QStringList{"ja"} << false << true;
        QTest::newRow("alternative key pressed and released while held: popover stays")
            << "translate againAlt again" << QStringList{"de", "ja", "de"} << false << true;
        QTest::newRow("left Alt while held pastes")
            << "translate paste" << QStringList{"de"} << true << true;
    }

    void actionsDriveTheTranslation()
    {
        auto [actions, languages, pasted, shownAtEnd] =
            DataRows::fetch<QString, QStringList, bool, bool>("actions", "languages", "pasted",
                                                              "shownAtEnd");

        // The paste needs a translation kept from an earlier gesture.
        pressAndWaitForAnswer();
        m_presenter->hidePopOver();
        m_presenter->texts.clear();

        // A request cancelled at once may never reach the server: the client's word counts.
        QStringList sent;
        tolkaro::setLogSink([&sent](const QString &line) {
            static const QRegularExpression translating(
                QStringLiteral("^Translating .* into (\\S+)$"));
            if (const QRegularExpressionMatch match = translating.match(line); match.hasMatch())
                sent << match.captured(1);
        });
        GestureActions &gesture = *m_controller;
        for (const QString &action : actions.split(QLatin1Char(' '))) {
            if (action.startsWith("translate"))
                gesture.controlDoublePressed(action.endsWith("Alt"));
            else if (action.startsWith("again"))
                gesture.alternativeLanguageSwitched(action.endsWith("Alt"));
            else if (action == "paste")
                gesture.altPressedWhenControlIsDoublePressed();
            else
                gesture.controlDoublePressReleased();
        }
        tolkaro::setLogSink({});
        QCOMPARE(sent, languages);
        QCOMPARE(m_presenter->texts.filter(QRegularExpression("^open:")).size(), 1);
        QCOMPARE(m_source->pasted.size(), pasted ? 1 : 0);
        QCOMPARE(m_presenter->isPopoverShown(), shownAtEnd);
    }

private:
    // Runs one gesture's press and waits for the answer to be shown.
    void pressAndWaitForAnswer()
    {
        QSignalSpy shown(m_controller.get(), &TranslationController::translationShown);
        m_controller->controlDoublePressed(false);
        QVERIFY(shown.wait(kWaitMs));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<LoopbackTranslationServer> m_server;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<GoogleTranslateByURL> m_client;
    std::unique_ptr<LanguageSelection> m_languages;
    std::unique_ptr<RecordingPresenter> m_presenter;
    std::unique_ptr<ScriptedTextSource> m_source;
    std::unique_ptr<TranslationController> m_controller;
    QStringList m_events;
};

QTEST_GUILESS_MAIN(TestTranslationController)
#include "tst_translationcontroller.moc"
