// The GNOME Wayland key source's merge of the helper's modifier mask (no sides) with the
// accessibility keystroke listener (sides, but only from some windows): scripts of both, and
// the gesture keys that come out.

#include "platform/gnome/GnomeKeySource.h"
#include "platform/gnome/GnomeShellHelper.h"

#include <QtTest>

namespace {

class RunningHelper : public GnomeShellHelper
{
public:
    bool isRunning() const override { return true; }
    std::optional<Pointer> pointer() const override { return Pointer{}; }
};

// "m4": the mask becomes 4; "+RC"/"-RC": the listener reports right Control down/up (LC, LA,
// RA too); "w": a wait longer than the side grace.
const QHash<QString, GestureKey> kKeys = {{QStringLiteral("LC"), GestureKey::LeftControl},
                                          {QStringLiteral("RC"), GestureKey::RightControl},
                                          {QStringLiteral("LA"), GestureKey::LeftAlt},
                                          {QStringLiteral("RA"), GestureKey::RightAlt},
                                          {QStringLiteral("AL"), GestureKey::AlternativeLanguage}};

} // namespace

class TestGnomeKeySource : public QObject
{
    Q_OBJECT

private slots:
    void mergesTheMaskWithTheListener_data();
    void mergesTheMaskWithTheListener();
};

void TestGnomeKeySource::mergesTheMaskWithTheListener_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("expected");
    QTest::newRow("mask alone: a held Control counts as left") << "m4 w" << "+LC";
    QTest::newRow("mask alone: a tap shorter than the grace still counts") << "m4 m0" << "+LC -LC";
    QTest::newRow("the listener names the side first") << "+RC m4 w -RC m0" << "+RC -RC";
    QTest::newRow("a release the listener misses comes from the mask") << "+LC m4 w m0" << "+LC -LC";
    QTest::newRow("the listener's late release changes nothing") << "m4 m0 -LC" << "+LC -LC";
    QTest::newRow("a stale mask bit after the listener's release is no press")
        << "+LC m4 -LC m12 w" << "+LC -LC +LA";
    QTest::newRow("Alt, AltGr and the alternative key by their bits")
        << "m8 w m136 w m200 w m0" << "+LA +RA +AL -LA -RA -AL";
}

void TestGnomeKeySource::mergesTheMaskWithTheListener()
{
    QFETCH(QString, script);
    QFETCH(QString, expected);
    RunningHelper helper;
    GnomeKeySource source(helper, nullptr, QStringLiteral("Super_L"));
    QVERIFY(source.install());
    QStringList seen;
    connect(&source, &ModifierKeyMonitor::keyEvent, this, [&](const GestureKeyEvent &event) {
        seen << (event.isPress() ? u'+' : u'-') + kKeys.key(event.key);
    });
    GestureKeys listenerHeld;
    for (const QString &step : script.split(u' ')) {
        if (step == u"w") {
            QTest::qWait(GnomeKeySource::kSideGraceMs * 2);
        } else if (step.startsWith(u'm')) {
            source.modifiersChanged(step.mid(1).toUInt());
        } else {
            const GestureKey key = kKeys.value(step.mid(1));
            listenerHeld.setFlag(key, step.startsWith(u'+'));
            source.keystroke(GestureKeyEvent{key, listenerHeld, std::chrono::steady_clock::now()});
        }
    }
    QCOMPARE(seen.join(u' '), expected);
}

QTEST_GUILESS_MAIN(TestGnomeKeySource)
#include "tst_gnomekeysource.moc"
