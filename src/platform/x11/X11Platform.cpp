#include "platform/x11/X11Platform.h"

#include "platform/KeySender.h"
#include "platform/PointerLocator.h"
#include "platform/WindowActivation.h"
#include "platform/x11/GlobalHotKey_x11.h"
#include "platform/x11/ModifierKeyMonitor_x11.h"
#include "platform/x11/OutsideClickWatcher_x11.h"
#include "platform/x11/TextCaptureBackend_x11.h"
#include "platform/x11/X11Input.h"
#include "platform/x11/X11WindowQueries.h"
#include "platform/x11/XTestKeySender.h"

#include <QCursor>
#include <QGuiApplication>
#include <QWindow>
#include <QtGui/qguiapplication_platform.h>

#include <X11/Xlib.h>
#include <X11/keysym.h>
#include <unistd.h>

namespace {

// Qt's own connection: requests about Tolkaro's windows go where those windows live.
xcb_connection_t *qtConnection()
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

class PointerLocatorX11 : public PointerLocator
{
public:
    explicit PointerLocatorX11(X11WindowQueries &windows) : m_windows(windows) {}
    bool canLocatePointer() const override { return m_windows.isValid(); }
    std::optional<QPoint> pointerPosition() override
    {
        // Qt's answer is in its logical pixels, which is what windows are placed by.
        if (qGuiApp)
            return QCursor::pos();
        return m_windows.pointerPosition();
    }
    WindowAtPoint windowAtPoint(const QPoint &screenPoint) override
    {
        const auto window = m_windows.topLevelWindowAt(screenPoint, qint64(getpid()));
        if (!window)
            return {};
        return {window->pid, window->origin};
    }

private:
    X11WindowQueries &m_windows;
};

const uint32_t kModifierKeysyms[] = {
    XK_Shift_L, XK_Shift_R, XK_Control_L,        XK_Control_R, XK_Alt_L, XK_Alt_R,
    XK_Super_L, XK_Super_R, XK_ISO_Level3_Shift, XK_Meta_L,    XK_Meta_R};

// XTest keystrokes, each announced first so that Tolkaro's own key source passes over them.
class KeySenderX11 : public KeySender
{
public:
    explicit KeySenderX11(X11WindowQueries &windows) : m_windows(windows) {}
    bool canSendKeys() const override { return m_keys.isValid(); }
    bool modifierKeysDown() override { return m_windows.modifierKeysDown(); }
    bool isKeyDown(quint32 keySym) override
    {
        xcb_connection_t *connection = qtConnection();
        return connection && keySym && X11Input::isKeySymDown(connection, keySym);
    }
    void releaseHeldModifiers() override
    {
        if (!m_keys.isValid())
            return;
        const QList<uint8_t> pressed = m_keys.pressedKeyCodes();
        for (const uint32_t keysym : kModifierKeysyms) {
            const uint8_t keyCode = m_keys.keyCodeForKeysym(keysym);
            if (keyCode == 0 || !pressed.contains(keyCode))
                continue;
            m_keys.releaseKeyCode(keyCode);
        }
        m_keys.sync();
    }
    bool sendControlKeystroke(Qt::Key key) override
    {
        // Letters only: Qt's key codes for A to Z are the upper-case Latin-1 codes, and the
        // lower-case keysym is what an unshifted key types.
        if (!m_keys.isValid() || key < Qt::Key_A || key > Qt::Key_Z)
            return false;
        const uint32_t keysym = XK_a + uint32_t(key - Qt::Key_A);
        const bool sent = m_keys.tapKeysym(keysym, {XK_Control_L});
        m_keys.sync();
        return sent;
    }

private:
    X11WindowQueries &m_windows;
    XTestKeySender m_keys;
};

// EWMH activation over Qt's connection.
class WindowActivationX11 : public WindowActivation
{
public:
    explicit WindowActivationX11(bool grabReachesAllKeys) : m_grabReachesAllKeys(grabReachesAllKeys) {}
    bool canActivateWindows() const override { return qtConnection() != nullptr; }
    // Under XWayland a grab hears only the keys typed into X11 windows.
    bool keyboardGrabReachesAllKeys() const override { return m_grabReachesAllKeys; }
    WindowId activeWindow() override
    {
        xcb_connection_t *connection = qtConnection();
        return connection ? X11Input::activeWindow(connection) : 0;
    }
    void takeFocus(QWindow *window) override
    {
        xcb_connection_t *connection = qtConnection();
        if (!connection || !window)
            return;
        xcb_set_input_focus(connection, XCB_INPUT_FOCUS_PARENT, xcb_window_t(window->winId()),
                            XCB_CURRENT_TIME);
        xcb_flush(connection);
    }
    bool requestActivation(WindowId window) override
    {
        xcb_connection_t *connection = qtConnection();
        return connection && X11Input::requestActivation(connection, xcb_window_t(window));
    }
    bool isActiveWithFocus(WindowId window) override
    {
        xcb_connection_t *connection = qtConnection();
        // The manager's property may lag behind the focus, or the focus behind it: both.
        return connection && X11Input::inputFocusIsWithin(connection, xcb_window_t(window)) &&
               X11Input::activeWindow(connection) == xcb_window_t(window);
    }

private:
    bool m_grabReachesAllKeys;
};

} // namespace

