#pragma once

#include "settings/Preferences.h"

#include <QColor>
#include <QPoint>
#include <QTimer>
#include <QWidget>

#include <functional>

class KeySender;
class OutsideClickWatcher;
class Platform;
class WindowActivation;

// The typing panel's window: frameless, above other windows and bypassing the window
// manager, so showing it activates nothing and the application the user was in stays the
// active one. It takes the keyboard with an active grab instead of the focus. The pointer
// is not grabbed: the platform's outside-click watcher sees a click elsewhere, which closes
// the panel and still reaches the application under the pointer. When the keyboard grab is
// refused after a short while (a desktop holding the keyboard), it falls back to taking the
// focus like any window. Where a grab would not get the keys at all (XWayland on GNOME) the
// window is managed, not bypassing, and takes the focus at once; before a paste the
// remembered window is activated again. Draws a rounded background and can be dragged by
// it. Main thread.
class SpotlightWindow : public QWidget
{
    Q_OBJECT

public:
    // The shortcut in force, so the panel can close on it while it holds the keyboard (the
    // desktop-wide binding does not fire during our grab).
    using ShortcutSource = std::function<StoredShortcut()>;

    // The platform gives the window activation, the key state and the click watcher.
    explicit SpotlightWindow(Platform &platform, QWidget *parent = nullptr);

    void setBackgroundColor(const QColor &color);
    void setCornerRadius(qreal radius);
    void setShortcutSource(ShortcutSource source) { m_shortcut = std::move(source); }
    // The widget that receives the keys while the panel holds the keyboard.
    void setKeyReceiver(QWidget *receiver);

    // Shows the panel and takes the keyboard (retrying briefly if another client holds it).
    void makeKeyAndOrderFront();
    // Hides the panel; the keyboard goes back to whoever had it.
    void orderOut();

    bool holdsKeyboardGrab() const { return m_holdsGrab; }
    // Whether the fallback took the focus; the window manager then needs telling which
    // window to activate again (returnActivation).
    bool tookFocus() const { return m_tookFocus; }
    // The window that was active when the panel opened (0 when unknown).
    quint64 rememberedWindow() const { return m_rememberedWindow; }
    // After a close, before a paste: when the fallback took the focus, asks the window
    // manager to activate the remembered window again and waits, briefly, until it has the
    // keyboard. Nothing to do when the grab was used: that window never lost its place.
    void returnActivation();

signals:
    void cancelOperation(); // Escape
    void didResignKey();    // a click elsewhere, or the focus went elsewhere
    void shortcutPressed(); // the typing-mode shortcut, while the panel holds the keyboard

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void tryKeyboardGrab();
    void takeFocusInstead();
    void releaseGrabs();
    void outsideButtonPressed();

    WindowActivation &m_activation;
    KeySender &m_keys;
    OutsideClickWatcher *m_clickWatcher = nullptr;
    QColor m_backgroundColor;
    qreal m_cornerRadius = 8.0;
    QWidget *m_keyReceiver = nullptr;
    ShortcutSource m_shortcut;
    const bool m_grabsKeyboard;
    QTimer m_grabRetry;
    int m_grabAttempts = 0;
    bool m_holdsGrab = false;
    bool m_tookFocus = false;
    bool m_hadFocus = false;
    // The shortcut key that opened the panel may still be down (and repeating): its presses
    // count only after it has been up once.
    bool m_shortcutArmed = true;
    quint64 m_rememberedWindow = 0;
    bool m_dragging = false;
    QPoint m_dragOffset;
};
