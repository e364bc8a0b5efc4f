#include "ui/PopoverTextField.h"

#include <QPainter>
#include <QTextLayout>
#include <QTextOption>

#include <cmath>

PopoverTextField::PopoverTextField(QWidget *parent) : QLabel(parent)
{
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    setAlignment(Qt::AlignLeft | Qt::AlignTop);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Preferred);
}

void PopoverTextField::setMaximumTextWidth(int width)
{
    m_maximumTextWidth = qMax(40, width);
    updateGeometry();
}

QSizeF PopoverTextField::layOut(QTextLayout &layout, qreal lineWidth) const
{
    QString text = this->text();
    text.replace(QLatin1Char('\n'), QChar::LineSeparator);
    layout.setText(text);
    layout.setFont(font());
    QTextOption option(Qt::AlignLeft);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);

    const QFontMetricsF metrics(font());
    qreal y = 0;
    qreal widest = 0;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(lineWidth);
        line.setPosition(QPointF(0, y));
        y += metrics.lineSpacing();
        widest = qMax(widest, line.naturalTextWidth());
    }
    layout.endLayout();
    // An empty text still takes one line, so the popover never collapses.
    return QSizeF(widest, qMax(y, metrics.lineSpacing()));
}

QSize PopoverTextField::sizeHint() const
{
    QTextLayout layout;
    const QSizeF size = layOut(layout, m_maximumTextWidth);
    const QMargins margins = contentsMargins();
    // One spare pixel keeps the painted layout's line breaks equal to the measured ones.
    return QSize(int(std::ceil(size.width())) + 1 + margins.left() + margins.right(),
                 int(std::ceil(size.height())) + margins.top() + margins.bottom());
}

QSize PopoverTextField::minimumSizeHint() const
{
    return sizeHint();
}

void PopoverTextField::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    const QRect area = contentsRect();
    QTextLayout layout;
    layOut(layout, qMin<qreal>(area.width(), m_maximumTextWidth));
    layout.draw(&painter, area.topLeft());
}
