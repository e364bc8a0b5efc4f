#include "typing/SpotlightWindow.h"

#include "common/Log.h"
#include "platform/KeySender.h"
#include "platform/OutsideClickWatcher.h"
#include "platform/Platform.h"
#include "platform/WindowActivation.h"
#include "typing/TypingShortcut.h"

#include <QCursor>
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

Qt::WindowFlags panelFlags(bool grabsKeyboard)
{
    const Qt::WindowFlags flags =
        Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint;
    return grabsKeyboard ? flags | Qt::X11BypassWindowManagerHint : flags;
}

} // namespace

SpotlightWindow::SpotlightWindow(Platform &platform, QWidget *parent)
    : QWidget(parent,
              panelFlags(platform.windowActivation().keyboardGrabReachesAllKeys())),
      m_activation(platform.windowActivation()), m_keys(platform.keySender()),
      m_clickWatcher(platform.createOutsideClickWatcher(this).release()),
      m_grabsKeyboard(m_activation.keyboardGrabReachesAllKeys())
{
    connect(m_clickWatcher, &OutsideClickWatcher::buttonPressed, this,
            &SpotlightWindow::outsideButtonPressed);
    if (m_grabsKeyboard)
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
    if (!isVisible()) {
        m_rememberedWindow = m_activation.activeWindow();
        m_tookFocus = false;
    }
    show();
    raise();
    m_clickWatcher->start();
    if (m_holdsGrab || m_tookFocus)
        return;
    if (!m_grabsKeyboard) {
        takeFocusInstead();
        return;
    }
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
        const StoredShortcut shortcut = m_shortcut ? m_shortcut() : StoredShortcut{};
        m_shortcutArmed = !(shortcut.keySym && m_keys.isKeyDown(shortcut.keySym));
        return;
    }
    if (m_grabAttempts >= kGrabAttempts) {
        m_grabRetry.stop();
        tolkaro::logLine(QStringLiteral("Typing panel: the keyboard is held by another "
                                        "program; taking the focus instead"));
        takeFocusInstead();
    }
}

void SpotlightWindow::takeFocusInstead()
{
    m_tookFocus = true;
    m_hadFocus = false;
    m_shortcutArmed = true;
    activateWindow();
    // Bypassing the window manager, the panel has to take the focus itself; managed, it
    // would be refused the focus as a program in the background.
    m_activation.takeFocus(windowHandle());
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
        if (QWindow *window = windowHandle())
            window->setKeyboardGrabEnabled(false);
        m_holdsGrab = false;
    }
    m_dragging = false;
}

void SpotlightWindow::returnActivation()
{
    if (m_tookFocus && m_rememberedWindow && m_activation.requestActivation(m_rememberedWindow)) {
        const QDeadlineTimer deadline(kActivationWait);
        // The manager's property may never have changed while the panel held the focus, and
        // the focus may come back before the manager has dealt with the request: wait for
        // both the keyboard focus and the manager's word.
        while (!m_activation.isActiveWithFocus(m_rememberedWindow) && !deadline.hasExpired()) {
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

void SpotlightWindow::hideEvent(QHideEvent *event)
{
    m_clickWatcher->stop();
    QWidget::hideEvent(event);
}

void SpotlightWindow::outsideButtonPressed()
{
    // The watcher sees every press on the screen, the panel's own included; the press itself
    // goes on to whatever window is under the pointer.
    if (isVisible() && !frameGeometry().contains(QCursor::pos()))
        emit didResignKey();
}

void SpotlightWindow::mousePressEvent(QMouseEvent *event)
{
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
