#include "typing/SpotlightWindow.h"

#include "common/Log.h"
#include "platform/x11/X11Input.h"
#include "typing/TypingShortcut.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFocusEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QThread>
#include <QWindow>

#include <chrono>

using namespace std::chrono_literals;

namespace {

// A desktop that launched us from its own key binding may still hold the keyboard until
// that key goes up; the grab is retried for this long before falling back to the focus.
constexpr int kGrabAttempts = 25;
constexpr auto kGrabRetryInterval = 20ms;
// How long to wait for the window manager to activate the remembered window again.
constexpr auto kActivationWait = 500ms;

xcb_connection_t *qtConnection()
{
    auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

} // namespace

SpotlightWindow::SpotlightWindow(QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                          Qt::X11BypassWindowManagerHint)
{
    setAttribute(Qt::WA_ShowWithoutActivating);
    setBackgroundColor(QColor(255, 59, 48));
    m_grabRetry.setInterval(kGrabRetryInterval);
    connect(&m_grabRetry, &QTimer::timeout, this, &SpotlightWindow::tryKeyboardGrab);
}

void SpotlightWindow::setBackgroundColor(const QColor &color)
{
    m_backgroundColor = color;
    update();
}

void SpotlightWindow::setCornerRadius(qreal radius)
{
    m_cornerRadius = radius;
    update();
}

void SpotlightWindow::setKeyReceiver(QWidget *receiver)
{
    if (m_keyReceiver)
        m_keyReceiver->removeEventFilter(this);
    m_keyReceiver = receiver;
    if (m_keyReceiver)
        m_keyReceiver->installEventFilter(this);
}

void SpotlightWindow::makeKeyAndOrderFront()
{
    xcb_connection_t *connection = qtConnection();
    if (!isVisible()) {
        m_rememberedWindow = connection ? X11Input::activeWindow(connection) : 0;
        m_tookFocus = false;
    }
    show();
    raise();
    if (m_holdsGrab || m_tookFocus)
        return;
    m_grabAttempts = 0;
    tryKeyboardGrab();
    if (!m_holdsGrab)
        m_grabRetry.start();
}

void SpotlightWindow::orderOut()
{
    m_grabRetry.stop();
    releaseGrabs();
    hide();
}

void SpotlightWindow::tryKeyboardGrab()
{
    QWindow *window = windowHandle();
    if (!isVisible() || !window) {
        m_grabRetry.stop();
        return;
    }
    ++m_grabAttempts;
    if (window->setKeyboardGrabEnabled(true)) {
        m_grabRetry.stop();
        m_holdsGrab = true;
        // Keys go to the receiver whatever Qt thinks has the focus (nothing does: the
        // window is never activated).
        if (m_keyReceiver) {
            m_keyReceiver->grabKeyboard();
            m_keyReceiver->setFocus();
            QFocusEvent focusIn(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
            QCoreApplication::sendEvent(m_keyReceiver, &focusIn);
        }
        window->setMouseGrabEnabled(true);
        const StoredShortcut shortcut = m_shortcut ? m_shortcut() : StoredShortcut{};
        xcb_connection_t *connection = qtConnection();
        m_shortcutArmed =
            !(shortcut.keySym && connection && X11Input::isKeySymDown(connection, shortcut.keySym));
        return;
    }
    if (m_grabAttempts >= kGrabAttempts) {
        m_grabRetry.stop();
        takeFocusInstead();
    }
}

void SpotlightWindow::takeFocusInstead()
{
    tolkaro::logLine(QStringLiteral("Typing panel: the keyboard is held by another program; "
                                    "taking the focus instead"));
    m_tookFocus = true;
    m_hadFocus = false;
    m_shortcutArmed = true;
    activateWindow();
    if (xcb_connection_t *connection = qtConnection()) {
        // Bypassing the window manager, the panel has to take the focus itself.
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_PARENT, xcb_window_t(winId()),
                            XCB_CURRENT_TIME);
        xcb_flush(connection);
    }
    if (m_keyReceiver)
        m_keyReceiver->setFocus();
}

void SpotlightWindow::releaseGrabs()
{
    if (m_holdsGrab) {
        if (m_keyReceiver) {
            m_keyReceiver->releaseKeyboard();
            QFocusEvent focusOut(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
            QCoreApplication::sendEvent(m_keyReceiver, &focusOut);
        }
        if (QWindow *window = windowHandle()) {
            window->setMouseGrabEnabled(false);
            window->setKeyboardGrabEnabled(false);
        }
        m_holdsGrab = false;
    }
    m_dragging = false;
}

void SpotlightWindow::returnActivation()
{
    xcb_connection_t *connection = qtConnection();
    if (m_tookFocus && connection && m_rememberedWindow) {
        X11Input::requestActivation(connection, m_rememberedWindow);
        const QDeadlineTimer deadline(kActivationWait);
        // The manager's property may never have changed while the panel held the focus, and
        // the focus may come back before the manager has dealt with the request: wait for
        // both the keyboard focus and the manager's word.
        while (!(X11Input::inputFocusIsWithin(connection, m_rememberedWindow) &&
                 X11Input::activeWindow(connection) == m_rememberedWindow) &&
               !deadline.hasExpired()) {
            QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, 20);
            QThread::msleep(10);
        }
    }
    m_tookFocus = false;
}

bool SpotlightWindow::event(QEvent *event)
{
    if (event->type() == QEvent::WindowActivate && m_tookFocus) {
        m_hadFocus = true;
    } else if (event->type() == QEvent::WindowDeactivate && m_tookFocus && m_hadFocus &&
               isVisible()) {
        m_hadFocus = false;
        emit didResignKey();
    }
    return QWidget::event(event);
}

bool SpotlightWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_keyReceiver ||
        (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease))
        return QWidget::eventFilter(watched, event);
    auto *keyEvent = static_cast<QKeyEvent *>(event);
    const StoredShortcut shortcut = m_shortcut ? m_shortcut() : StoredShortcut{};
    const quint32 keySym = keyEvent->nativeVirtualKey();
    if (event->type() == QEvent::KeyRelease) {
        if (shortcut.keySym && TypingShortcut::normalizedKeySym(keySym) ==
                                   TypingShortcut::normalizedKeySym(shortcut.keySym))
            m_shortcutArmed = true;
        return false;
    }
    if (keyEvent->key() == Qt::Key_Escape &&
        TypingShortcut::significantModifiers(keyEvent->modifiers()) == 0) {
        emit cancelOperation();
        return true;
    }
    if (TypingShortcut::matches(shortcut, keySym, keyEvent->modifiers())) {
        if (m_shortcutArmed && !keyEvent->isAutoRepeat())
            emit shortcutPressed();
        return true;
    }
    return false;
}

void SpotlightWindow::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_backgroundColor);
    painter.drawRoundedRect(rect(), m_cornerRadius, m_cornerRadius);
}

void SpotlightWindow::resizeEvent(QResizeEvent *event)
{
    // Without a compositor nothing is translucent: the X shape gives the rounded corners.
    QPainterPath path;
    path.addRoundedRect(rect(), m_cornerRadius, m_cornerRadius);
    setMask(QRegion(path.toFillPolygon().toPolygon()));
    QWidget::resizeEvent(event);
}

void SpotlightWindow::mousePressEvent(QMouseEvent *event)
{
    // With the pointer grabbed, a press anywhere on the screen lands here.
    if (!rect().contains(event->position().toPoint())) {
        emit didResignKey();
        return;
    }
    if (event->button() == Qt::LeftButton) {
        m_dragging = true;
        m_dragOffset = event->globalPosition().toPoint() - pos();
    }
}

void SpotlightWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (m_dragging)
        move(event->globalPosition().toPoint() - m_dragOffset);
}

void SpotlightWindow::mouseReleaseEvent(QMouseEvent *)
{
    m_dragging = false;
}
