#include "DataRows.h"

#include "platform/kwin/KWinScript.h"

#include <QTest>

// What the KWin script reports, read back: the window under a point and bad reports.
class TestKWinScript : public QObject
{
    Q_OBJECT

private slots:
    void windowUnderPoint_data()
    {
        DataRows::addColumns<QPoint, qint64>("point", "expectedPid"); // pid 0: none
        QTest::newRow("the upper of two overlapping windows") << QPoint(300, 300) << qint64(20);
        QTest::newRow("the lower where only it lies") << QPoint(50, 50) << qint64(10);
        QTest::newRow("our own window is passed over") << QPoint(900, 100) << qint64(10);
        QTest::newRow("outside every window") << QPoint(1200, 700) << qint64(0);
    }
    void windowUnderPoint()
    {
        auto [point, expectedPid] = DataRows::fetch<QPoint, qint64>("point", "expectedPid");
        const auto windows = KWinScript::parseWindows(QStringLiteral(
            R"([{"pid":10,"x":0,"y":0,"width":1000,"height":600,"stacking":1,"x11":true},
                {"pid":20,"x":200,"y":200,"width":400,"height":300,"bufferX":200,"bufferY":230,"stacking":2},
                {"pid":99,"x":800,"y":0,"width":200,"height":200,"stacking":3},
                {"pid":30,"x":1100,"y":650,"width":0,"height":0,"stacking":4}])"));
        QVERIFY(windows);
        const auto top = KWinScript::topmostAt(*windows, point, 99);
        QCOMPARE(top ? top->pid : 0, expectedPid);
        if (top && top->pid == 20) // under a decoration 30 pixels high
            QCOMPARE(top->surfaceOrigin, QPoint(200, 230));
    }

    void badReportIsRefused()
    {
        QVERIFY(!KWinScript::parseWindows(QStringLiteral("{\"pid\":1}")));
        QVERIFY(!KWinScript::parseWindows(QStringLiteral("[{\"pid\":1,")));
    }

    void scriptCallsBackOurName()
    {
        const QString source = KWinScript::scriptSource(QStringLiteral(":1.42"));
        QVERIFY(source.contains(u"\":1.42\""));
        QVERIFY(!source.contains(u'@'));
    }

    // The id goes into the script's source: only a KWin id (a UUID) may.
    void activationScriptTakesOnlyAWindowId_data()
    {
        DataRows::addColumns<QString, bool>("id", "kept");
        QTest::newRow("KWin's id") << "{0a1b2c3d-4e5f-6789-abcd-ef0123456789}" << true;
        QTest::newRow("a quote breaking out") << "\"; workspace.activeClient = null; \"" << false;
    }
    void activationScriptTakesOnlyAWindowId()
    {
        auto [id, kept] = DataRows::fetch<QString, bool>("id", "kept");
        const QString source = KWinScript::activationSource(id, 4194323);
        QCOMPARE(source.contains(QStringLiteral("var wanted = \"%1\";").arg(id)), kept);
        QVERIFY(source.contains(u"var wantedX11 = 4194323;"));
    }
};

QTEST_GUILESS_MAIN(TestKWinScript)
#include "tst_kwinscript.moc"
