#include "ui/TranslationPopover.h"

#include "presentation/PopoverPlacement.h"
#include "platform/OutsideClickWatcher.h"
#include "platform/Platform.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QRegion>
#include <QScreen>
#include <QVBoxLayout>

namespace {

QScreen *screenUnder(const QPoint &position)
{
    if (QScreen *screen = QGuiApplication::screenAt(position))
        return screen;
    return QGuiApplication::primaryScreen();
}

} // namespace

TranslationPopover::TranslationPopover(QWidget *content, Platform &platform, QWidget *parent)
    : QWidget(parent, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus |
                          Qt::NoDropShadowWindowHint),
      m_content(content), m_clickWatcher(platform.createOutsideClickWatcher(this).release())
{
    setObjectName(QStringLiteral("TranslationPopover"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_X11DoNotAcceptFocus);
    setFocusPolicy(Qt::NoFocus);
    // The visual is chosen when the native window is created, so this is decided once.
    m_composited = platform.compositorIsRunning();
    if (m_composited)
        setAttribute(Qt::WA_TranslucentBackground);

    auto *layout = new QVBoxLayout(this);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    const int margin = shadowMargin();
    layout->setContentsMargins(margin, margin, margin, margin);
    if (m_content)
        layout->addWidget(m_content);

    connect(m_clickWatcher, &OutsideClickWatcher::buttonPressed, this,
            &TranslationPopover::outsideButtonPressed);

    // Showing and closing fade, where a compositor can show a window half transparent.
    m_fade = new QPropertyAnimation(this, "windowOpacity", this);
    m_fade->setDuration(int(kFadeDuration.count()));
    connect(m_fade, &QPropertyAnimation::finished, this, [this] {
        if (m_fade->endValue().toReal() == 0.0) {
            hide();
            setWindowOpacity(1.0);
        }
    });
}

TranslationPopover::~TranslationPopover() = default;

void TranslationPopover::prepare()
{
    winId();
    m_clickWatcher->canWatchClicks();
}

void TranslationPopover::showAtPoint(const QPoint &position)
{
    m_anchor = position;
    // Size the window for its current text before it is mapped, so it appears in place.
    if (layout())
        layout()->activate();
    placeAroundAnchor();
    if (m_composited) {
        // A show while the last close is still fading takes the window over as it is.
        if (m_fade->state() != QAbstractAnimation::Running)
            setWindowOpacity(0.0);
        fadeTo(1.0);
    }
    show();
    raise();
    m_clickWatcher->start();
}

void TranslationPopover::closePopover()
{
    m_clickWatcher->stop();
    if (!m_composited || !isVisible()) {
        m_fade->stop();
        hide();
        setWindowOpacity(1.0);
        return;
    }
    fadeTo(0.0);
}

bool TranslationPopover::isClosing() const
{
    return m_fade->state() == QAbstractAnimation::Running && m_fade->endValue().toReal() == 0.0;
}

void TranslationPopover::fadeTo(qreal opacity)
{
    m_fade->stop();
    m_fade->setStartValue(windowOpacity());
    m_fade->setEndValue(opacity);
    m_fade->start();
}

QRect TranslationPopover::bodyGeometry() const
{
    const int margin = shadowMargin();
    return geometry().adjusted(margin, margin, -margin, -margin);
}

void TranslationPopover::placeAroundAnchor()
{
    const int margin = shadowMargin();
    const QSize body = size() - QSize(2 * margin, 2 * margin);
    const PopoverPlacement::Placement placement =
        PopoverPlacement::placePopover(m_anchor, body, screenUnder(m_anchor)->availableGeometry());
    m_abovePointer = placement.abovePointer;
    move(placement.topLeft - QPoint(margin, margin));
}

void TranslationPopover::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    placeAroundAnchor();
    if (!m_composited) {
        // Without a compositor the corners are cut by the X shape extension instead.
        QPainterPath path;
        path.addRoundedRect(QRectF(rect()), kCornerRadius, kCornerRadius);
        setMask(QRegion(path.toFillPolygon().toPolygon()));
    }
}

void TranslationPopover::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const int margin = shadowMargin();
    const QRectF body = QRectF(rect()).adjusted(margin, margin, -margin, -margin);

    if (m_composited) {
        // A soft shadow from stacked translucent outlines, a little lower than the body.
        painter.setPen(Qt::NoPen);
        for (int i = margin; i > 0; --i) {
            painter.setBrush(QColor(0, 0, 0, 6));
            painter.drawRoundedRect(body.adjusted(-i, -i + 2, i, i + 2), kCornerRadius + i,
                                    kCornerRadius + i);
        }
    }

    const QPalette colors = palette();
    painter.setBrush(colors.color(QPalette::Window));
    QColor border = colors.color(QPalette::WindowText);
    border.setAlphaF(0.22f);
    painter.setPen(QPen(border, 1.0));
    painter.drawRoundedRect(body.adjusted(0.5, 0.5, -0.5, -0.5), kCornerRadius, kCornerRadius);
}

void TranslationPopover::outsideButtonPressed()
{
    if (!isVisible() || isClosing() || bodyGeometry().contains(QCursor::pos()))
        return;
    closePopover();
    emit closedByOutsideClick();
}
