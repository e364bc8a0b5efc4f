#pragma once

#include <QLabel>

class QTextLayout;

// The popover's text field: a label that wraps at word boundaries, or anywhere inside a
// word too long for a line (long URLs, unbroken scripts), and whose size hint is the
// wrapped text's own size up to a maximum width. It stays a QLabel, so its text reaches
// screen readers and AnimatedSetString works on it.
class PopoverTextField : public QLabel
{
    Q_OBJECT
public:
    explicit PopoverTextField(QWidget *parent = nullptr);

    void setMaximumTextWidth(int width);
    int maximumTextWidth() const { return m_maximumTextWidth; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return false; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    // Lays the text out in lines of at most lineWidth; answers the block's size.
    QSizeF layOut(QTextLayout &layout, qreal lineWidth) const;

    int m_maximumTextWidth = 440;
};
