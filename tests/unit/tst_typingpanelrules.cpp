#include "typing/EditTimers.h"
#include "typing/TextGrowthRule.h"

#include <QSignalSpy>
#include <QTest>

class TestTypingPanelRules : public QObject
{
    Q_OBJECT
private slots:
    void textGrowth_data();
    void textGrowth();
    void quickEditsShareOneTranslation();
};

// One step of the field's life: start or stop editing, or ask for the size with the
// text's measured height (-1: no text layout to measure).
struct GrowthStep
{
    enum Kind
    {
        BeginEditing,
        EndEditing,
        Measure
    } kind;
    qreal usedTextHeight = -1.0;
    QSizeF expected;
};
Q_DECLARE_METATYPE(QList<GrowthStep>)

void TestTypingPanelRules::textGrowth_data()
{
    using S = GrowthStep;
    const QSizeF inherited(200.0, 22.0);
    auto begin = [] { return S{S::BeginEditing, -1.0, {}}; };
    auto end = [] { return S{S::EndEditing, -1.0, {}}; };
    auto measure = [](qreal height, QSizeF expected) { return S{S::Measure, height, expected}; };
    QTest::addColumn<QList<GrowthStep>>("steps");
    QTest::newRow("no text layout: the inherited height")
        << QList<S>{begin(), measure(-1.0, inherited)};
    QTest::newRow("one to three lines follows the text")
        << QList<S>{begin(), measure(17.0, {200.0, 17.0}), measure(34.0, {200.0, 34.0}),
                    measure(51.0, {200.0, 51.0})};
    QTest::newRow("exactly at the cap is accepted")
        << QList<S>{begin(), measure(100.0, {200.0, 100.0})};
    QTest::newRow("past the cap keeps the last height, then follows again")
        << QList<S>{begin(), measure(85.0, {200.0, 85.0}), measure(102.0, {200.0, 85.0}),
                    measure(170.0, {200.0, 85.0}), measure(68.0, {200.0, 68.0})};
    QTest::newRow("first measurement above the cap answers zero")
        << QList<S>{begin(), measure(120.0, {0.0, 0.0})};
    QTest::newRow("outside editing the stored size stands")
        << QList<S>{begin(), measure(34.0, {200.0, 34.0}), end(), measure(68.0, {200.0, 34.0}),
                    begin(), measure(68.0, {200.0, 68.0})};
    QTest::newRow("never measured: measures even outside editing")
        << QList<S>{measure(17.0, {200.0, 17.0}), measure(34.0, {200.0, 17.0})};
}

void TestTypingPanelRules::textGrowth()
{
    QFETCH(QList<GrowthStep>, steps);
    TextGrowthRule rule;
    int index = 0;
    for (const GrowthStep &step : steps) {
        switch (step.kind) {
        case GrowthStep::BeginEditing:
            rule.setEditing(true);
            break;
        case GrowthStep::EndEditing:
            rule.setEditing(false);
            break;
        case GrowthStep::Measure:
            QVERIFY2(rule.intrinsicSize(QSizeF(200.0, 22.0), step.usedTextHeight) == step.expected,
                     qPrintable(QStringLiteral("step %1").arg(index)));
            break;
        }
        ++index;
    }
}

// Waiting for the last of a run of keys is the typing desktop test's.
void TestTypingPanelRules::quickEditsShareOneTranslation()
{
    EditTimers timers;
    QSignalSpy relayouts(&timers, &EditTimers::relayoutDue);
    QSignalSpy finished(&timers, &EditTimers::editingFinished);
    // Three letters typed without the event loop running in between.
    timers.textDidChange();
    timers.textDidChange();
    timers.textDidChange();
    QTRY_COMPARE(finished.count(), 1);
    QCOMPARE(relayouts.count(), 1);
    // Nothing more is queued behind the one that fired; a later edit lays out again.
    QTest::qWait(2 * int(EditTimers::kEditingFinishedDelay.count()));
    QCOMPARE(finished.count(), 1);
    QCOMPARE(relayouts.count(), 1);
    timers.textDidChange();
    QTRY_COMPARE(relayouts.count(), 2);
}

QTEST_GUILESS_MAIN(TestTypingPanelRules)
#include "tst_typingpanelrules.moc"
