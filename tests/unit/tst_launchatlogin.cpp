#include "DataRows.h"
#include "common/Log.h"

#include "integration/DesktopEntry.h"
#include "integration/MoveRules.h"
#include "settings/Preferences.h"
#include "system/LaunchAtLoginController.h"
#include "system/MoveToApplications.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
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

using MoveRules::MoveOffer;

// Where Tolkaro stands in the user's home: its autostart entries, and the move of a copy in
// ~/Downloads to ~/Applications, for real (real copies, the real freedesktop trash under
// $XDG_DATA_HOME, a real start of the moved copy). Every test runs with its own $HOME,
// $XDG_CONFIG_HOME and $XDG_DATA_HOME, and with executables of its own standing in for
// Tolkaro and for other programs.
class TestLaunchAtLogin : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        m_root = std::make_unique<QTemporaryDir>();
        QVERIFY(m_root->isValid());
        for (const char *dir : {"config", "data", "home/Downloads", "bin"})
            QVERIFY(QDir(m_root->path()).mkpath(dir));
        m_home = m_root->path() + "/home";
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_root->path() + "/config"));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_root->path() + "/data"));
        qputenv("HOME", QFile::encodeName(m_home));
        qunsetenv("APPIMAGE");
        m_savedPath = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(m_root->path() + "/bin") + ":" + m_savedPath);
        m_self = makeExecutable(m_root->path() + "/bin/tolkaro");
        m_other = makeExecutable(m_root->path() + "/bin/other-program");

        m_applications = m_home + "/Applications";
        m_marker = m_root->path() + "/started";
        // The copy that moves writes where it was started from into the marker.
        m_appImage = makeExecutable(m_home + "/Downloads/Tolkaro-x86_64.AppImage",
                                    "echo \"$0\" > '" + QFile::encodeName(m_marker) + "'\n");
        QVERIFY(!m_appImage.isEmpty());
        m_preferences = std::make_unique<Preferences>(m_root->path() + "/Tolkaro.conf");
        m_log.clear();
        tolkaro::setLogSink([this](const QString &line) { m_log << line; });
    }

    void cleanup()
    {
        tolkaro::setLogSink({});
        for (const QString &directory : std::as_const(m_unwritable)) {
            QProcess::execute("chattr", {"-i", directory});
            QFile::setPermissions(directory,
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
        m_unwritable.clear();
        qputenv("PATH", m_savedPath);
        m_preferences.reset();
        m_root.reset();
    }

    void setLaunchAtLogin_data()
    {
        // How an Exec line is split is checked below.
        // Entries on disk before, as "file name|Exec value|extra lines"; $SELF, $OTHER, $ROOT
        // stand for our executable, another one, and the test's root.
        DataRows::addColumns<QStringList, bool, bool, bool, QStringList>(
            "before", "enable", "onBefore", "onAfter", "filesAfter");

        const QString own = "tolkaro.desktop|$SELF|";
        // Turning it on with no entry is the tray desktop test's first launch.
        QTest::newRow("on twice: one entry")
            << QStringList{own} << true << true << true << QStringList{"tolkaro.desktop"};
        QTest::newRow("two own entries, off removes only the first")
            << QStringList{own, "zz-copy.desktop|$SELF|"} << false << true << true
            << QStringList{"zz-copy.desktop"};
        QTest::newRow("own entry by name on $PATH, off")
            << QStringList{"tolkaro.desktop|tolkaro --typing-mode|"} << false << true << false
            << QStringList{};
        QTest::newRow("own entry through a symbolic link, off")
            << QStringList{"tolkaro.desktop|$ROOT/link/tolkaro|"} << false << true << false
            << QStringList{};
        QTest::newRow("entry of a moved copy does not count, on")
            << QStringList{"tolkaro.desktop|$ROOT/Downloads/tolkaro|"} << true << false << true
            << QStringList{"tolkaro-2.desktop", "tolkaro.desktop"};
        QTest::newRow("another program's entry stays, off")
            << QStringList{"other.desktop|$OTHER|"} << false << false << false
            << QStringList{"other.desktop"};
        // Hidden=true is the change notification's case below.
        QTest::newRow("own entry switched off by GNOME is off; on switches it on in place")
            << QStringList{"tolkaro.desktop|$SELF|X-GNOME-Autostart-enabled=false"} << true << false
            << true << QStringList{"tolkaro.desktop"};
    }

    void setLaunchAtLogin()
    {
        auto [before, enable, onBefore, onAfter, filesAfter] =
            DataRows::fetch<QStringList, bool, bool, bool, QStringList>(
                "before", "enable", "onBefore", "onAfter", "filesAfter");

        QVERIFY(QDir(m_root->path()).mkpath("link"));
        QVERIFY(QFile::link(m_self, m_root->path() + "/link/tolkaro"));
        for (const QString &described : before) {
            const QStringList parts = described.split('|');
            QString exec = parts[1];
            exec.replace("$SELF", m_self)
                .replace("$OTHER", m_other)
                .replace("$ROOT", m_root->path());
            writeEntry(parts[0], "Tolkaro", exec, parts[2]);
        }

        LaunchAtLoginController controller;
        QCOMPARE(controller.willLaunchAtLogin(m_self), onBefore);
        controller.setLaunchAtLogin(enable, m_self);
        QCOMPARE(controller.willLaunchAtLogin(m_self), onAfter);
        QCOMPARE(entryFiles(), filesAfter);
        // Another program's question is never answered by our entries.
        QCOMPARE(controller.willLaunchAtLogin(m_other), before.contains("other.desktop|$OTHER|"));
    }

    // Inside an AppImage the AppImage is what starts at login, and the entries an AppImage of
    // that name left behind are cleared by its name: whole, and with its case.
    void appImageEntries()
    {
        const QString appImage = makeExecutable(m_root->path() + "/bin/Tolkaro x86_64.AppImage");
        qputenv("APPIMAGE", QFile::encodeName(appImage));
        QCOMPARE(LaunchAtLoginController::appURL(), appImage);
        writeEntry("gone-1.desktop", "Tolkaro x86_64", "/gone/Tolkaro-x86_64.AppImage");
        writeEntry("gone-2.desktop", "Tolkaro x86_64", "/gone/tolkaro");
        writeEntry("longer.desktop", "Tolkaro x86_64 2", m_other);
        writeEntry("case.desktop", "tolkaro x86_64", m_other);

        LaunchAtLoginController controller;
        controller.clearBrokenItems();
        QCOMPARE(entryFiles(), (QStringList{"case.desktop", "longer.desktop"}));
        controller.setLaunchAtLogin(true);
        QVERIFY(controller.launchAtLogin());
        QVERIFY(controller.findItemWithURL(appImage).has_value());
        QVERIFY(!controller.findItemWithURL(m_self).has_value());
    }

    void changeNotification_data()
    {
        QTest::addColumn<bool>("directoryExists");

        QTest::newRow("autostart directory exists") << true;
        QTest::newRow("autostart directory appears") << false;
    }

    void changeNotification()
    {
        QFETCH(bool, directoryExists);

        if (directoryExists)
            QVERIFY(QDir().mkpath(autostart()));
        LaunchAtLoginController controller;
        QSignalSpy changed(&controller, &LaunchAtLoginController::launchAtLoginChanged);

        // Another program (a session settings tool) adds our entry.
        writeEntry("tolkaro.desktop", "Tolkaro", m_self);
        QVERIFY(changed.wait(10000));
        QVERIFY(controller.willLaunchAtLogin(m_self));

        // ...and later switches it off by editing it in place.
        QCoreApplication::processEvents();
        changed.clear();
        QFile file(autostart() + "/tolkaro.desktop");
        QVERIFY(file.open(QIODevice::Append));
        file.write("Hidden=true\n");
        file.close();
        QVERIFY(changed.wait(10000));
        QVERIFY(!controller.willLaunchAtLogin(m_self));
    }

    void splitExec_data()
    {
        DataRows::addColumns<QString, bool, QStringList>("exec", "valid", "expected");

        QTest::newRow("bare name") << "tolkaro" << true << QStringList{"tolkaro"};
        QTest::newRow("path and arguments, runs of spaces")
            << "/usr/bin/tolkaro  --typing-mode   -v" << true
            << QStringList{"/usr/bin/tolkaro", "--typing-mode", "-v"};
        QTest::newRow("escaped quote, backquote, dollar, backslash inside quotes")
            << "\"/a\\\"b\\`c\\$d\\\\e\"" << true << QStringList{"/a\"b`c$d\\e"};
        QTest::newRow("field codes dropped, %% kept")
            << "tolkaro %U --rate=100%% %f" << true << QStringList{"tolkaro", "--rate=100%"};
        QTest::newRow("unterminated quote") << "\"/usr/bin/tolkaro" << false << QStringList{};
    }

    void splitExec()
    {
        auto [exec, valid, expected] =
            DataRows::fetch<QString, bool, QStringList>("exec", "valid", "expected");

        const std::optional<QStringList> arguments = DesktopEntry::splitExec(exec);
        QCOMPARE(arguments.has_value(), valid);
        if (valid)
            QCOMPARE(*arguments, expected);
    }

    void execArgumentRoundTrip_data()
    {
        QTest::addColumn<QString>("path");

        QTest::newRow("every reserved character") << "/t/a\"b'c\\d>e<f~g|h&i;j$k*l?m#n(o)p`q r";
        QTest::newRow("percent") << "/t/100%/tolkaro";
        QTest::newRow("tab and newline") << "/t/a\tb\nc";
    }

    void execArgumentRoundTrip()
    {
        QFETCH(QString, path);

        // Through the file's text exactly as an autostart entry is written and read back.
        const QString text = DesktopEntry::autostartEntryText("Tolkaro", path);
        const QMap<QString, QString> group = DesktopEntry::parseDesktopEntryGroup(text);
        const std::optional<QStringList> arguments = DesktopEntry::splitExec(group.value("Exec"));
        QVERIFY(arguments.has_value());
        QCOMPARE(*arguments, QStringList{path});
        QCOMPARE(group.value("Name"), QString("Tolkaro"));
        // Line breaks in the path stay escaped: the file keeps its eight lines.
        QCOMPARE(text.count('\n'), 8);
    }

    void parseDesktopEntryGroup()
    {
        const QString text = "# leading comment\n"
                             "Stray=outside any group\n"
                             "[Desktop Entry]\n"
                             "Name = Tolkaro\n"
                             "Name[de]=Tolkaro DE\n"
                             "Comment=two\\nlines\\sand\\ttab\n"
                             "Name=duplicate ignored\n"
                             "Exec=\"/x y/z\" %u\n"
                             "\n"
                             "[Desktop Action New]\n"
                             "Exec=not ours\n";
        const QMap<QString, QString> group = DesktopEntry::parseDesktopEntryGroup(text);
        QCOMPARE(group.value("Name"), QString("Tolkaro"));
        QCOMPARE(group.value("Name[de]"), QString("Tolkaro DE"));
        QCOMPARE(group.value("Comment"), QString("two\nlines and\ttab"));
        QCOMPARE(group.value("Exec"), QString("\"/x y/z\" %u"));
        QVERIFY(!group.contains("Stray"));
        QCOMPARE(group.size(), 4);
    }

    void move_data()
    {
        // "existing copy" in ~/Applications, "read-only" ~/Applications, "not startable" copy.
        // In log, $D: the destination, $P: the running copy
        DataRows::addColumns<QString, QStringList, QStringList, bool>("obstacle", "log", "trashed",
                                                                      "relaunched");

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

    void move()
    {
        auto [obstacle, log, trashed, relaunched] =
            DataRows::fetch<QString, QStringList, QStringList, bool>("obstacle", "log", "trashed",
                                                                     "relaunched");

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
            QVERIFY(QFile::setPermissions(m_appImage, QFile::ReadOwner | QFile::WriteOwner));
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
                line.replace("$D", destination).replace("$P", m_appImage);
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

        if (trashed.contains(m_appImage)) {
            QVERIFY(!QFile::exists(m_appImage));
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

    void declineIsRemembered()
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
        QVERIFY(
            Preferences(m_root->path() + "/Tolkaro.conf").moveToApplicationsFolderAlertSuppress());
        QVERIFY(QFile::exists(m_appImage));
    }

    void decideMoveOffer_data()
    {
        DataRows::addColumns<QString, bool, int>("selfPath", "suppressed", "expected");

        const auto row = [](const char *name, const QString &path, bool suppressed,
                            MoveOffer offer) {
            QTest::newRow(name) << path << suppressed << int(offer);
        };
        row("Downloads", "/home/u/Downloads/Tolkaro-x86_64.AppImage", false, MoveOffer::Offer);
        row("~/Applications", "/home/u/Applications/Tolkaro.AppImage", false,
            MoveOffer::AlreadyInApplications);
        row("/opt", "/opt/tolkaro/tolkaro", false, MoveOffer::AlreadyInApplications);
        // Suppression is looked at first, even before the build directory.
        row("build, suppressed", "/home/u/build/tolkaro", true, MoveOffer::Suppressed);
        // "build" is looked at right after the first directory, before the others.
        row("build below /opt", "/opt/build/tolkaro", false, MoveOffer::DevelopmentBuild);
        row("other user's Applications", "/home/other/Applications/Tolkaro.AppImage", false,
            MoveOffer::Offer);
    }

    void decideMoveOffer()
    {
        auto [selfPath, suppressed, expected] =
            DataRows::fetch<QString, bool, int>("selfPath", "suppressed", "expected");

        const QStringList directories = MoveRules::applicationsDirectories("/home/u");
        QCOMPARE(int(MoveRules::decideMoveOffer(selfPath, directories, suppressed)), expected);
    }

private:
    // A shell script at path; path, or empty when it cannot be written.
    static QString makeExecutable(const QString &path, const QByteArray &script = "exit 0\n")
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + script) < 0)
            return {};
        file.close();
        return file.setPermissions(file.permissions() | QFile::ExeOwner) ? path : QString();
    }

    void writeEntry(const QString &fileName, const QString &name, const QString &exec,
                    const QString &extraLines = {})
    {
        QVERIFY(QDir().mkpath(autostart()));
        QFile file(autostart() + "/" + fileName);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QString("[Desktop Entry]\nType=Application\nName=%1\nExec=%2\n%3\n")
                       .arg(name, exec, extraLines)
                       .toUtf8());
    }

    QStringList entryFiles() const
    {
        return QDir(autostart()).entryList({"*.desktop"}, QDir::Files, QDir::Name);
    }

    QString autostart() const { return m_root->path() + "/config/autostart"; }

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_self;  // "our" executable
    QString m_other; // another program's
    QByteArray m_savedPath;

    // Root ignores permissions, but not the immutable attribute.
    bool makeUnwritable(const QString &directory)
    {
        m_unwritable << directory;
        if (::geteuid() == 0)
            return QProcess::execute("chattr", {"+i", directory}) == 0;
        return QFile::setPermissions(directory, QFile::ReadOwner | QFile::ExeOwner);
    }

    QStringList trashedPaths() const
    {
        QStringList paths;
        QDirIterator info(m_root->path() + "/data/Trash/info", {"*.trashinfo"}, QDir::Files);
        while (info.hasNext()) {
            QSettings trashInfo(info.next(), QSettings::IniFormat);
            paths << QUrl::fromPercentEncoding(trashInfo.value("Trash Info/Path").toByteArray());
        }
        paths.sort();
        return paths;
    }

    MoveEnvironment environment(ScriptedAlerts *alerts)
    {
        MoveEnvironment environment = currentMoveEnvironment(m_preferences.get(), alerts);
        environment.selfPath = m_appImage;
        return environment;
    }

    std::unique_ptr<Preferences> m_preferences;
    QString m_home, m_appImage, m_applications, m_marker; // the copy that moves
    QStringList m_unwritable;
    QStringList m_log;
};

QTEST_GUILESS_MAIN(TestLaunchAtLogin)
#include "tst_launchatlogin.moc"
