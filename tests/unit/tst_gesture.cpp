#include "common/Log.h"
#include "gesture/ModifierGestureDetector.h"

#include <QSet>
#include <QTest>

using namespace ModifierKeys;
using Clock = std::chrono::system_clock;

namespace {

// Writes down every action in order. A translation is recorded with the language the
// controller would pick at that moment, read from the detector like the controller does.
class RecordingActions : public GestureActions
{
public:
    const ModifierGestureDetector *detector = nullptr;
    QStringList calls;

    void controlDoublePressed() override
    {
        calls << (detector->fnIsPressed() ? QStringLiteral("translateAlt")
                                          : QStringLiteral("translate"));
    }
    void controlDoublePressReleased() override { calls << QStringLiteral("hide"); }
    void altPressedWhenControlIsDoublePressed() override { calls << QStringLiteral("paste"); }
    void fnKeyPressed() override { calls << QStringLiteral("fnPressed"); }
    void fnKeyReleased() override { calls << QStringLiteral("fnReleased"); }
};

const Clock::time_point kLaunchTime = Clock::from_time_t(1'700'000'000);

struct Key
{
    const char *name;
    quint16 keyCode;
};
constexpr Key kKeys[] = {
    {"LC", kLeftControlKeyCode}, {"RC", kRightControlKeyCode}, {"LO", kLeftOptionKeyCode},
    {"RO", kRightOptionKeyCode}, {"FN", kFnKeyCode},           {"SH", 56},
};

// Turns a script of key changes into the events a key monitor would deliver, with the
// flags derived from the keys held after each change. "+LC@1200" is the left Control key
// going down 1.2 s after launch; "-RO@1300" the right Option key going up.
QList<ModifierEvent> eventsFromScript(const QString &script)
{
    QList<ModifierEvent> events;
    QSet<QString> held;
    for (const QString &step : script.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const bool down = step.startsWith(QLatin1Char('+'));
        const QString name = step.mid(1, 2);
        const int milliseconds = step.mid(4).toInt();
        const auto key = std::find_if(std::begin(kKeys), std::end(kKeys),
                                      [&](const Key &k) { return name == QLatin1String(k.name); });
        if (key == std::end(kKeys) || step.at(3) != QLatin1Char('@'))
            qFatal("bad script step %s", qPrintable(step));
        if (down)
            held.insert(name);
        else
            held.remove(name);

        ModifierEvent event;
        if (held.contains(QStringLiteral("LC")) || held.contains(QStringLiteral("RC")))
            event.modifierFlags |= kControlFlag;
        if (held.contains(QStringLiteral("LO")) || held.contains(QStringLiteral("RO")))
            event.modifierFlags |= kOptionFlag;
        if (held.contains(QStringLiteral("FN")))
            event.modifierFlags |= kFnFlag;
        event.keyCode = key->keyCode;
        event.time = kLaunchTime + std::chrono::milliseconds(milliseconds);
        events << event;
    }
    return events;
}

} // namespace

class TestGesture : public QObject
{
    Q_OBJECT
private slots:
    void actionsFollowTheKeys_data();
    void actionsFollowTheKeys();
};

void TestGesture::actionsFollowTheKeys_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("expectedCalls");

    // The double press itself.
    QTest::newRow("press, release, press and hold") << "+LC@1000 -LC@1100 +LC@1200"
                                                    << "translate";
    QTest::newRow("exactly 0.4 s apart") << "+LC@1000 -LC@1100 +LC@1400 -LC@2000"
                                         << "translate hide";
    QTest::newRow("0.41 s apart") << "+LC@1000 -LC@1100 +LC@1410 -LC@2000"
                                  << "";
    QTest::newRow("slow press, then a quick pair") << "+LC@1000 -LC@1100 +LC@2000 -LC@2100 +LC@2300"
                                                   << "translate";
    QTest::newRow("within 0.4 s of launch") << "+LC@400"
                                            << "translate";
    QTest::newRow("0.41 s after launch") << "+LC@410 -LC@500"
                                         << "";
    QTest::newRow("clock goes backwards") << "+LC@5000 -LC@5100 +LC@3000"
                                          << "translate";

