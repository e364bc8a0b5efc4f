#include "ui/AnimatedSetString.h"
#include "ui/PopoverTextField.h"

#include <QApplication>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QSignalSpy>
#include <QTest>

using namespace AnimatedSetString;

namespace {

qreal opacityOf(QLabel &field)
{
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(field.graphicsEffect());
    return effect ? effect->opacity() : 1.0;
}

QColor textColor(QLabel &field)
{
    return field.palette().color(QPalette::WindowText);
}

} // namespace

class TestAnimatedSetString : public QObject
{
    Q_OBJECT
private slots:
    void colours();
    void lastChangeWins_data();
    void lastChangeWins();
    void textFieldSize_data();
    void textFieldSize();
};

void TestAnimatedSetString::colours()
{
    QWidget window;
    QPalette palette = window.palette();
    palette.setColor(QPalette::WindowText, QColor(10, 20, 30));
    window.setPalette(palette);
    QLabel field(QStringLiteral("source"), &window);

    setAnimatedAttributedStringValue(&field,
                                     {QStringLiteral("Request timed out"), grayTextColor()});
    QTRY_COMPARE(field.text(), QStringLiteral("Request timed out"));
    QCOMPARE(textColor(field), grayTextColor());

    // A plain change brings the window's own colour back.
    setAnimatedStringValue(&field, QStringLiteral("translation"));
    QTRY_COMPARE(field.text(), QStringLiteral("translation"));
    QCOMPARE(textColor(field), QColor(10, 20, 30));
}

void TestAnimatedSetString::lastChangeWins_data()
{
    QTest::addColumn<bool>("secondAtOnce");

    QTest::newRow("second fade started during the first") << false;
    // A cancelled request's error must not land on the next gesture's text.
    QTest::newRow("value set at once during a fade") << true;
}

void TestAnimatedSetString::lastChangeWins()
{
    QFETCH(bool, secondAtOnce);

    QLabel field(QStringLiteral("a"));
    setAnimatedStringValue(&field, QStringLiteral("b"));
    QTest::qWait(100);
    if (secondAtOnce)
        setStringValue(&field, QStringLiteral("c"));
    else
        setAnimatedStringValue(&field, QStringLiteral("c"));
    QTRY_COMPARE(field.text(), QStringLiteral("c"));
    QTRY_COMPARE(opacityOf(field), 1.0);
    QTest::qWait(kFadeOutMilliseconds + kFadeInMilliseconds);
    QCOMPARE(field.text(), QStringLiteral("c"));
    QCOMPARE(opacityOf(field), 1.0);
}

void TestAnimatedSetString::textFieldSize_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("wraps");
    QTest::newRow("a short word: one line") << QStringLiteral("Hallo") << false;
    QTest::newRow("a sentence: wraps at the maximum width")
        << QStringLiteral("The quick brown fox jumps over the lazy dog, again and again, until the "
                          "dog finally wakes up and chases it away.")
        << true;
    QTest::newRow("one long unbroken word: broken anywhere")
        << QStringLiteral("https://example.org/").append(QString(200, QLatin1Char('x'))) << true;
}

void TestAnimatedSetString::textFieldSize()
{
    QFETCH(QString, text);
    QFETCH(bool, wraps);
    PopoverTextField field;
    field.setMaximumTextWidth(200);
    field.setText(text);
    const QSize hint = field.sizeHint();
    const int lineSpacing = QFontMetrics(field.font()).lineSpacing();
    QVERIFY2(hint.width() <= 200 + 1, qPrintable(QString::number(hint.width())));
    QVERIFY(hint.height() >= lineSpacing);
    QCOMPARE(hint.height() > lineSpacing + 1, wraps);
}

QTEST_MAIN(TestAnimatedSetString)
#include "tst_animatedsetstring.moc"
