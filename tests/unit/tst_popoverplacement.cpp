#include "presentation/PopoverPlacement.h"

#include <QTest>

using namespace PopoverPlacement;

class TestPopoverPlacement : public QObject
{
    Q_OBJECT
private slots:
    void placePopover_data();
    void placePopover();
    void staysOnScreen_data();
    void staysOnScreen();
    void mapRect_data();
    void mapRect();
};

void TestPopoverPlacement::placePopover_data()
{
    QTest::addColumn<QPoint>("pointer");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QRect>("screen");
    QTest::addColumn<QPoint>("topLeft");
    QTest::addColumn<bool>("above");

    const QRect screen(0, 0, 1280, 800);
    // Centred below the pointer in the open, and the real screen's corners, are the tray
    // desktop test's; here, the edges and their boundaries.
    QTest::newRow("near the left edge: pushed right")
        << QPoint(20, 400) << QSize(200, 50) << screen << QPoint(kScreenMargin, 418) << false;
    QTest::newRow("near the right edge: pushed left")
        << QPoint(1270, 400) << QSize(200, 50) << screen << QPoint(1280 - kScreenMargin - 200, 418)
        << false;
    QTest::newRow("bottom edge exactly reached: still below")
        << QPoint(600, 800 - kScreenMargin - 50 - kGapBelowPointer) << QSize(200, 50) << screen
        << QPoint(500, 800 - kScreenMargin - 50) << false;
    QTest::newRow("one pixel too low: above")
        << QPoint(600, 800 - kScreenMargin - 50 - kGapBelowPointer + 1) << QSize(200, 50) << screen
        << QPoint(500, 800 - kScreenMargin - 50 - kGapBelowPointer + 1 - 6 - 50) << true;
    QTest::newRow("screen above the primary, near its bottom (negative y)")
        << QPoint(500, -20) << QSize(200, 50) << QRect(0, -768, 1024, 768)
        << QPoint(400, -20 - kGapAbovePointer - 50) << true;
    QTest::newRow("wider than the screen: starts at its left")
        << QPoint(600, 100) << QSize(2000, 50) << screen << QPoint(kScreenMargin, 118) << false;
    QTest::newRow("fits neither side, more room above: clamped to the top")
        << QPoint(600, 500) << QSize(200, 700) << screen << QPoint(500, kScreenMargin) << true;
    QTest::newRow("fits neither side, more room below: clamped to the bottom")
        << QPoint(600, 300) << QSize(200, 700) << screen << QPoint(500, 800 - kScreenMargin - 700)
        << false;
    QTest::newRow("taller than the screen: starts at its top")
        << QPoint(600, 300) << QSize(200, 900) << screen << QPoint(500, kScreenMargin) << false;
}

void TestPopoverPlacement::placePopover()
{
    QFETCH(QPoint, pointer);
    QFETCH(QSize, size);
    QFETCH(QRect, screen);
    QFETCH(QPoint, topLeft);
    QFETCH(bool, above);

    const Placement placement = PopoverPlacement::placePopover(pointer, size, screen);
    QCOMPARE(placement.topLeft, topLeft);
    QCOMPARE(placement.abovePointer, above);
}

void TestPopoverPlacement::staysOnScreen_data()
{
    QTest::addColumn<QRect>("screen");
    QTest::newRow("primary") << QRect(0, 0, 1280, 800);
    QTest::newRow("offset and odd-sized") << QRect(-1023, 37, 1023, 611);
}

// Every pointer position on the screen gives a popover wholly on that screen, which never
// covers the pointer's hot spot when it fits.
void TestPopoverPlacement::staysOnScreen()
{
    QFETCH(QRect, screen);
    const QSize size(300, 120);
    for (int x = screen.left(); x <= screen.right(); x += 37) {
        for (int y = screen.top(); y <= screen.bottom(); y += 29) {
            const Placement placement = PopoverPlacement::placePopover(QPoint(x, y), size, screen);
            const QRect popover(placement.topLeft, size);
            QVERIFY2(screen.contains(popover),
                     qPrintable(QStringLiteral("pointer %1,%2").arg(x).arg(y)));
            QVERIFY2(!popover.contains(QPoint(x, y)),
                     qPrintable(QStringLiteral("covers pointer %1,%2").arg(x).arg(y)));
        }
    }
}

void TestPopoverPlacement::mapRect_data()
{
    QTest::addColumn<QSizeF>("window");
    QTest::addColumn<QRectF>("map");
    QTest::newRow("300 x 200: 300 square, 50 beyond top and bottom")
        << QSizeF(300, 200) << QRectF(0, -50, 300, 300);
    QTest::newRow("odd difference: half pixels") << QSizeF(301, 200) << QRectF(0, -50.5, 301, 301);
}

void TestPopoverPlacement::mapRect()
{
    QFETCH(QSizeF, window);
    QFETCH(QRectF, map);
    QCOMPARE(themedWindowMapRect(window), map);
}

QTEST_APPLESS_MAIN(TestPopoverPlacement)
#include "tst_popoverplacement.moc"