    // Only the left keys take part.
    QTest::newRow("right Control twice") << "+RC@1000 -RC@1100 +RC@1200 -RC@1300"
                                         << "";
    QTest::newRow("right then left Control quickly") << "+RC@1000 -RC@1100 +LC@1200"
                                                     << "";
    QTest::newRow("release left while right held counts as a press") << "+RC@1000 +LC@1100 -LC@1300"
                                                                     << "translate";
    QTest::newRow("release left while right held keeps the gesture")
        << "+LC@1000 -LC@1100 +RC@1150 +LC@1200 -LC@1500 -RC@1600 +LC@3000 -LC@3100"
        << "translate hide";

    // While held, the timestamp stays on the completing press.
    QTest::newRow("third press right after release")
        << "+LC@1000 -LC@1100 +LC@1200 -LC@1300 +LC@1500 -LC@1600 +LC@1700"
        << "translate hide translate hide translate";
    QTest::newRow("left Control events while held keep the timestamp")
        << "+LC@1000 -LC@1100 +LC@1200 +RC@1300 -LC@1350 +LC@1700 -RC@1750 -LC@1800 +LC@1900"
        << "translate hide";

    // Option pastes on its press only, and only the left one while held.
    QTest::newRow("Option while held") << "+LC@1000 -LC@1100 +LC@1200 +LO@1500 -LO@1600 -LC@2000"
                                       << "translate paste hide";
    QTest::newRow("right Option while held")
        << "+LC@1000 -LC@1100 +LC@1200 +RO@1500 -RO@1600 -LC@2000"
        << "translate hide";
    QTest::newRow("Option while idle with Control down") << "+LC@1000 +LO@1100 -LO@1200"
                                                         << "";
    QTest::newRow("Option held before the double press")
        << "+LO@900 +LC@1000 -LC@1100 +LC@1200 +SH@1300 -LC@1400"
        << "translate hide";

    // fn runs first on every event.
    QTest::newRow("fn while idle") << "+FN@1000 -FN@1100"
                                   << "fnPressed fnReleased";
    QTest::newRow("fn while held") << "+LC@1000 -LC@1100 +LC@1200 +FN@1500 -FN@1800 -LC@2000"
                                   << "translate fnPressed translateAlt fnReleased translate hide";
    QTest::newRow("Option while held with fn held")
        << "+LC@1000 -LC@1100 +LC@1200 +FN@1300 +LO@1500 -LO@1600 -FN@1700 -LC@2000"
        << "translate fnPressed translateAlt fnPressed translateAlt paste fnPressed translateAlt "
           "fnReleased translate hide";
    QTest::newRow("Control released with fn held")
        << "+LC@1000 -LC@1100 +LC@1200 +FN@1300 -LC@1500 -FN@1600"
        << "translate fnPressed translateAlt fnPressed translateAlt hide fnReleased";
    QTest::newRow("double press while fn held")
        << "+FN@900 +LC@1000 -LC@1100 +LC@1200 -LC@1500 -FN@1600"
        << "fnPressed fnPressed fnPressed fnPressed translateAlt fnPressed translateAlt hide "
           "fnReleased";
}

void TestGesture::actionsFollowTheKeys()
{
    QFETCH(QString, script);
    QFETCH(QString, expectedCalls);

    tolkaro::setLogSink([](const QString &) {});
    RecordingActions actions;
    ModifierGestureDetector detector(actions);
    actions.detector = &detector;
    detector.setLastControlKeyPressedTime(kLaunchTime);

    for (const ModifierEvent &event : eventsFromScript(script))
        detector.keyboardTapEvent(event);
    tolkaro::setLogSink({});

    QCOMPARE(actions.calls.join(QLatin1Char(' ')), expectedCalls);
}

QTEST_APPLESS_MAIN(TestGesture)
#include "tst_gesture.moc"
