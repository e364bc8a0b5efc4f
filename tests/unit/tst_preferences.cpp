#include "settings/Preferences.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

class TestPreferences : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void shortcutWrittenByHand_data();
    void shortcutWrittenByHand();
    void translationServiceURL_data();
    void translationServiceURL();
    void fileIsTheUsersAlone_data();
    void fileIsTheUsersAlone();

private:
    QString writeIni(const QByteArray &contents);

    QTemporaryDir m_dir;
    QString m_iniPath;
};

void TestPreferences::init()
{
    QVERIFY(m_dir.isValid());
    m_iniPath = m_dir.filePath(QStringLiteral("%1-%2.ini")
                                   .arg(QTest::currentTestFunction())
                                   .arg(QString::fromLatin1(QTest::currentDataTag())
                                            .replace(QLatin1Char(' '), QLatin1Char('_'))));
    QFile::remove(m_iniPath);
}

QString TestPreferences::writeIni(const QByteArray &contents)
{
    QFile file(m_iniPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    file.write(contents);
    return m_iniPath;
}

// A recorded shortcut read back by a fresh store is the typing desktop test's.
void TestPreferences::shortcutWrittenByHand_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("valid");

    QTest::newRow("quoted") << QByteArray("TypingModeKeyboardShortcut=\"32,134217728\"") << true;
    QTest::newRow("unquoted") << QByteArray("TypingModeKeyboardShortcut=32,134217728") << true;
    QTest::newRow("one number") << QByteArray("TypingModeKeyboardShortcut=32") << false;
    QTest::newRow("no key") << QByteArray("TypingModeKeyboardShortcut=0,134217728") << false;
    QTest::newRow("words") << QByteArray("TypingModeKeyboardShortcut=Alt+Space") << false;
}

void TestPreferences::shortcutWrittenByHand()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, valid);

    const Preferences preferences(writeIni("[General]\n" + line + "\n"));
    const std::optional<StoredShortcut> shortcut = preferences.typingModeKeyboardShortcut();
    QCOMPARE(bool(shortcut), valid);
    if (valid)
        QCOMPARE(*shortcut, (StoredShortcut{0x20, quint32(Qt::AltModifier)}));
}

void TestPreferences::translationServiceURL_data()
{
    QTest::addColumn<QByteArray>("environment");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("expected");

    QTest::newRow("environment beats the store")
        << QByteArray("http://127.0.0.1:8081") << "https://example.invalid"
        << "http://127.0.0.1:8081";
    QTest::newRow("store when the environment is empty")
        << QByteArray("") << "https://example.invalid"
        << "https://example.invalid";
    QTest::newRow("default when both are empty")
        << QByteArray("") << QString() << kDefaultTranslationServiceURL;
}

void TestPreferences::translationServiceURL()
{
    QFETCH(QByteArray, environment);
    QFETCH(QString, stored);
    QFETCH(QString, expected);

    qputenv(kTranslationUrlEnvironmentVariable, environment);
    Preferences preferences(m_iniPath);
    if (!stored.isEmpty())
        preferences.settings().setValue(PreferenceKeys::kTranslationServiceURL, stored);

    QCOMPARE(preferences.translationServiceURL(), expected);
    qunsetenv(kTranslationUrlEnvironmentVariable);
}

void TestPreferences::fileIsTheUsersAlone_data()
{
    QTest::addColumn<QByteArray>("existing"); // null: no file yet
    QTest::addColumn<QString>("write");       // how a value is written, if at all

    QTest::newRow("new file, a setter") << QByteArray() << "setter";
    QTest::newRow("new file, straight into the store, written by the event loop")
        << QByteArray() << "store, event loop";
    QTest::newRow("new file, straight into the store, then synchronized")
        << QByteArray() << "store, synchronize";
    QTest::newRow("world-readable file from before, only read")
        << QByteArray("[General]\nUsageReportingURL=https://example.invalid/?key=secret\n")
        << QString();
}

void TestPreferences::fileIsTheUsersAlone()
{
    QFETCH(QByteArray, existing);
    QFETCH(QString, write);

    const auto userOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    // QFile::permissions() adds this user's own bits to the owner's.
    const auto permissions = [this] {
        return QFile::permissions(m_iniPath) & ~QFileDevice::Permissions(0x0700);
    };
    if (!existing.isNull()) {
        QVERIFY(!writeIni(existing).isEmpty());
        QVERIFY(QFile::setPermissions(m_iniPath,
                                      userOnly | QFileDevice::ReadGroup | QFileDevice::ReadOther));
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

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
