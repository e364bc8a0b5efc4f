#include "integration/DesktopEntry.h"
#include "system/LaunchAtLoginController.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

// Every test runs with its own $HOME, $XDG_CONFIG_HOME and $XDG_DATA_HOME, and with
// executables of its own standing in for Tolkaro and for other programs.
class TestLaunchAtLogin : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void setLaunchAtLogin_data();
    void setLaunchAtLogin();
    void appImageIsWhatStarts();
    void removeAllItemsForDisplayName();
    void clearBrokenItems();
    void changeNotification_data();
    void changeNotification();
    void splitExec_data();
    void splitExec();
    void execArgumentRoundTrip_data();
    void execArgumentRoundTrip();
    void parseDesktopEntryGroup();

private:
    QString makeExecutable(const QString &name);
    void writeEntry(const QString &fileName, const QString &contents);
    QStringList entryFiles() const;
    QString autostart() const { return m_root->path() + "/config/autostart"; }

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_self;  // "our" executable
    QString m_other; // another program's
    QByteArray m_savedPath;
};

void TestLaunchAtLogin::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    for (const char *dir : {"config", "data", "home", "bin"})
        QVERIFY(QDir(m_root->path()).mkpath(dir));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_root->path() + "/config"));
    qputenv("XDG_DATA_HOME", QFile::encodeName(m_root->path() + "/data"));
    qputenv("HOME", QFile::encodeName(m_root->path() + "/home"));
    qunsetenv("APPIMAGE");
    m_savedPath = qgetenv("PATH");
    qputenv("PATH", QFile::encodeName(m_root->path() + "/bin") + ":" + m_savedPath);
    m_self = makeExecutable("tolkaro");
    m_other = makeExecutable("other-program");
}

void TestLaunchAtLogin::cleanup()
{
    qputenv("PATH", m_savedPath);
    qunsetenv("APPIMAGE");
    m_root.reset();
}

QString TestLaunchAtLogin::makeExecutable(const QString &name)
{
    const QString path = m_root->path() + "/bin/" + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write("#!/bin/sh\nexit 0\n");
    file.close();
    file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser);
    return path;
}

void TestLaunchAtLogin::writeEntry(const QString &fileName, const QString &contents)
{
    QVERIFY(QDir().mkpath(autostart()));
    QFile file(autostart() + "/" + fileName);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(contents.toUtf8());
}

QStringList TestLaunchAtLogin::entryFiles() const
{
    return QDir(autostart()).entryList({"*.desktop"}, QDir::Files, QDir::Name);
}

