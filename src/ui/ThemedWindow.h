#pragma once

#include <QWidget>

class QPainter;

// A window whose background is a faint world map under a dark colour-dodge wash, inside
// rounded corners. Subclass it, or call paintThemedBackground() from another window's
// paintEvent() to give it the same look.
class ThemedWindow : public QWidget
{
    Q_OBJECT
public:
    explicit ThemedWindow(QWidget *parent = nullptr, Qt::WindowFlags flags = {});

    // Paints the standard background of a window of the given size, then the map and the
    // wash, limited to dirty.
    static void paintThemedBackground(QPainter &painter, const QWidget &window, const QRect &dirty);

    static constexpr qreal kCornerRadius = 5.0;
    static constexpr qreal kMapOpacity = 0.35;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void setupCustomWindowAppearance();
};
