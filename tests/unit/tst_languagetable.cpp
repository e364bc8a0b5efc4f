#include "common/Log.h"
#include "languages/LanguageTable.h"
#include "settings/Preferences.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

LanguageEntry entry(const char *code)
{
    return *LanguageTable::languageWithCode(QString::fromLatin1(code));
}

QString fileText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

} // namespace

class TestLanguageTable : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void tableInvariants();
    void lookup_data();
    void lookup();

    void startUpDestination_data();
    void startUpDestination();
    void choicesAreStoredAtOnce();

private:
    QTemporaryDir m_dir;
    QString m_iniPath;
    QStringList m_logged;
};

void TestLanguageTable::init()
{
    QVERIFY(m_dir.isValid());
    m_iniPath = m_dir.filePath(QStringLiteral("%1.ini").arg(QTest::currentTestFunction()));
    QFile::remove(m_iniPath);
    m_logged.clear();
    tolkaro::setLogSink([this](const QString &line) { m_logged << line; });
}

void TestLanguageTable::cleanup()
{
    tolkaro::setLogSink({});
}

void TestLanguageTable::tableInvariants()
{
    // The menus are built from the table and map an item back by its position.
    const QList<LanguageEntry> &table = LanguageTable::entries();
    for (int i = 0; i < table.size(); ++i) {
        const LanguageEntry &language = table[i];
        if (i > 0)
            QVERIFY2(table[i - 1].name < language.name, qPrintable(language.name));
        QVERIFY2(language.flag.size() == 4, qPrintable(language.name));
        QCOMPARE(LanguageTable::indexOf(language), i);
    }
}

void TestLanguageTable::lookup_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("byName");
    QTest::addColumn<QString>("expectedCode"); // empty: nothing found

    QTest::newRow("iw is Hebrew") << "iw" << false << "iw";
    QTest::newRow("zh alone") << "zh" << false << "";
    QTest::newRow("zh-CN in capitals") << "ZH-CN" << false << "";
    QTest::newRow("name") << "Chinese (Simplified)" << true << "zh-CN";
    QTest::newRow("name in lower case") << "spanish" << true << "";
    QTest::newRow("name prefix of two names") << "Chinese" << true << "";
}

void TestLanguageTable::lookup()
{
    QFETCH(QString, key);
    QFETCH(bool, byName);
    QFETCH(QString, expectedCode);

    const std::optional<LanguageEntry> found =
        byName ? LanguageTable::languageWithName(key) : LanguageTable::languageWithCode(key);
    QCOMPARE(found ? found->code : QString(), expectedCode);
}

void TestLanguageTable::startUpDestination_data()
{
    QTest::addColumn<bool>("hasStoredCode");
    QTest::addColumn<QString>("storedCode");
    QTest::addColumn<QStringList>("systemLanguages");
    QTest::addColumn<QString>("expectedCode");
    QTest::addColumn<QString>("expectedLog");

    const QString noLog;
    QTest::newRow("system en-GB") << false << "" << QStringList{"en-GB", "en"} << "en"
                                  << "Bing doesnt support system language code en-GB";
    QTest::newRow("only the first system language counts")
        << false << "" << QStringList{"pt-BR", "de"} << "en"
        << "Bing doesnt support system language code pt-BR";
    QTest::newRow("system zh-TW") << false << "" << QStringList{"zh-TW", "zh-Hant-TW"} << "zh-TW"
                                  << noLog;
    QTest::newRow("no system languages") << false << "" << QStringList{} << "en"
                                         << "Bing doesnt support system language code ";
    QTest::newRow("stored code beats system") << true << "de" << QStringList{"ru"} << "de" << noLog;
    QTest::newRow("bogus stored code") << true << "xx" << QStringList{"ru"} << "ru" << noLog;
    QTest::newRow("empty stored code") << true << "" << QStringList{"fi"} << "fi" << noLog;
}

void TestLanguageTable::startUpDestination()
{
    QFETCH(bool, hasStoredCode);
    QFETCH(QString, storedCode);
    QFETCH(QStringList, systemLanguages);
    QFETCH(QString, expectedCode);
    QFETCH(QString, expectedLog);

    Preferences preferences(m_iniPath);
    if (hasStoredCode)
        preferences.setPreviouslyUsedLanguageCode(storedCode);
    LanguageSelection selection(preferences);

    QCOMPARE(selection.getPreviouslyUsedLanguage(systemLanguages), entry(qPrintable(expectedCode)));
    QCOMPARE(m_logged, expectedLog.isEmpty() ? QStringList() : QStringList{expectedLog});
}

void TestLanguageTable::choicesAreStoredAtOnce()
{
    Preferences preferences(m_iniPath);
    LanguageSelection selection(preferences);
    QList<int> destinationIndexes;
    QList<int> alternativeIndexes;
    connect(&selection, &LanguageSelection::languageChanged, this,
            [&](const LanguageEntry &, int index) { destinationIndexes << index; });
    connect(&selection, &LanguageSelection::language2Changed, this,
            [&](const LanguageEntry &, int index) { alternativeIndexes << index; });

    selection.setLanguage(entry("fr"));
    QCOMPARE(selection.currentDstLanguageCode(), QStringLiteral("fr"));
    // Flushed to the file at once, not just held by QSettings.
    QVERIFY(fileText(m_iniPath).contains(QStringLiteral("previouslyUsedLanguageCode=fr")));

    selection.setLanguage2(entry("th"));
    QCOMPARE(selection.currentDstLanguageCode2(), QStringLiteral("th"));
    QCOMPARE(selection.currentDstLanguageCode(), QStringLiteral("fr"));
    // The second key holds the destination's code, not the alternative's.
    QVERIFY(fileText(m_iniPath).contains(QStringLiteral("previouslyUsedLanguageCode2=fr")));

    QCOMPARE(destinationIndexes, QList<int>{12});
    QCOMPARE(alternativeIndexes, QList<int>{34});
}

QTEST_APPLESS_MAIN(TestLanguageTable)
#include "tst_languagetable.moc"
