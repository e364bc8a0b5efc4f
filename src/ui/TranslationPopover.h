#pragma once

#include <QPoint>
#include <QPointer>
#include <QWidget>

#include <chrono>

class OutsideClickWatcher;
class Platform;
class QPropertyAnimation;

// The window of the translation popover: a frameless tool-tip window (override-redirect
// on X11), so showing it never takes the keyboard focus or the pointer from the
// application the user is reading. It hangs below the pointer, stays on the screen under
// the pointer and goes above the pointer near the bottom; when its content changes size
// it is placed again around the same point. A click anywhere outside closes it, which is
// watched without a grab and only while it is shown. Rounded and shadowed, and fading in
// and out over 0.15 s, when a compositor runs; rounded by a shape mask and shown and hidden
// at once when none does. Main thread only.
class TranslationPopover : public QWidget
{
    Q_OBJECT
public:
    // The platform gives the outside-click watcher and tells whether a compositor runs.
    TranslationPopover(QWidget *content, Platform &platform, QWidget *parent = nullptr);
    ~TranslationPopover() override;

    // Creates the native window and the click watcher's connection ahead of the first
    // show, so that the first gesture is as quick as the others.
    void prepare();
    // Shows the popover for the pointer at position (global, logical pixels).
    void showAtPoint(const QPoint &position);
    // Fades out (with a compositor; at once without one), then hides.
    void closePopover();
    // Closed, but still fading out.
    bool isClosing() const;

    QPoint anchor() const { return m_anchor; }
    bool isAbovePointer() const { return m_abovePointer; }
    // The rounded body in global coordinates (the window without its shadow).
    QRect bodyGeometry() const;

signals:
    // The popover closed itself because the user clicked elsewhere.
    void closedByOutsideClick();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void placeAroundAnchor();
    void outsideButtonPressed();
    int shadowMargin() const { return m_composited ? kShadowMargin : 0; }

    void fadeTo(qreal opacity);

    static constexpr std::chrono::milliseconds kFadeDuration{150};
    static constexpr int kShadowMargin = 10;
    static constexpr qreal kCornerRadius = 8.0;

    QPointer<QWidget> m_content;
    OutsideClickWatcher *m_clickWatcher = nullptr;
    QPoint m_anchor;
    bool m_abovePointer = false;
    bool m_composited = false;
    QPropertyAnimation *m_fade = nullptr;
};
