#include "ui/ThemedWindow.h"

#include <QApplication>
#include <QImage>
#include <QSet>
#include <QTest>

// What a themed window paints: the map centred in its max(width, height) square, under
// rounded corners.
class TestThemedWindow : public QObject
{
    Q_OBJECT
private slots:
    void paints_data();
    void paints();

private:
    static int distinctColours(const QImage &image, const QRect &area)
    {
        QSet<QRgb> colours;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                colours.insert(image.pixel(x, y));
        return int(colours.size());
    }
};

void TestThemedWindow::paints_data()
{
    QTest::addColumn<QSize>("size");
    QTest::newRow("wide, 300 x 200") << QSize(300, 200);
    QTest::newRow("tall, 200 x 300") << QSize(200, 300);
}

void TestThemedWindow::paints()
{
    QFETCH(QSize, size);
    ThemedWindow window;
    window.resize(size);
    const QImage image = window.grab().toImage().convertToFormat(QImage::Format_RGB32);
    QCOMPARE(image.size(), size);

    // The map's land lies in the middle half of its square: the bands above and below it
    // are wash only, the middle shows dots.
    const int side = qMax(size.width(), size.height());
    const int squareTop = (size.height() - side) / 2;
    const int landTop = squareTop + side / 4;
    const int landBottom = squareTop + side * 3 / 4;
    QVERIFY(distinctColours(image,
                            QRect(10, (landTop + landBottom) / 2 - 20, size.width() - 20, 40)) > 3);
    if (landTop > 12) {
        QCOMPARE(distinctColours(image, QRect(10, 6, size.width() - 20, landTop - 12)), 1);
    }

    // Inside the rounded corner the wash is drawn; in the corner itself it is not.
    const QRgb corner = image.pixel(0, 0);
    const QRgb inside = image.pixel(8, 8);
    QVERIFY(corner != inside);
}

QTEST_MAIN(TestThemedWindow)
#include "tst_themedwindow.moc"