X11Platform::X11Platform(Scope scope) : m_scope(scope) {}
X11Platform::~X11Platform() = default;

QStringList X11Platform::sessionLimits()
{
    if (m_scope == Scope::WholeSession)
        return {};
    return {QStringLiteral("This Wayland desktop has no Tolkaro backend: only applications "
                           "running under XWayland can be read"),
            QStringLiteral("For the typing panel, bind \"tolkaro --typing-mode\" to a key in "
                           "your compositor's configuration")};
}

X11WindowQueries &X11Platform::windowQueries()
{
    if (!m_windowQueries)
        m_windowQueries = std::make_unique<X11WindowQueries>();
    return *m_windowQueries;
}

PointerLocator &X11Platform::pointerLocator()
{
    if (!m_locator)
        m_locator = std::make_unique<PointerLocatorX11>(windowQueries());
    return *m_locator;
}

KeySender &X11Platform::keySender()
{
    if (!m_keySender)
        m_keySender = std::make_unique<KeySenderX11>(windowQueries());
    return *m_keySender;
}

TextCaptureBackend &X11Platform::textCapture()
{
    if (!m_capture)
        m_capture =
            std::make_unique<TextCaptureBackendX11>(windowQueries(), pointerLocator(), keySender());
    return *m_capture;
}

WindowActivation &X11Platform::windowActivation()
{
    if (!m_activation)
        m_activation = std::make_unique<WindowActivationX11>(m_scope == Scope::WholeSession);
    return *m_activation;
}

bool X11Platform::compositorIsRunning()
{
    // A compositing manager owns the _NET_WM_CM_S<screen> selection. Asked over Qt's own
    // display: at start-up, before anything else needs a connection of its own.
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display *display = x11 ? x11->display() : nullptr;
    if (!display)
        return false;
    const QByteArray name = "_NET_WM_CM_S" + QByteArray::number(DefaultScreen(display));
    return XGetSelectionOwner(display, XInternAtom(display, name.constData(), False)) != None;
}

std::unique_ptr<ModifierKeyMonitor> X11Platform::createKeySource(const QString &alternativeKey,
                                                                 QObject *parent)
{
    // Under Wayland it still serves X11 applications through XWayland; install() says when
    // there is no X display at all.
    return std::make_unique<ModifierKeyMonitorX11>(QString(), alternativeKey, parent);
}

std::unique_ptr<GlobalHotKey> X11Platform::createGlobalHotKey(QObject *parent)
{
    return std::make_unique<GlobalHotKeyX11>(QString(), parent);
}

std::unique_ptr<OutsideClickWatcher> X11Platform::createOutsideClickWatcher(QObject *parent)
{
    return std::make_unique<OutsideClickWatcherX11>(parent);
}
