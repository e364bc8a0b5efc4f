#include "DataRows.h"
#include "common/Log.h"

#include "languages/LanguageTable.h"
#include "settings/Preferences.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <optional>

#include <sys/stat.h>

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

// The settings file, and the language table with the choices stored in it.
class TestPreferences : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        // A directory of its own for every row: QSettings keeps what it read of a path.
        m_dir.emplace();
        QVERIFY(m_dir->isValid());
        m_iniPath = m_dir->filePath(QStringLiteral("Tolkaro.ini"));
        m_logged.clear();
        tolkaro::setLogSink([this](const QString &line) { m_logged << line; });
    }

    void cleanup() { tolkaro::setLogSink({}); }

    // A recorded shortcut read back by a fresh store is the typing desktop test's.
    void shortcutWrittenByHand_data()
    {
        DataRows::addColumns<QByteArray, bool>("line", "valid");

        QTest::newRow("quoted") << QByteArray("TypingModeKeyboardShortcut=\"32,134217728\"")
                                << true;
        QTest::newRow("unquoted") << QByteArray("TypingModeKeyboardShortcut=32,134217728") << true;
        QTest::newRow("one number") << QByteArray("TypingModeKeyboardShortcut=32") << false;
        QTest::newRow("no key") << QByteArray("TypingModeKeyboardShortcut=0,134217728") << false;
        QTest::newRow("words") << QByteArray("TypingModeKeyboardShortcut=Alt+Space") << false;
    }

    void shortcutWrittenByHand()
    {
        auto [line, valid] = DataRows::fetch<QByteArray, bool>("line", "valid");

        const Preferences preferences(writeIni("[General]\n" + line + "\n"));
        const std::optional<StoredShortcut> shortcut = preferences.typingModeKeyboardShortcut();
        QCOMPARE(bool(shortcut), valid);
        if (valid)
            QCOMPARE(*shortcut, (StoredShortcut{0x20, quint32(Qt::AltModifier)}));
    }

    void translationServiceURL_data()
    {
        DataRows::addColumns<QByteArray, QString, QString>("environment", "stored", "expected");

        QTest::newRow("environment beats the store")
            << QByteArray("http://127.0.0.1:8081") << "https://example.invalid"
            << "http://127.0.0.1:8081";
        QTest::newRow("store when the environment is empty")
            << QByteArray("") << "https://example.invalid"
            << "https://example.invalid";
        QTest::newRow("default when both are empty")
            << QByteArray("") << QString() << kDefaultTranslationServiceURL;
    }

    void translationServiceURL()
    {
        auto [environment, stored, expected] =
            DataRows::fetch<QByteArray, QString, QString>("environment", "stored", "expected");

        qputenv(kTranslationUrlEnvironmentVariable, environment);
        Preferences preferences(m_iniPath);
        if (!stored.isEmpty())
            preferences.settings().setValue(PreferenceKeys::kTranslationServiceURL, stored);

        QCOMPARE(preferences.translationServiceURL(), expected);
        qunsetenv(kTranslationUrlEnvironmentVariable);
    }

    void fileIsTheUsersAlone_data()
    {
        // existing null: no file yet
        // write: how a value is written, if at all
        DataRows::addColumns<QByteArray, QString>("existing", "write");

        QTest::newRow("new file, a setter") << QByteArray() << "setter";
        QTest::newRow("new file, straight into the store, written by the event loop")
            << QByteArray() << "store, event loop";
        QTest::newRow("new file, straight into the store, then synchronized")
            << QByteArray() << "store, synchronize";
        QTest::newRow("world-readable file from before, only read")
            << QByteArray("[General]\nUsageReportingURL=https://example.invalid/?key=secret\n")
            << QString();
    }

    void fileIsTheUsersAlone()
    {
        auto [existing, write] = DataRows::fetch<QByteArray, QString>("existing", "write");

        const auto userOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        // QFile::permissions() adds this user's own bits to the owner's.
        const auto permissions = [this] {
            return QFile::permissions(m_iniPath) & ~QFileDevice::Permissions(0x0700);
        };
        if (!existing.isNull()) {
            QVERIFY(!writeIni(existing).isEmpty());
            QVERIFY(QFile::setPermissions(m_iniPath, userOnly | QFileDevice::ReadGroup |
                                                         QFileDevice::ReadOther));
        }
        // The umask a desktop session usually has would make a new file world-readable.
        const mode_t savedUmask = ::umask(022);
        Preferences preferences(m_iniPath);
        if (write == QLatin1String("setter"))
            preferences.setPreviouslyUsedLanguageCode(QStringLiteral("de"));
        else if (!write.isEmpty())
            preferences.settings().setValue(QStringLiteral("UsageReportingURL"),
                                            QStringLiteral("https://example.invalid/?key=s"));
        if (write == QLatin1String("store, event loop"))
            QTRY_VERIFY(QFile::exists(m_iniPath));
        else
            preferences.synchronize();
        ::umask(savedUmask);
        QCOMPARE(permissions(), userOnly);
        QCOMPARE(Preferences(m_iniPath).settings().allKeys().size(), 1);
    }

    void tableInvariants()
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

    void lookup_data()
    {
        // expectedCode empty: nothing found
        DataRows::addColumns<QString, bool, QString>("key", "byName", "expectedCode");

        QTest::newRow("iw is Hebrew") << "iw" << false << "iw";
        QTest::newRow("zh alone") << "zh" << false << "";
        QTest::newRow("name") << "Chinese (Simplified)" << true << "zh-CN";
        QTest::newRow("name prefix of two names") << "Chinese" << true << "";
    }

    void lookup()
    {
        auto [key, byName, expectedCode] =
            DataRows::fetch<QString, bool, QString>("key", "byName", "expectedCode");

        const std::optional<LanguageEntry> found =
            byName ? LanguageTable::languageWithName(key) : LanguageTable::languageWithCode(key);
        QCOMPARE(found ? found->code : QString(), expectedCode);
    }

    void startUpDestination_data()
    {
        // storedCode null: none stored
        DataRows::addColumns<QString, QStringList, QString, QString>(
            "storedCode", "systemLanguages", "expectedCode", "expectedLog");

        const QString none, noLog;
        QTest::newRow("system en-GB") << none << QStringList{"en-GB", "en"} << "en"
                                      << "Bing doesnt support system language code en-GB";
        QTest::newRow("system zh-TW")
            << none << QStringList{"zh-TW", "zh-Hant-TW"} << "zh-TW" << noLog;
        QTest::newRow("no system languages") << none << QStringList{} << "en"
                                             << "Bing doesnt support system language code ";
        QTest::newRow("stored code beats system") << "de" << QStringList{"ru"} << "de" << noLog;
        QTest::newRow("bogus stored code") << "xx" << QStringList{"ru"} << "ru" << noLog;
    }

    void startUpDestination()
    {
        auto [storedCode, systemLanguages, expectedCode, expectedLog] =
            DataRows::fetch<QString, QStringList, QString, QString>("storedCode", "systemLanguages",
                                                                    "expectedCode", "expectedLog");

        Preferences preferences(m_iniPath);
        if (!storedCode.isNull())
            preferences.setPreviouslyUsedLanguageCode(storedCode);
        LanguageSelection selection(preferences);

        QCOMPARE(selection.getPreviouslyUsedLanguage(systemLanguages),
                 entry(qPrintable(expectedCode)));
        QCOMPARE(m_logged, expectedLog.isEmpty() ? QStringList() : QStringList{expectedLog});
    }

    void choicesAreStoredAtOnce()
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

private:
    QString writeIni(const QByteArray &contents)
    {
        QFile file(m_iniPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return {};
        file.write(contents);
        return m_iniPath;
    }

    std::optional<QTemporaryDir> m_dir;
    QString m_iniPath;
    QStringList m_logged;
};

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
