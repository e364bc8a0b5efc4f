#include "translation/GoogleTranslateByURL.h"

#include <QTest>

class TestUrlEncode : public QObject
{
    Q_OBJECT
private slots:
    void encodesEachByte_data();
    void encodesEachByte();
};

void TestUrlEncode::encodesEachByte_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("encoded");

    // Letters beyond ASCII and the empty text are checked on the request line in the client test.
    QTest::newRow("space becomes plus")
        << QStringLiteral("Hello world") << QStringLiteral("Hello+world");
    QTest::newRow("unreserved bytes kept")
        << QStringLiteral("AZaz09-._~") << QStringLiteral("AZaz09-._~");
    QTest::newRow("reserved, sub-delimiters and control characters are encoded")
        << QStringLiteral("a&b+c#d%e?f*'()!=/:;,@$\n\t")
        << QStringLiteral("a%26b%2Bc%23d%25e%3Ff%2A%27%28%29%21%3D%2F%3A%3B%2C%40%24%0A%09");
    QTest::newRow("four-byte emoji")
        << QString::fromUtf8("\xF0\x9F\x98\x80") << QStringLiteral("%F0%9F%98%80");
    QTest::newRow("NUL ends the input") << QString::fromLatin1("ab\0cd", 5) << QStringLiteral("ab");
}

void TestUrlEncode::encodesEachByte()
{
    QFETCH(QString, text);
    QFETCH(QString, encoded);
    const QString result = urlEncode(text);
    QCOMPARE(result, encoded);
}

QTEST_APPLESS_MAIN(TestUrlEncode)
#include "tst_urlencode.moc"
