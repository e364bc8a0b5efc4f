#include "ui/ThemedWindow.h"

#include "presentation/PopoverPlacement.h"

#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QPixmapCache>
#include <QSvgRenderer>

namespace {

constexpr char kWorldMapResource[] = ":/images/worldmapreleasenotes.svg";

// The map is drawn from a pixmap rendered once per size: SVG paths are too slow to
// replay on every paint of a window that may be resized.
QPixmap worldMapPixmap(const QSize &size, qreal devicePixelRatio)
{
    const QString key = QStringLiteral("tolkaro-worldmap-%1x%2@%3")
                            .arg(size.width())
                            .arg(size.height())
                            .arg(devicePixelRatio);
    QPixmap pixmap;
    if (QPixmapCache::find(key, &pixmap))
        return pixmap;
    pixmap = QPixmap(size * devicePixelRatio);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QSvgRenderer renderer{QString::fromLatin1(kWorldMapResource)};
    if (renderer.isValid()) {
        QPainter painter(&pixmap);
        renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)));
    }
    QPixmapCache::insert(key, pixmap);
    return pixmap;
}

} // namespace

ThemedWindow::ThemedWindow(QWidget *parent, Qt::WindowFlags flags) : QWidget(parent, flags)
{
    setupCustomWindowAppearance();
}

void ThemedWindow::setupCustomWindowAppearance()
{
    // The whole background is ours; Qt need not clear it first.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void ThemedWindow::paintThemedBackground(QPainter &painter, const QWidget &window,
                                         const QRect &dirty)
{
    painter.save();
    painter.fillRect(dirty, window.palette().color(QPalette::Window));

    const QSizeF size = window.size();
    QPainterPath rounded;
    rounded.addRoundedRect(QRectF(QPointF(0, 0), size), kCornerRadius, kCornerRadius);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setClipPath(rounded);
    painter.setClipRect(dirty, Qt::IntersectClip);

    const QRectF mapRect = themedWindowMapRect(size);
    painter.setCompositionMode(QPainter::CompositionMode_SourceAtop);
    painter.setOpacity(kMapOpacity);
    painter.drawPixmap(mapRect.topLeft(),
                       worldMapPixmap(mapRect.size().toSize(), window.devicePixelRatioF()));

    painter.setOpacity(1.0);
    painter.setCompositionMode(QPainter::CompositionMode_ColorDodge);
    painter.fillRect(dirty, QColor::fromRgbF(0.1f, 0.1f, 0.1f, 0.7f));
    painter.restore();
}

void ThemedWindow::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    paintThemedBackground(painter, *this, event->rect());
}
