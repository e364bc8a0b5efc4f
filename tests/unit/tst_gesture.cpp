#include "DataRows.h"
#include "common/Log.h"

#include "gesture/ModifierGestureDetector.h"
#include "text/CopiedPassage.h"
#include "text/TextCut.h"

#include <QTest>

using Clock = std::chrono::steady_clock;

namespace {

// Writes down every action in order: a left Control press that may begin a double press (the
// controller opens the translator's connection then), a translation with its language, a
// translation again on a change of the alternative-language key, the paste and the release.
class RecordingActions : public GestureActions
{
public:
    QStringList calls;

    void controlPressedOnce() override { calls << QStringLiteral("once"); }

    void controlDoublePressed(bool alternative) override
    {
        calls << (alternative ? QStringLiteral("translateAlt") : QStringLiteral("translate"));
    }
    void alternativeLanguageSwitched(bool alternative) override
    {
        calls << (alternative ? QStringLiteral("againAlt") : QStringLiteral("again"));
    }
    void controlDoublePressReleased() override { calls << QStringLiteral("hide"); }
    void altPressedWhenControlIsDoublePressed() override { calls << QStringLiteral("paste"); }
};

const Clock::time_point kLaunchTime = Clock::time_point(std::chrono::hours(24));

const QHash<QString, GestureKey> kKeys = {{QStringLiteral("LC"), GestureKey::LeftControl},
                                          {QStringLiteral("RC"), GestureKey::RightControl},
                                          {QStringLiteral("LA"), GestureKey::LeftAlt},
                                          {QStringLiteral("RA"), GestureKey::RightAlt},
                                          {QStringLiteral("AL"), GestureKey::AlternativeLanguage}};

// Turns a script of key changes into the events a key source would deliver. "+LC@1200" is
// the left Control key going down 1.2 s after launch; "-RA@1300" the right Alt key going
// up; AL is the alternative-language key.
QList<GestureKeyEvent> eventsFromScript(const QString &script)
{
    QList<GestureKeyEvent> events;
    GestureKeys held;
    for (const QString &step : script.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QString name = step.mid(1, 2);
        if (!kKeys.contains(name) || step.at(3) != QLatin1Char('@'))
            qFatal("bad script step %s", qPrintable(step));
        const GestureKey key = kKeys.value(name);
        held.setFlag(key, step.startsWith(QLatin1Char('+')));
        events << GestureKeyEvent{key, held,
                                  kLaunchTime + std::chrono::milliseconds(step.mid(4).toInt())};
    }
    return events;
}

// Plays a script to a detector launched at kLaunchTime, its log lines dropped.
void play(RecordingActions &actions, const QString &script)
{
    tolkaro::setLogSink([](const QString &) {});
    ModifierGestureDetector detector(actions);
    detector.setLastControlKeyPressedTime(kLaunchTime);
    for (const GestureKeyEvent &event : eventsFromScript(script))
        detector.keyboardTapEvent(event);
    tolkaro::setLogSink({});
}

} // namespace

