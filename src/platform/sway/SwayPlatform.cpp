#include "platform/sway/SwayPlatform.h"

#include "common/Log.h"
#include "platform/KeySender.h"
#include "platform/WindowActivation.h"
#include "platform/sway/SwayIpc.h"
#include "platform/x11/TextCaptureBackend_x11.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QProcess>
#include <QStandardPaths>
#include <QWindow>

#include <unistd.h>

namespace {

// A long translation typed key by key takes a while.
constexpr int kWtypeWaitMs = 10000;

// The focused window unless it is one of Tolkaro's own.
std::optional<SwayIpc::Window> focusedWindowOfOthers(const SwayIpc &ipc)
{
    std::optional<SwayIpc::Window> window = ipc.focusedWindow();
    if (window && window->pid == qint64(getpid()))
        return std::nullopt;
    return window;
}

QString wtypePath()
{
    return QStandardPaths::findExecutable(QStringLiteral("wtype"));
}

// XTest reaches X11 windows only; a native window gets its keystroke from wtype. The
// modifier state is XWayland's.
class KeySenderSway : public KeySender
{
public:
    KeySenderSway(SwayIpc &ipc, KeySender &x11) : m_ipc(ipc), m_x11(x11), m_wtype(wtypePath()) {}
    bool canSendKeys() const override { return m_x11.canSendKeys() || !m_wtype.isEmpty(); }
    bool modifierKeysDown() override { return m_x11.modifierKeysDown(); }
    bool isKeyDown(quint32 keySym) override { return m_x11.isKeyDown(keySym); }
    void releaseHeldModifiers() override { m_x11.releaseHeldModifiers(); }
    bool sendControlKeystroke(Qt::Key key) override
    {
        const std::optional<SwayIpc::Window> active = focusedWindowOfOthers(m_ipc);
        if (!active || active->x11)
            return m_x11.sendControlKeystroke(key);
        if (m_wtype.isEmpty() || key < Qt::Key_A || key > Qt::Key_Z)
            return false;
        // Measured under sway 1.7, a GTK 3 window took no paste from wtype's Ctrl+V (Ctrl+A
        // it took); the text it types arrives whole. So a paste types the clipboard's text,
        // which is ours at that moment.
        if (key == Qt::Key_V)
            return runWtype({QStringLiteral("--"), QGuiApplication::clipboard()->text()});
        const QString letter(QChar(u'a' + (key - Qt::Key_A)));
        return runWtype({QStringLiteral("-M"), QStringLiteral("ctrl"), QStringLiteral("-k"), letter,
                         QStringLiteral("-m"), QStringLiteral("ctrl")});
    }

private:
    bool runWtype(QStringList arguments)
    {
        // Each run brings its own keymap, and the window that receives it may drop the first
        // key after the change: a Shift tap goes first.
        arguments.prepend(QStringLiteral("Shift_L"));
        arguments.prepend(QStringLiteral("-k"));
        QProcess wtype;
        wtype.start(m_wtype, arguments);
        if (!wtype.waitForFinished(kWtypeWaitMs) || wtype.exitCode() != 0) {
            tolkaro::logLine(QStringLiteral("wtype failed: %1")
                                 .arg(QString::fromLocal8Bit(wtype.readAllStandardError())));
            return false;
        }
        return true;
    }

    SwayIpc &m_ipc;
    KeySender &m_x11;
    QString m_wtype;
};

// The X11 answers, but the active window as sway knows it: XWayland knows only its own.
class TextCaptureBackendSway : public TextCaptureBackendX11
{
public:
    TextCaptureBackendSway(SwayIpc &ipc, X11WindowQueries &windows, PointerLocator &locator,
                           KeySender &keys)
        : TextCaptureBackendX11(windows, locator, keys), m_ipc(ipc)
    {
    }
    qint64 activeWindowProcess() override
    {
        const std::optional<SwayIpc::Window> window = focusedWindowOfOthers(m_ipc);
        return window ? window->pid : 0;
    }
    QString activeWindowClass() override
    {
        const std::optional<SwayIpc::Window> window = focusedWindowOfOthers(m_ipc);
        return window ? window->windowClass : QString();
    }

private:
    SwayIpc &m_ipc;
};

// Activation by sway commands: no client may focus another's window, sway's IPC may. A
// window is named by sway's container id.
class WindowActivationSway : public WindowActivation
{
public:
    WindowActivationSway(SwayIpc &ipc, WindowActivation &x11) : m_ipc(ipc), m_x11(x11) {}
    bool canActivateWindows() const override { return m_ipc.isValid(); }
    // Sway gives XWayland the keyboard only while an X11 window has the focus.
    bool keyboardGrabReachesAllKeys() const override { return false; }
    WindowId activeWindow() override
    {
        const std::optional<SwayIpc::Window> window = focusedWindowOfOthers(m_ipc);
        return window ? WindowId(window->id) : 0;
    }
    void takeFocus(QWindow *window) override
    {
        if (!window)
            return;
        m_ipc.run(QStringLiteral("[id=%1] focus").arg(window->winId()));
        m_x11.takeFocus(window);
    }
    bool requestActivation(WindowId window) override
    {
        return m_ipc.run(QStringLiteral("[con_id=%1] focus").arg(window));
    }
    bool isActiveWithFocus(WindowId window) override
    {
        const std::optional<SwayIpc::Window> focused = m_ipc.focusedWindow();
        return focused && WindowId(focused->id) == window;
    }

private:
    SwayIpc &m_ipc;
    WindowActivation &m_x11;
};

} // namespace

SwayPlatform::SwayPlatform(QString socketPath)
    : X11Platform(Scope::XWaylandOnly), m_ipc(std::make_unique<SwayIpc>(std::move(socketPath)))
{
}

SwayPlatform::~SwayPlatform()
{
    m_swayCapture.reset();
    m_swayActivation.reset();
    m_swayKeys.reset();
}

QStringList SwayPlatform::sessionLimits()
{
    // The typing panel is whole here; only the gesture is limited to XWayland.
    QStringList limits = X11Platform::sessionLimits();
    limits.first() = QStringLiteral("Sway: the translation gesture reads applications running "
                                    "under XWayland only");
    if (wtypePath().isEmpty())
        limits << QStringLiteral("Install wtype to paste the typing panel's translation into "
                                 "native Wayland windows");
    return limits;
}

KeySender &SwayPlatform::keySender()
{
    if (!m_swayKeys)
        m_swayKeys = std::make_unique<KeySenderSway>(*m_ipc, X11Platform::keySender());
    return *m_swayKeys;
}

TextCaptureBackend &SwayPlatform::textCapture()
{
    if (!m_swayCapture)
        m_swayCapture = std::make_unique<TextCaptureBackendSway>(*m_ipc, windowQueries(),
                                                                 pointerLocator(), keySender());
    return *m_swayCapture;
}

WindowActivation &SwayPlatform::windowActivation()
{
    if (!m_swayActivation)
        m_swayActivation =
            std::make_unique<WindowActivationSway>(*m_ipc, X11Platform::windowActivation());
    return *m_swayActivation;
}
