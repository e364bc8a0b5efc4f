#include "text/CopiedPassage.h"
#include "text/StringHelpers.h"
#include "text/TextCut.h"

#include <QTest>

class TestTextRules : public QObject
{
    Q_OBJECT
private slots:
    void cutCountsCodeUnits();
    void containsLetters_data();
    void containsLetters();
    void cleanUpCopiedPassage_data();
    void cleanUpCopiedPassage();
};

// The plain 1500 and 300 boundaries are checked where the texts are sent: in the translation
// controller and typing panel tests.
void TestTextRules::cutCountsCodeUnits()
{
    // Code units, not characters: an emoji straddling the limit loses its second half.
    const QString endsInEmoji = QString(1499, u'a') + QString::fromUtf8("😀");
    QCOMPARE(::cutText(endsInEmoji, kGestureTextLimit), endsInEmoji.left(1500) + "...");
}

void TestTextRules::containsLetters_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("expected");

    QTest::newRow("empty") << QString("") << false;
    QTest::newRow("digits, punctuation, white space") << QString(" 123 !?\n\t") << false;
    QTest::newRow("one Latin letter among digits") << QString("12a") << true;
    QTest::newRow("letter outside the BMP") << QString::fromUtf8("\U0001D400") << true;
    QTest::newRow("emoji") << QString::fromUtf8("😀👍") << false;
}

void TestTextRules::containsLetters()
{
    QFETCH(QString, text);
    QFETCH(bool, expected);

    QCOMPARE(StringHelpers::containsLetters(text), expected);
}

void TestTextRules::cleanUpCopiedPassage_data()
{
    QTest::addColumn<QString>("copied");
    QTest::addColumn<QString>("expected");

    QTest::newRow("quoted passage and attribution")
        << "“The passage.”\n\nExcerpt From\nA Book\nAn Author"
        << "The passage.";
    QTest::newRow("no blank line: untouched, quotes included") << "“Hello”\nAn Author"
                                                               << "“Hello”\nAn Author";
    QTest::newRow("the last blank line counts") << "“First.\n\nSecond.”\n\nAn Author"
                                                << "First.\n\nSecond.";
    QTest::newRow("white space around the quotes") << " \n“Passage” \t\n\nAn Author"
                                                   << "Passage";
    QTest::newRow("only a quotation mark") << "“\n\nAn Author"
                                           << "";
}

void TestTextRules::cleanUpCopiedPassage()
{
    QFETCH(QString, copied);
    QFETCH(QString, expected);

    const QString cleaned = ::cleanUpCopiedPassage(copied);
    QCOMPARE(cleaned, expected);
    QVERIFY(!cleaned.isNull());
}

QTEST_APPLESS_MAIN(TestTextRules)
#include "tst_textrules.moc"
