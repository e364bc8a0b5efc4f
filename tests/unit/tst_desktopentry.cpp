#include "integration/DesktopEntry.h"

#include <QTest>

class TestDesktopEntry : public QObject
{
    Q_OBJECT
private slots:
    void splitExec_data();
    void splitExec();
    void execArgumentRoundTrip_data();
    void execArgumentRoundTrip();
    void parseDesktopEntryGroup();
    void isDisabled_data();
    void isDisabled();
};

void TestDesktopEntry::splitExec_data()
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
    QTest::newRow("empty quoted argument kept")
        << "tolkaro \"\"" << true << QStringList{"tolkaro", ""};
    QTest::newRow("unterminated quote") << "\"/usr/bin/tolkaro" << false << QStringList{};
    QTest::newRow("empty") << "" << true << QStringList{};
}

void TestDesktopEntry::splitExec()
{
    QFETCH(QString, exec);
    QFETCH(bool, valid);
    QFETCH(QStringList, expected);

    const std::optional<QStringList> arguments = DesktopEntry::splitExec(exec);
    QCOMPARE(arguments.has_value(), valid);
    if (valid)
        QCOMPARE(*arguments, expected);
}

void TestDesktopEntry::execArgumentRoundTrip_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("every reserved character") << "/t/a\"b'c\\d>e<f~g|h&i;j$k*l?m#n(o)p`q r";
    QTest::newRow("percent") << "/t/100%/tolkaro";
    QTest::newRow("tab and newline") << "/t/a\tb\nc";
}

void TestDesktopEntry::execArgumentRoundTrip()
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

void TestDesktopEntry::parseDesktopEntryGroup()
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

void TestDesktopEntry::isDisabled_data()
{
    QTest::addColumn<QString>("lines");
    QTest::addColumn<bool>("disabled");

    QTest::newRow("plain entry") << "" << false;
    QTest::newRow("Hidden=true") << "Hidden=true\n" << true;
    QTest::newRow("GNOME switch off") << "X-GNOME-Autostart-enabled=false\n" << true;
}

void TestDesktopEntry::isDisabled()
{
    QFETCH(QString, lines);
    QFETCH(bool, disabled);

    const QString text = "[Desktop Entry]\nType=Application\nExec=tolkaro\n" + lines;
    QCOMPARE(DesktopEntry::isDisabled(DesktopEntry::parseDesktopEntryGroup(text)), disabled);
}

QTEST_GUILESS_MAIN(TestDesktopEntry)
#include "tst_desktopentry.moc"
