#include "integration/MoveRules.h"

#include <QTest>

using MoveRules::MoveOffer;

class TestMoveRules : public QObject
{
    Q_OBJECT
private slots:
    void decideMoveOffer_data();
    void decideMoveOffer();
    void directories();
};

void TestMoveRules::decideMoveOffer_data()
{
    QTest::addColumn<QString>("selfPath");
    QTest::addColumn<bool>("suppressed");
    QTest::addColumn<int>("expected");

    const auto row = [](const char *name, const QString &path, bool suppressed, MoveOffer offer) {
        QTest::newRow(name) << path << suppressed << int(offer);
    };
    row("Downloads", "/home/u/Downloads/Tolkaro-x86_64.AppImage", false, MoveOffer::Offer);
    row("Downloads, suppressed", "/home/u/Downloads/Tolkaro.AppImage", true, MoveOffer::Suppressed);
    row("~/Applications", "/home/u/Applications/Tolkaro.AppImage", false,
        MoveOffer::AlreadyInApplications);
    row("/opt", "/opt/tolkaro/tolkaro", false, MoveOffer::AlreadyInApplications);
    // A plain prefix test: a sibling whose name starts like an applications directory counts.
    row("/optional is inside /opt", "/optional/tolkaro", false, MoveOffer::AlreadyInApplications);
    row("build directory", "/home/u/src/tolkaro/build/src/app/tolkaro", false,
        MoveOffer::DevelopmentBuild);
    row("BuIlD in mixed case inside a name", "/home/u/MyBuIlDs/tolkaro", false,
        MoveOffer::DevelopmentBuild);
    // Suppression is looked at first.
    row("build, suppressed", "/home/u/build/tolkaro", true, MoveOffer::Suppressed);
    // "build" is looked at right after the first directory, before the others.
    row("build below /opt", "/opt/build/tolkaro", false, MoveOffer::DevelopmentBuild);
    row("build below ~/Applications", "/home/u/Applications/build/tolkaro", false,
        MoveOffer::AlreadyInApplications);
    row("other user's Applications", "/home/other/Applications/Tolkaro.AppImage", false,
        MoveOffer::Offer);
}

void TestMoveRules::decideMoveOffer()
{
    QFETCH(QString, selfPath);
    QFETCH(bool, suppressed);
    QFETCH(int, expected);

    const QStringList directories = MoveRules::applicationsDirectories("/home/u");
    QCOMPARE(int(MoveRules::decideMoveOffer(selfPath, directories, suppressed)), expected);
}

void TestMoveRules::directories()
{
    // Where a real move lands is the move test's.
    QVERIFY(MoveRules::applicationsDestination("").isEmpty());
    // With no directory to compare with, "build" is never looked at.
    QCOMPARE(MoveRules::decideMoveOffer("/build/tolkaro", {}, false), MoveOffer::Offer);
}

QTEST_GUILESS_MAIN(TestMoveRules)
#include "tst_moverules.moc"
