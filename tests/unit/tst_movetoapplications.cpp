#include "common/Log.h"
#include "integration/MoveRules.h"
#include "settings/Preferences.h"
#include "system/MoveToApplications.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <unistd.h>

namespace {

// Answers the alerts as a user would, and counts them.
class ScriptedAlerts : public MoveAlerts
{
public:
    Answer answer;
    int questions = 0;
    int failures = 0;
    Answer askToMove() override
    {
        ++questions;
        return answer;
    }
    void showFailureAlert() override { ++failures; }
};

} // namespace

// A self-contained copy in ~/Downloads of a temporary $HOME, moved for real: real copies, the
// real freedesktop trash under $XDG_DATA_HOME, and a real start of the moved copy.
using MoveRules::MoveOffer;

class TestMoveToApplications : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void move_data();
    void move();
    void declineIsRemembered();
    void decideMoveOffer_data();
    void decideMoveOffer();

private:
    bool makeUnwritable(const QString &directory);
    QStringList trashedPaths() const;
    MoveEnvironment environment(ScriptedAlerts *alerts);

    std::unique_ptr<QTemporaryDir> m_root;
    std::unique_ptr<Preferences> m_preferences;
    QString m_home, m_self, m_applications, m_marker;
    QStringList m_unwritable;
    QStringList m_log;
};

void TestMoveToApplications::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    m_home = m_root->path() + "/home";
    QVERIFY(QDir().mkpath(m_home + "/Downloads"));
    QVERIFY(QDir().mkpath(m_home + "/.local/share"));
    QVERIFY(QDir().mkpath(m_home + "/.config"));
    qputenv("HOME", QFile::encodeName(m_home));
    qputenv("XDG_DATA_HOME", QFile::encodeName(m_home + "/.local/share"));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home + "/.config"));
    qunsetenv("APPIMAGE");
    m_applications = m_home + "/Applications";
    m_marker = m_root->path() + "/started";
    m_self = m_home + "/Downloads/Tolkaro-x86_64.AppImage";
    QFile self(m_self);
    QVERIFY(self.open(QIODevice::WriteOnly));
    self.write("#!/bin/sh\necho \"$0\" > '" + QFile::encodeName(m_marker) + "'\n");
    self.close();
    QVERIFY(self.setPermissions(self.permissions() | QFile::ExeOwner | QFile::ExeUser));
    m_preferences = std::make_unique<Preferences>(m_root->path() + "/Tolkaro.conf");
    m_log.clear();
    tolkaro::setLogSink([this](const QString &line) { m_log << line; });
}

