#include "common/Log.h"
#include "translation/GoogleTranslateByURL.h"

#include <QTest>

namespace {

const QString kNotJson = QStringLiteral(
    "parseGoogleJSONResponseIntoReadableString: couldn't parse the string into JSON. The string "
    "isn't real JSON? ");
const QString kTopNotArray = QStringLiteral("Top object is not NSArray");
const QString kFirstInnerNotArray =
    QStringLiteral("First Inner object is not NSArray or has 0 elements");
const QString kGuessedEn = QStringLiteral("Guessed source language: en");

// A null QString in a row stands for "no result" (nil).
const QString kNil;

} // namespace

class TestGoogleResponseParser : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void parsesAnswer_data();
    void parsesAnswer();
    void fillsEmptySlotsLikeTwoReplacePasses_data();
    void fillsEmptySlotsLikeTwoReplacePasses();
    void withoutLanguagePointer();

private:
    QStringList m_log;
};

void TestGoogleResponseParser::init()
{
    m_log.clear();
    tolkaro::setLogSink([this](const QString &line) { m_log.append(line); });
}

void TestGoogleResponseParser::cleanup()
{
    tolkaro::setLogSink({});
}

void TestGoogleResponseParser::parsesAnswer_data()
{
    QTest::addColumn<QString>("response");
    QTest::addColumn<QString>("translation");
    QTest::addColumn<QString>("guessedLanguage");
    // A line ending in "*" matches any line that starts with the rest.
    QTest::addColumn<QStringList>("log");

    QTest::newRow("two sentences, a short row skipped")
        << R"([[["A. ","a. ",null,null,10],["B","b",null,null,10],["x","y","z"]],null,"en"])"
        << QStringLiteral("A. B") << QStringLiteral("en") << QStringList{kGuessedEn};
    QTest::newRow("empty slots in a row and before the language are repaired")
        << R"([[["Hallo","Hello",,,1]],,"en"])" << QStringLiteral("Hallo") << QStringLiteral("en")
        << QStringList{kGuessedEn};
    QTest::newRow("commas inside a piece are repaired too")
        << R"([[["a,,b","S",null,null,1]]])" << QStringLiteral("a,null,b") << kNil << QStringList{};
    QTest::newRow("empty first slot is not repaired")
        << R"([,[["T","S",null,null,1]]])" << kNil << kNil << QStringList{kNotJson + "*"};
    QTest::newRow("white space around the answer") << "  \n[[[\"T\",\"S\",null,null,1]]]\r\n"
                                                   << QStringLiteral("T") << kNil << QStringList{};
    QTest::newRow("empty first piece is still a translation")
        << R"([[["","S",null,null,1]]])" << QString(QLatin1StringView("")) << kNil << QStringList{};
    QTest::newRow("top array of two elements has no language")
        << R"([[["T","S",null,null,1]],null])" << QStringLiteral("T") << kNil << QStringList{};
    QTest::newRow("number at index 2 is no language")
        << R"([[["T","S",null,null,1]],null,7])" << QStringLiteral("T") << kNil << QStringList{};
    QTest::newRow("nine-element row taken; other sizes, types and non-arrays skipped")
        << R"([["x",{"a":1},["T","S",null,1],["T","S",null,null,1,1],[5,"S",null,null,1],)"
           R"(["T",null,null,null,1],["T","S",null,null,"1"],["U","S",null,null,1,1,1,1,1]]])"
        << QStringLiteral("U") << kNil << QStringList{};
    QTest::newRow("no row of a sentence: no translation")
        << R"([[["T","S",null,1]],null,"en"])" << kNil << QStringLiteral("en")
        << QStringList{kGuessedEn};
    QTest::newRow("string fragment on top")
        << R"("just text")" << kNil << kNil << QStringList{kTopNotArray};
    QTest::newRow("empty top array") << "[]" << kNil << kNil << QStringList{kTopNotArray};
    QTest::newRow("empty sentence list") << R"([[],null,"en"])" << kNil << QStringLiteral("en")
                                         << QStringList{kGuessedEn, kFirstInnerNotArray};
    QTest::newRow("empty answer") << "" << kNil << kNil << QStringList{kNotJson + "*"};
    QTest::newRow("two values in a row")
        << "[1] [2]" << kNil << kNil << QStringList{kNotJson + "*"};
}

void TestGoogleResponseParser::parsesAnswer()
{
    QFETCH(QString, response);
    QFETCH(QString, translation);
    QFETCH(QString, guessedLanguage);
    QFETCH(QStringList, log);

    QString guessed = QStringLiteral("stale");
    const QString result =
        GoogleTranslateByURL::parseGoogleJSONResponseUtf8(response.toUtf8(), &guessed);
    QCOMPARE(result, translation);
    QCOMPARE(result.isNull(), translation.isNull());
    QCOMPARE(guessed, guessedLanguage);
    QCOMPARE(guessed.isNull(), guessedLanguage.isNull());

    QCOMPARE(m_log.size(), log.size());
    for (qsizetype i = 0; i < log.size(); ++i) {
        if (log.at(i).endsWith(QLatin1Char('*')))
            QVERIFY2(m_log.at(i).startsWith(log.at(i).chopped(1)), qPrintable(m_log.at(i)));
        else
            QCOMPARE(m_log.at(i), log.at(i));
    }
}

void TestGoogleResponseParser::fillsEmptySlotsLikeTwoReplacePasses_data()
{
    QTest::addColumn<QByteArray>("json");

    QTest::newRow("no commas") << QByteArray("[1]");
    QTest::newRow("empty") << QByteArray();
    for (int run = 1; run <= 7; ++run) {
        const QByteArray commas(run, ',');
        QTest::addRow("%d commas inside", run) << "[1" + commas + "2]";
        QTest::addRow("%d commas first", run) << commas + "x";
        QTest::addRow("%d commas last", run) << "x" + commas;
        QTest::addRow("%d commas twice", run) << "[" + commas + "a" + commas + "]";
    }
    QTest::newRow("mixed runs") << QByteArray("[[,,1,,,,2],,,\"a,,b\",[,],,]");
}

void TestGoogleResponseParser::fillsEmptySlotsLikeTwoReplacePasses()
{
    QFETCH(QByteArray, json);
    // The rule as the service's answers need it: two passes, each replacing every
    // non-overlapping ",," from left to right.
    QByteArray reference = json;
    reference.replace(",,", ",null,");
    reference.replace(",,", ",null,");
    QCOMPARE(fillEmptyArraySlots(json), reference);
}

void TestGoogleResponseParser::withoutLanguagePointer()
{
    const QString result = GoogleTranslateByURL::parseGoogleJSONResponseIntoReadableString(
        QStringLiteral(R"([[["T","S",null,null,1]],null,"en"])"), nullptr);
    QCOMPARE(result, QStringLiteral("T"));
    QCOMPARE(m_log, QStringList{kGuessedEn});
}

QTEST_APPLESS_MAIN(TestGoogleResponseParser)
#include "tst_googleresponseparser.moc"
