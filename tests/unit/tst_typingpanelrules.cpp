#include "typing/EditTimers.h"
#include "typing/TextGrowthRule.h"

#include <QSignalSpy>
#include <QTest>

class TestTypingPanelRules : public QObject
{
    Q_OBJECT
private slots:
    void textGrowth_data()
    {
        // The field's life, step by step: "begin" and "end" of editing, or "H=E": asked for its
        // size with the text measured H high (-1: no text layout to measure), it answers E high
        // and 200 wide (E 0: a zero size). The inherited size is 200 by 22.
        QTest::addColumn<QString>("steps");
        QTest::newRow("no text layout: the inherited height") << "begin -1=22";
        QTest::newRow("one to three lines follows the text") << "begin 17=17 34=34 51=51";
        QTest::newRow("exactly at the cap is accepted") << "begin 100=100";
        QTest::newRow("past the cap keeps the last height, then follows again")
            << "begin 85=85 102=85 170=85 68=68";
        QTest::newRow("first measurement above the cap answers zero") << "begin 120=0";
        QTest::newRow("outside editing the stored size stands")
            << "begin 34=34 end 68=34 begin 68=68";
        QTest::newRow("never measured: measures even outside editing") << "17=17 34=17";
    }

    void textGrowth()
    {
        QFETCH(QString, steps);
        TextGrowthRule rule;
        for (const QString &step : steps.split(u' ')) {
            if (step == u"begin" || step == u"end") {
                rule.setEditing(step == u"begin");
                continue;
            }
            const qreal measured = step.section(u'=', 0, 0).toDouble();
            const qreal height = step.section(u'=', 1).toDouble();
            const QSizeF expected = height == 0 ? QSizeF(0, 0) : QSizeF(200, height);
            QVERIFY2(rule.intrinsicSize(QSizeF(200, 22), measured) == expected, qPrintable(step));
        }
    }

    // Waiting for the last of a run of keys is the typing desktop test's.
    void quickEditsShareOneTranslation()
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
};

QTEST_GUILESS_MAIN(TestTypingPanelRules)
#include "tst_typingpanelrules.moc"