void TestMoveToApplications::cleanup()
{
    tolkaro::setLogSink({});
    for (const QString &directory : std::as_const(m_unwritable)) {
        QProcess::execute("chattr", {"-i", directory});
        QFile::setPermissions(directory, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    m_unwritable.clear();
    m_preferences.reset();
    m_root.reset();
}

// Root ignores permissions, but not the immutable attribute.
bool TestMoveToApplications::makeUnwritable(const QString &directory)
{
    m_unwritable << directory;
    if (::geteuid() == 0)
        return QProcess::execute("chattr", {"+i", directory}) == 0;
    return QFile::setPermissions(directory, QFile::ReadOwner | QFile::ExeOwner);
}

QStringList TestMoveToApplications::trashedPaths() const
{
    QStringList paths;
    QDirIterator info(m_home + "/.local/share/Trash/info", {"*.trashinfo"}, QDir::Files);
    while (info.hasNext()) {
        QSettings trashInfo(info.next(), QSettings::IniFormat);
        paths << QUrl::fromPercentEncoding(trashInfo.value("Trash Info/Path").toByteArray());
    }
    paths.sort();
    return paths;
}

MoveEnvironment TestMoveToApplications::environment(ScriptedAlerts *alerts)
{
    MoveEnvironment environment = currentMoveEnvironment(m_preferences.get(), alerts);
    environment.selfPath = m_self;
    return environment;
}

void TestMoveToApplications::move_data()
{
    // "existing copy" in ~/Applications, "read-only" ~/Applications, "not startable" copy.
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<QStringList>("log"); // $D: the destination, $P: the running copy
    QTest::addColumn<QStringList>("trashed");
    QTest::addColumn<bool>("relaunched");

    const QString moving = "Moving myself to the Applications folder";
    QTest::newRow("moved, started from the new place")
        << "" << QStringList{moving} << QStringList{"$P"} << true;
    QTest::newRow("existing copy goes to the trash first")
        << "existing copy" << QStringList{moving} << QStringList{"$D", "$P"} << true;
    QTest::newRow("copy cannot be written")
        << "read-only"
        << QStringList{moving, "ERROR -- Could not copy myself to ~/Applications (*)"}
        << QStringList{} << false;
    QTest::newRow("moved copy does not start")
        << "not startable" << QStringList{moving, "ERROR -- Could not start '$D'"}
        << QStringList{"$P"} << false;
}

void TestMoveToApplications::move()
{
    QFETCH(QString, obstacle);
    QFETCH(QStringList, log);
    QFETCH(QStringList, trashed);
    QFETCH(bool, relaunched);

    const QString destination = m_applications + "/Tolkaro-x86_64.AppImage";
    ScriptedAlerts alerts;
    // The check box is ignored when the user chooses to move.
    alerts.answer = {true, true};
    MoveEnvironment moving = environment(&alerts);

    if (obstacle == "existing copy" || obstacle == "read-only")
        QVERIFY(QDir().mkpath(m_applications));
    if (obstacle == "existing copy") {
        QFile old(destination);
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("old copy") > 0);
    } else if (obstacle == "read-only" && !makeUnwritable(m_applications)) {
        QSKIP("cannot make a directory unwritable here");
    } else if (obstacle == "not startable") {
        QVERIFY(QFile::setPermissions(m_self, QFile::ReadOwner | QFile::WriteOwner));
    }

    // The moved copy waits for the old process to end: a process of the test stands in.
    QProcess oldProcess;
    oldProcess.start("sleep", {"300"});
    QVERIFY(oldProcess.waitForStarted());
    moving.relaunch = [&oldProcess](const QString &program) {
        return relaunchAfterExit(program, oldProcess.processId());
    };

    QCOMPARE(moveToApplicationsFolderIfNecessary(moving), relaunched);
    QVERIFY(!QFile::exists(m_marker));
    oldProcess.kill();
    QVERIFY(oldProcess.waitForFinished());

    QCOMPARE(alerts.questions, 1);
    QCOMPARE(alerts.failures, log.last().startsWith("ERROR") ? 1 : 0);
    const auto expand = [&](QStringList lines) {
        for (QString &line : lines)
            line.replace("$D", destination).replace("$P", m_self);
        return lines;
    };
    QCOMPARE(m_log.size(), log.size());
    for (qsizetype i = 0; i < log.size(); ++i) // "(*)": the system's reason follows
        QVERIFY2(m_log[i] == expand(log)[i] ||
                     (log[i].endsWith("(*)") && m_log[i].startsWith(log[i].chopped(2))),
                 qPrintable(m_log[i]));
    trashed = expand(trashed);
    trashed.sort();
    QCOMPARE(trashedPaths(), trashed);
    QVERIFY(!m_preferences->moveToApplicationsFolderAlertSuppress());

    if (trashed.contains(m_self)) {
        QVERIFY(!QFile::exists(m_self));
        QFile copy(destination);
        QVERIFY(copy.open(QIODevice::ReadOnly));
        QVERIFY(copy.readAll().contains(QFile::encodeName(m_marker)));
    }
    if (relaunched) {
        // The moved copy itself ran, from its new place.
        const auto startedAs = [this] {
            QFile marker(m_marker);
            return marker.open(QIODevice::ReadOnly)
                       ? QString::fromLocal8Bit(marker.readAll()).trimmed()
                       : QString();
        };
        QTRY_COMPARE_WITH_TIMEOUT(startedAs(), destination, 20000);
    } else {
        QVERIFY(!QFile::exists(m_marker));
    }
}

void TestMoveToApplications::declineIsRemembered()
{
    ScriptedAlerts alerts;
    // Declined without the box: asked again next time.
    alerts.answer = {false, false};
    QVERIFY(!moveToApplicationsFolderIfNecessary(environment(&alerts)));
    QVERIFY(!moveToApplicationsFolderIfNecessary(environment(&alerts)));
    QCOMPARE(alerts.questions, 2);
    QVERIFY(!m_preferences->moveToApplicationsFolderAlertSuppress());

    // Declined with the box: never asked again, and the answer is on disk.
    alerts.answer = {false, true};
    QVERIFY(!moveToApplicationsFolderIfNecessary(environment(&alerts)));
    QVERIFY(!moveToApplicationsFolderIfNecessary(environment(&alerts)));
    QCOMPARE(alerts.questions, 3);
    QVERIFY(Preferences(m_root->path() + "/Tolkaro.conf").moveToApplicationsFolderAlertSuppress());
    QVERIFY(QFile::exists(m_self));
}

void TestMoveToApplications::decideMoveOffer_data()
{
    QTest::addColumn<QString>("selfPath");
    QTest::addColumn<bool>("suppressed");
    QTest::addColumn<int>("expected");

    const auto row = [](const char *name, const QString &path, bool suppressed, MoveOffer offer) {
        QTest::newRow(name) << path << suppressed << int(offer);
    };
    row("Downloads", "/home/u/Downloads/Tolkaro-x86_64.AppImage", false, MoveOffer::Offer);
    row("~/Applications", "/home/u/Applications/Tolkaro.AppImage", false,
        MoveOffer::AlreadyInApplications);
    row("/opt", "/opt/tolkaro/tolkaro", false, MoveOffer::AlreadyInApplications);
    row("build directory", "/home/u/src/tolkaro/build/src/app/tolkaro", false,
        MoveOffer::DevelopmentBuild);
    // Suppression is looked at first, even before the build directory.
    row("build, suppressed", "/home/u/build/tolkaro", true, MoveOffer::Suppressed);
    // "build" is looked at right after the first directory, before the others.
    row("build below /opt", "/opt/build/tolkaro", false, MoveOffer::DevelopmentBuild);
    row("other user's Applications", "/home/other/Applications/Tolkaro.AppImage", false,
        MoveOffer::Offer);
}

void TestMoveToApplications::decideMoveOffer()
{
    QFETCH(QString, selfPath);
    QFETCH(bool, suppressed);
    QFETCH(int, expected);

    const QStringList directories = MoveRules::applicationsDirectories("/home/u");
    QCOMPARE(int(MoveRules::decideMoveOffer(selfPath, directories, suppressed)), expected);
}

QTEST_GUILESS_MAIN(TestMoveToApplications)
#include "tst_movetoapplications.moc"
