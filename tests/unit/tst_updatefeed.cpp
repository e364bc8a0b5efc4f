#include "updates/Appcast.h"
#include "updates/VersionComparator.h"

#include <QTest>

class TestUpdateFeed : public QObject
{
    Q_OBJECT
private slots:
    void compareVersions_data();
    void compareVersions();
    void newestItem_data();
    void newestItem();
};

void TestUpdateFeed::compareVersions_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("expected");

    const auto row = [](const char *name, const char *a, const char *b, int expected) {
        QTest::newRow(name) << QString(a) << QString(b) << expected;
    };
    row("numbers by value, not text", "1.10", "1.9", 1);
    row("trailing zeros do not count", "1.0", "1.0.0", 0);
    row("extra non-zero part is newer", "1.0", "1.0.1", -1);
    row("leading zeros", "1.02", "1.2", 0);
    row("beta before release", "1.0b2", "1.0", -1);
    row("rc with dash before release", "1.0-rc1", "1.0", -1);
    row("alpha before beta", "1.0alpha", "1.0beta", -1);
    row("beta numbers by value", "1.0b10", "1.0b9", 1);
    row("words without case", "1.0RC1", "1.0rc1", 0);
    row("release after pre-release of next", "1.1b1", "1.0", 1);
    row("number newer than word in the same place", "1.0.1", "1.0.b", 1);
    row("leading v ignored", "v0.2.0", "0.2.0", 0);
    row("build metadata ignored", "1.0.0+20261122", "1.0.0", 0);
    row("numbers longer than 64 bits", "1.123456789012345678901234567890",
        "1.123456789012345678901234567889", 1);
}

void TestUpdateFeed::compareVersions()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, expected);

    QCOMPARE(VersionComparator::compareVersions(a, b), expected);
    QCOMPARE(VersionComparator::compareVersions(b, a), -expected);
}

namespace {

QByteArray feed(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" "
           "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\""
           " xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n"
           "<channel><title>Tolkaro</title><link>https://example.invalid/</link>\n" +
           items + "</channel></rss>\n";
}

QByteArray item(const QByteArray &version, const QByteArray &extra = {})
{
    return "<item><title>Version " + version +
           "</title>"
           "<sparkle:releaseNotesLink>https://example.invalid/notes/" +
           version +
           "</sparkle:releaseNotesLink>"
           "<enclosure url=\"https://example.invalid/Tolkaro-" +
           version + ".AppImage\" sparkle:shortVersionString=\"" + version +
           "\" sparkle:version=\"77\" " + extra +
           " length=\"1\" type=\"application/octet-stream\"/></item>\n";
}

} // namespace

void TestUpdateFeed::newestItem_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("downloadURL");

    QTest::newRow("newest by version, not by position")
        << feed(item("0.9.0") + item("0.10.0") + item("0.2.0")) << "0.10.0"
        << "https://example.invalid/Tolkaro-0.10.0.AppImage";
    QTest::newRow("items for other systems skipped")
        << feed(item("0.3.0") + item("9.0", "sparkle:os=\"macos\"") +
                item("0.4.0", "sparkle:os=\"linux\""))
        << "0.4.0"
        << "https://example.invalid/Tolkaro-0.4.0.AppImage";
    QTest::newRow("version as item elements, download from link")
        << feed("<item><title>T</title><link>https://example.invalid/get</link>"
                "<sparkle:version>123</sparkle:version>"
                "<sparkle:shortVersionString>1.2.3</sparkle:shortVersionString></item>")
        << "1.2.3"
        << "https://example.invalid/get";
    QTest::newRow("build number alone") << feed("<item><enclosure url=\"https://e.invalid/x\" "
                                                "sparkle:version=\"45\"/></item>")
                                        << "45"
                                        << "https://e.invalid/x";
    QTest::newRow("items without a version ignored")
        << feed("<item><title>News</title></item>" + item("0.5")) << "0.5"
        << "https://example.invalid/Tolkaro-0.5.AppImage";
    QTest::newRow("malformed XML") << QByteArray("<rss><channel><item>") << ""
                                   << "";
    QTest::newRow("truncated after a good item") << feed(item("0.2.0")).left(420) << ""
                                                 << "";
}

void TestUpdateFeed::newestItem()
{
    QFETCH(QByteArray, document);
    QFETCH(QString, version);
    QFETCH(QString, downloadURL);

    QString error;
    const std::optional<Appcast::Item> newest = Appcast::newestItem(document, &error);
    if (version.isEmpty()) {
        QVERIFY(!newest.has_value());
        QVERIFY(!error.isEmpty());
        return;
    }
    QVERIFY2(newest.has_value(), qPrintable(error));
    QCOMPARE(newest->version, version);
    QCOMPARE(newest->downloadURL.toString(), downloadURL);
}

QTEST_GUILESS_MAIN(TestUpdateFeed)
#include "tst_updatefeed.moc"