void TestLaunchAtLogin::setLaunchAtLogin_data()
{
    // How an Exec line is split is checked below.
    // Entries on disk before, as "file name|Exec value|extra lines"; $SELF, $OTHER, $ROOT
    // stand for our executable, another one, and the test's root.
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<bool>("enable");
    QTest::addColumn<bool>("onBefore");
    QTest::addColumn<bool>("onAfter");
    QTest::addColumn<QStringList>("filesAfter");

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

void TestLaunchAtLogin::setLaunchAtLogin()
{
    QFETCH(QStringList, before);
    QFETCH(bool, enable);
    QFETCH(bool, onBefore);
    QFETCH(bool, onAfter);
    QFETCH(QStringList, filesAfter);

    QVERIFY(QDir(m_root->path()).mkpath("link"));
    QVERIFY(QFile::link(m_self, m_root->path() + "/link/tolkaro"));
    for (const QString &described : before) {
        const QStringList parts = described.split('|');
        QString exec = parts[1];
        exec.replace("$SELF", m_self).replace("$OTHER", m_other).replace("$ROOT", m_root->path());
        writeEntry(parts[0], "[Desktop Entry]\nType=Application\nName=Tolkaro\nExec=" + exec +
                                 "\n" + parts[2] + "\n");
    }

    LaunchAtLoginController controller;
    QCOMPARE(controller.willLaunchAtLogin(m_self), onBefore);
    controller.setLaunchAtLogin(enable, m_self);
    QCOMPARE(controller.willLaunchAtLogin(m_self), onAfter);
    QCOMPARE(entryFiles(), filesAfter);
    // Another program's question is never answered by our entries.
    QCOMPARE(controller.willLaunchAtLogin(m_other), before.contains("other.desktop|$OTHER|"));
}

void TestLaunchAtLogin::appImageIsWhatStarts()
{
    const QString appImage = makeExecutable("Tolkaro x86_64.AppImage");
    qputenv("APPIMAGE", QFile::encodeName(appImage));
    QCOMPARE(LaunchAtLoginController::appURL(), appImage);

    LaunchAtLoginController controller;
    controller.setLaunchAtLogin(true);
    QVERIFY(controller.launchAtLogin());
    QVERIFY(controller.findItemWithURL(appImage).has_value());
    QVERIFY(!controller.findItemWithURL(m_self).has_value());
}

void TestLaunchAtLogin::removeAllItemsForDisplayName()
{
    const int matching = 2;
    for (int i = 0; i < matching; ++i)
        writeEntry(QString("old-%1.desktop").arg(i),
                   "[Desktop Entry]\nType=Application\nName=Old Tolkaro\nExec=/gone/tolkaro\n");
    writeEntry("other.desktop",
               "[Desktop Entry]\nType=Application\nName=Old Tolkaro 2\nExec=" + m_other + "\n");
    writeEntry("case.desktop",
               "[Desktop Entry]\nType=Application\nName=old tolkaro\nExec=" + m_other + "\n");

    LaunchAtLoginController controller;
    controller.removeAllItemsForDisplayName("Old Tolkaro");
    // The name matches whole and with its case.
    QCOMPARE(entryFiles(), (QStringList{"case.desktop", "other.desktop"}));
}

void TestLaunchAtLogin::clearBrokenItems()
{
    const QString appImage = makeExecutable("Tolkaro-x86_64.AppImage");
    qputenv("APPIMAGE", QFile::encodeName(appImage));
    writeEntry("a.desktop",
               "[Desktop Entry]\nName=Tolkaro-x86_64\nExec=/gone/Tolkaro-x86_64.AppImage\n");
    writeEntry("b.desktop", "[Desktop Entry]\nName=Tolkaro\nExec=" + m_self + "\n");

    LaunchAtLoginController controller;
    controller.clearBrokenItems();
    QCOMPARE(entryFiles(), QStringList{"b.desktop"});
}

void TestLaunchAtLogin::changeNotification_data()
{
    QTest::addColumn<bool>("directoryExists");

    QTest::newRow("autostart directory exists") << true;
    QTest::newRow("autostart directory appears") << false;
}

void TestLaunchAtLogin::changeNotification()
{
    QFETCH(bool, directoryExists);

    if (directoryExists)
        QVERIFY(QDir().mkpath(autostart()));
    LaunchAtLoginController controller;
    QSignalSpy changed(&controller, &LaunchAtLoginController::launchAtLoginChanged);

    // Another program (a session settings tool) adds our entry.
    writeEntry("tolkaro.desktop",
               "[Desktop Entry]\nType=Application\nName=Tolkaro\nExec=" + m_self + "\n");
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

void TestLaunchAtLogin::splitExec_data()
{
    QTest::addColumn<QString>("exec");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("bare name") << "tolkaro" << true << QStringList{"tolkaro"};
    QTest::newRow("path and arguments, runs of spaces")
        << "/usr/bin/tolkaro  --typing-mode   -v" << true
        << QStringList{"/usr/bin/tolkaro", "--typing-mode", "-v"};
    QTest::newRow("quoted path with spaces") << "\"/home/u/My Apps/Tolkaro.AppImage\"" << true
                                             << QStringList{"/home/u/My Apps/Tolkaro.AppImage"};
    QTest::newRow("escaped quote, backquote, dollar, backslash inside quotes")
        << R"("/a\"b\`c\$d\\e")" << true << QStringList{R"(/a"b`c$d\e)"};
    QTest::newRow("field codes dropped, %% kept")
        << "tolkaro %U --rate=100%% %f" << true << QStringList{"tolkaro", "--rate=100%"};
    QTest::newRow("unterminated quote") << "\"/usr/bin/tolkaro" << false << QStringList{};
}

void TestLaunchAtLogin::splitExec()
{
    QFETCH(QString, exec);
    QFETCH(bool, valid);
    QFETCH(QStringList, expected);

    const std::optional<QStringList> arguments = DesktopEntry::splitExec(exec);
    QCOMPARE(arguments.has_value(), valid);
    if (valid)
        QCOMPARE(*arguments, expected);
}

void TestLaunchAtLogin::execArgumentRoundTrip_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("every reserved character") << "/t/a\"b'c\\d>e<f~g|h&i;j$k*l?m#n(o)p`q r";
    QTest::newRow("percent") << "/t/100%/tolkaro";
    QTest::newRow("tab and newline") << "/t/a\tb\nc";
}

void TestLaunchAtLogin::execArgumentRoundTrip()
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

void TestLaunchAtLogin::parseDesktopEntryGroup()
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

QTEST_GUILESS_MAIN(TestLaunchAtLogin)
#include "tst_launchatlogin.moc"
