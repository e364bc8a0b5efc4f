#include "ui/AnimatedSetString.h"
#include "ui/PopoverTextField.h"

#include <QAbstractAnimation>
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
    void sameTextDoesNotFade();
    void newTextFadesOutThenIn();
    void attributedTextAlwaysFades();
    void colours();
    void lastOfOverlappingChangesWins();
    void textFieldSize_data();
    void textFieldSize();
};

void TestAnimatedSetString::sameTextDoesNotFade()
{
    QLabel field(QStringLiteral("hello"));
    setAnimatedStringValue(&field, QStringLiteral("hello"));
    QCOMPARE(field.graphicsEffect(), nullptr);
    QCOMPARE(field.findChildren<QAbstractAnimation *>().size(), 0);
}

void TestAnimatedSetString::newTextFadesOutThenIn()
{
    QLabel field(QStringLiteral("hello"));
    setAnimatedStringValue(&field, QStringLiteral("hola"));
    // The old text stays while it fades out.
    QCOMPARE(field.text(), QStringLiteral("hello"));
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(field.graphicsEffect());
    QVERIFY(effect);
    QSignalSpy opacity(effect, &QGraphicsOpacityEffect::opacityChanged);

    // The text changes at the invisible midpoint, then the field comes back.
    QTRY_COMPARE(field.text(), QStringLiteral("hola"));
    QVERIFY(opacity.size() > 0);
    qreal lowest = 1.0;
    for (const QList<QVariant> &change : opacity)
        lowest = qMin(lowest, change.at(0).toReal());
    QCOMPARE(lowest, 0.0);
    QTRY_COMPARE(opacityOf(field), 1.0);
}

void TestAnimatedSetString::attributedTextAlwaysFades()
{
    QLabel field(QStringLiteral("No text to translate"));
    setAnimatedAttributedStringValue(&field,
                                     {QStringLiteral("No text to translate"), grayTextColor()});
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(field.graphicsEffect());
    QVERIFY(effect);
    QSignalSpy opacity(effect, &QGraphicsOpacityEffect::opacityChanged);
    QTRY_COMPARE(textColor(field), grayTextColor());
    QTRY_COMPARE(opacityOf(field), 1.0);
    bool dipped = false;
    for (const QList<QVariant> &change : opacity)
        dipped = dipped || change.at(0).toReal() < 0.5;
    QVERIFY(dipped);
}

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

    // The plain comparison looks at the text only: the same words shown gray stay gray.
    setAttributedStringValue(&field, {QStringLiteral("same"), grayTextColor()});
    setAnimatedStringValue(&field, QStringLiteral("same"));
    QCOMPARE(textColor(field), grayTextColor());
}

void TestAnimatedSetString::lastOfOverlappingChangesWins()
{
    QLabel field(QStringLiteral("a"));
    setAnimatedStringValue(&field, QStringLiteral("b"));
    QTest::qWait(100);
    setAnimatedStringValue(&field, QStringLiteral("c"));
    QTRY_COMPARE(field.text(), QStringLiteral("c"));
    QTRY_COMPARE(opacityOf(field), 1.0);
    QTest::qWait(AnimatedSetString::kFadeOutMilliseconds + AnimatedSetString::kFadeInMilliseconds);
    QCOMPARE(field.text(), QStringLiteral("c"));
    QCOMPARE(opacityOf(field), 1.0);
}

void TestAnimatedSetString::textFieldSize_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("wraps");
    QTest::newRow("a short word: narrower than the maximum, one line")
        << QStringLiteral("Hallo") << false;
    QTest::newRow("a sentence: wraps at the maximum width")
        << QStringLiteral("The quick brown fox jumps over the lazy dog, again and again, until the "
                          "dog finally wakes up and chases it away.")
        << true;
    QTest::newRow("one long unbroken word: broken anywhere")
        << QStringLiteral("https://example.org/").append(QString(200, QLatin1Char('x'))) << true;
    QTest::newRow("empty: still one line tall") << QString() << false;
    QTest::newRow("line breaks are kept") << QStringLiteral("one\ntwo\nthree") << true;
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