class TestGesture : public QObject
{
    Q_OBJECT
private slots:
    void actionsFollowTheKeys_data()
    {
        DataRows::addColumns<QString, QString>("script", "expectedCalls");
        const auto row = [](const char *name, const char *script, const char *calls) {
            QTest::newRow(name) << QString(script) << QString(calls);
        };

        // The double press itself, and the presses that may begin one.
        row("press, release, press and hold", "+LC@1000 -LC@1100 +LC@1200", "once translate");
        row("exactly 0.4 s apart", "+LC@1000 -LC@1100 +LC@1400 -LC@2000", "once translate hide");
        row("0.41 s apart: two first presses", "+LC@1000 -LC@1100 +LC@1410 -LC@2000", "once once");
        row("slow press, then a quick pair", "+LC@1000 -LC@1100 +LC@2000 -LC@2100 +LC@2300",
            "once once translate");
        row("within 0.4 s of launch", "+LC@400", "translate");
        row("0.41 s after launch", "+LC@410 -LC@500", "once");

        // Only the left keys take part.
        row("right Control twice", "+RC@1000 -RC@1100 +RC@1200 -RC@1300", "");
        row("right then left Control quickly", "+RC@1000 -RC@1100 +LC@1200", "once");
        row("release left while right held counts as a press", "+RC@1000 +LC@1100 -LC@1300",
            "once translate");
        row("release left while right held keeps the gesture",
            "+LC@1000 -LC@1100 +RC@1150 +LC@1200 -LC@1500 -RC@1600 +LC@3000 -LC@3100",
            "once translate hide");

        // While held, the timestamp stays on the completing press.
        row("third press right after release",
            "+LC@1000 -LC@1100 +LC@1200 -LC@1300 +LC@1500 -LC@1600 +LC@1700",
            "once translate hide translate hide translate");
        row("left Control events while held keep the timestamp",
            "+LC@1000 -LC@1100 +LC@1200 +RC@1300 -LC@1350 +LC@1700 -RC@1750 -LC@1800 +LC@1900",
            "once translate hide once");

        // Alt pastes on its press only, and only the left one while held.
        row("Alt while held", "+LC@1000 -LC@1100 +LC@1200 +LA@1500 -LA@1600 -LC@2000",
            "once translate paste hide");
        row("right Alt while held", "+LC@1000 -LC@1100 +LC@1200 +RA@1500 -RA@1600 -LC@2000",
            "once translate hide");
        row("Alt while idle with Control down", "+LC@1000 +LA@1100 -LA@1200", "once");
        row("Alt held before the double press", "+LA@900 +LC@1000 -LC@1100 +LC@1200 -LC@1400",
            "once translate hide");

        // The alternative-language key runs first on every event.
        row("alternative key while idle", "+AL@1000 -AL@1100", "");
        row("alternative key while held", "+LC@1000 -LC@1100 +LC@1200 +AL@1500 -AL@1800 -LC@2000",
            "once translate againAlt again hide");
        row("Alt while held with the alternative key held",
            "+LC@1000 -LC@1100 +LC@1200 +AL@1300 +LA@1500 -LA@1600 -AL@1700 -LC@2000",
            "once translate againAlt againAlt paste againAlt again hide");
        row("Control released with the alternative key held",
            "+LC@1000 -LC@1100 +LC@1200 +AL@1300 -LC@1500 -AL@1600",
            "once translate againAlt againAlt hide");
        row("double press while the alternative key is held",
            "+AL@900 +LC@1000 -LC@1100 +LC@1200 -LC@1500 -AL@1600",
            "once translateAlt againAlt hide");
    }

    void actionsFollowTheKeys()
    {
        auto [script, expectedCalls] = DataRows::fetch<QString, QString>("script", "expectedCalls");
        RecordingActions actions;
        play(actions, script);
        QCOMPARE(actions.calls.join(QLatin1Char(' ')), expectedCalls);
    }

    // The rules for the text a gesture finds.
    // The plain 1500 and 300 boundaries are checked where the texts are sent: in the translation
    // controller and typing panel tests.
    void cutCountsCodeUnits()
    {
        // Code units, not characters: an emoji straddling the limit loses its second half.
        const QString endsInEmoji = QString(1499, u'a') + QString::fromUtf8("😀");
        QCOMPARE(::cutText(endsInEmoji, kGestureTextLimit), endsInEmoji.left(1500) + "...");
    }

    void cleanUpCopiedPassage_data()
    {
        DataRows::addColumns<QString, QString>("copied", "expected");
        const auto row = [](const char *name, const QString &copied, const QString &expected) {
            QTest::newRow(name) << copied << expected;
        };

        row("quoted passage and attribution", "“The passage.”\n\nExcerpt From\nA Book\nAn Author",
            "The passage.");
        row("no blank line: untouched, quotes included", "“Hello”\nAn Author",
            "“Hello”\nAn Author");
        row("the last blank line counts", "“First.\n\nSecond.”\n\nAn Author", "First.\n\nSecond.");
        row("white space around the quotes", " \n“Passage” \t\n\nAn Author", "Passage");
        row("only a quotation mark", "“\n\nAn Author", "");
    }

    void cleanUpCopiedPassage()
    {
        auto [copied, expected] = DataRows::fetch<QString, QString>("copied", "expected");

        const QString cleaned = ::cleanUpCopiedPassage(copied);
        QCOMPARE(cleaned, expected);
        QVERIFY(!cleaned.isNull());
    }
};

QTEST_APPLESS_MAIN(TestGesture)
#include "tst_gesture.moc"
