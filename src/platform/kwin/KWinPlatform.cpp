#include "platform/kwin/KWinPlatform.h"

#include "platform/KeySender.h"
#include "platform/PointerLocator.h"
#include "platform/WindowActivation.h"
#include "platform/atspi/AtspiKeystrokeKeySource.h"
#include "platform/kwin/GlobalHotKey_kglobalaccel.h"
#include "platform/kwin/MergedKeySource.h"
#include "platform/x11/ModifierKeyMonitor_x11.h"
#include "platform/kwin/KWinScript.h"
#ifdef TOLKARO_KWIN_FAKE_INPUT
#include "platform/kwin/KWinFakeInput.h"
#endif
#include "platform/x11/TextCaptureBackend_x11.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QWindow>

#include <unistd.h>

namespace {

class PointerLocatorKWin : public PointerLocator
{
public:
    explicit PointerLocatorKWin(KWinScript &script) : m_script(script) {}
    bool canLocatePointer() const override { return m_script.isLoaded(); }
    std::optional<QPoint> pointerPosition() override { return m_script.pointerPosition(); }
    WindowAtPoint windowAtPoint(const QPoint &screenPoint) override
    {
        const auto window = KWinScript::topmostAt(m_script.windows(), screenPoint, getpid());
        if (!window)
            return {};
        // Native Wayland toolkits know only positions within their windows.
        return {window->pid, window->x11 ? window->frame.topLeft() : window->surfaceOrigin,
                !window->x11};
    }

private:
    KWinScript &m_script;
};

// XTest reaches X11 windows only; a native Wayland window gets its keystrokes through KWin's
// fake input, where KWin grants it. The modifier state is XWayland's.
class KeySenderKWin : public KeySender
{
public:
    KeySenderKWin(KWinScript &script, KeySender &x11) : m_script(script), m_x11(x11) {}
    bool canSendKeys() const override { return m_x11.canSendKeys() || fakeInputIsValid(); }
    bool modifierKeysDown() override { return m_x11.modifierKeysDown(); }
    bool isKeyDown(quint32 keySym) override { return m_x11.isKeyDown(keySym); }
    void releaseHeldModifiers() override { m_x11.releaseHeldModifiers(); }
    bool sendControlKeystroke(Qt::Key key) override
    {
        const std::optional<KWinScript::Window> active = m_script.activeWindowOfOthers();
#ifdef TOLKARO_KWIN_FAKE_INPUT
        if (active && !active->x11 && m_fakeInput.isValid())
            return m_fakeInput.sendControlKeystroke(key);
#endif
        return m_x11.sendControlKeystroke(key);
    }

private:
    bool fakeInputIsValid() const
    {
#ifdef TOLKARO_KWIN_FAKE_INPUT
        return m_fakeInput.isValid();
#else
        return false;
#endif
    }

    KWinScript &m_script;
    KeySender &m_x11;
#ifdef TOLKARO_KWIN_FAKE_INPUT
    mutable KWinFakeInput m_fakeInput;
#endif
};

// The X11 answers, but the active window as KWin knows it: XWayland knows only its own.
class TextCaptureBackendKWin : public TextCaptureBackendX11
{
public:
    TextCaptureBackendKWin(KWinScript &script, X11WindowQueries &windows, PointerLocator &locator,
                           KeySender &keys)
        : TextCaptureBackendX11(windows, locator, keys), m_script(script)
    {
    }
    qint64 activeWindowProcess() override
    {
        const std::optional<KWinScript::Window> window = m_script.activeWindowOfOthers();
        return window ? window->pid : 0;
    }
    QString activeWindowClass() override
    {
        const std::optional<KWinScript::Window> window = m_script.activeWindowOfOthers();
        return window ? window->resourceClass : QString();
    }
    bool clipboardReachesActiveWindow() override
    {
        const std::optional<KWinScript::Window> window = m_script.activeWindowOfOthers();
        return !window || window->x11;
    }

private:

    KWinScript &m_script;
};

// Activation through KWin: on Wayland no client may activate another's window, a KWin script
// may. A window is named by a number made from KWin's id for it.
class WindowActivationKWin : public WindowActivation
{
public:
    WindowActivationKWin(KWinScript &script, WindowActivation &x11) : m_script(script), m_x11(x11)
    {
    }
    bool canActivateWindows() const override { return m_script.isLoaded(); }
    // KWin gives XWayland the keyboard only while an X11 window is active: a grab hears
    // nothing typed while a native window has the focus.
    bool keyboardGrabReachesAllKeys() const override { return false; }
    WindowId activeWindow() override
    {
        const std::optional<KWinScript::Window> window = m_script.activeWindowOfOthers();
        return window ? number(window->id) : 0;
    }
    void takeFocus(QWindow *window) override
    {
        if (!window)
            return;
        // KWin activates our X11 window; XWayland's focus follows within it.
        m_script.activate(QString(), window->winId());
        m_x11.takeFocus(window);
    }
    bool requestActivation(WindowId window) override
    {
        for (const KWinScript::Window &known : m_script.windows()) {
            if (number(known.id) == window)
                return m_script.activate(known.id);
        }
        return false;
    }
    bool isActiveWithFocus(WindowId window) override
    {
        // KWin gives the keyboard to the window it activates, native or X11.
        const std::optional<KWinScript::Window> active = m_script.activeWindow();
        return active && number(active->id) == window;
    }

private:
    static WindowId number(const QString &id)
    {
        return id.isEmpty() ? 0 : WindowId(qHash(id, 0)) | 1;
    }

    KWinScript &m_script;
    WindowActivation &m_x11;
};

// What XWayland may see of keys typed into other windows; KWin's default is nothing.
QString xwaylandEavesdrops()
{
    const QString kwinrc =
        QStandardPaths::locate(QStandardPaths::GenericConfigLocation, QStringLiteral("kwinrc"));
    if (kwinrc.isEmpty())
        return QStringLiteral("None");
    return QSettings(kwinrc, QSettings::IniFormat)
        .value(QStringLiteral("Xwayland/XwaylandEavesdrops"), QStringLiteral("None"))
        .toString();
}

} // namespace

KWinPlatform::KWinPlatform() = default;

KWinPlatform::~KWinPlatform()
{
    m_kwinCapture.reset();
    m_kwinActivation.reset();
    m_kwinKeys.reset();
    m_kwinLocator.reset();
}

KWinScript &KWinPlatform::script()
{
    if (!m_script) {
        m_script = std::make_unique<KWinScript>();
        m_script->load();
    }
    return *m_script;
}

PointerLocator &KWinPlatform::pointerLocator()
{
    if (!m_kwinLocator)
        m_kwinLocator = std::make_unique<PointerLocatorKWin>(script());
    return *m_kwinLocator;
}

KeySender &KWinPlatform::keySender()
{
    if (!m_kwinKeys)
        m_kwinKeys = std::make_unique<KeySenderKWin>(script(), X11Platform::keySender());
    return *m_kwinKeys;
}

WindowActivation &KWinPlatform::windowActivation()
{
    if (!m_kwinActivation)
        m_kwinActivation =
            std::make_unique<WindowActivationKWin>(script(), X11Platform::windowActivation());
    return *m_kwinActivation;
}

TextCaptureBackend &KWinPlatform::textCapture()
{
    if (!m_kwinCapture)
        m_kwinCapture = std::make_unique<TextCaptureBackendKWin>(script(), windowQueries(),
                                                                 pointerLocator(), keySender());
    return *m_kwinCapture;
}

std::unique_ptr<GlobalHotKey> KWinPlatform::createGlobalHotKey(QObject *parent)
{
    auto service = std::make_unique<GlobalHotKeyKGlobalAccel>(QDBusConnection::sessionBus(), parent);
    if (service->isValid())
        return service;
    return X11Platform::createGlobalHotKey(parent);
}

std::unique_ptr<ModifierKeyMonitor> KWinPlatform::createKeySource(const QString &alternativeKey,
                                                                  QObject *parent)
{
    // GTK 3 and Qt windows hand their keys to the accessibility registry, native or not;
    // XWayland sees the keys of X11 windows, and the modifiers typed anywhere when the user
    // lets it (kwinrc [Xwayland] XwaylandEavesdrops=Modifiers).
    std::vector<std::unique_ptr<ModifierKeyMonitor>> sources;
    sources.push_back(std::make_unique<AtspiKeystrokeKeySource>(alternativeKey));
    sources.push_back(std::make_unique<ModifierKeyMonitorX11>(QString(), alternativeKey));
    return std::make_unique<MergedKeySource>(std::move(sources), parent);
}

QStringList KWinPlatform::sessionLimits()
{
    QStringList limits;
    if (!script().isLoaded())
        limits << QStringLiteral("KWin did not run Tolkaro's script: only applications running "
                                 "under XWayland can be read");
    if (xwaylandEavesdrops() == u"None")
        limits << QStringLiteral("Control is heard in GTK 3 and X11 windows only, not in "
                                 "native Qt or GTK 4 windows or browsers");
    return limits;
}

QString KWinPlatform::sessionFixOffer()
{
    if (xwaylandEavesdrops() != u"None")
        return {};
    return QStringLiteral("Let X11 Applications See Modifier Keys (Tolkaro Then Hears Control "
                          "in Every Window)...");
}

bool KWinPlatform::applySessionFix()
{
    const QStringList arguments{QStringLiteral("--file"), QStringLiteral("kwinrc"),
                                QStringLiteral("--group"), QStringLiteral("Xwayland"),
                                QStringLiteral("--key"), QStringLiteral("XwaylandEavesdrops"),
                                QStringLiteral("Modifiers")};
    bool written = false;
    for (const QString tool : {QStringLiteral("kwriteconfig6"), QStringLiteral("kwriteconfig5")}) {
        if (!QStandardPaths::findExecutable(tool).isEmpty()) {
            written = QProcess::execute(tool, arguments) == 0;
            break;
        }
    }
    if (!written)
        return false;
    // KWin applies it at once when asked to read its settings again.
    QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
        QStringLiteral("org.kde.KWin"), QStringLiteral("/KWin"), QStringLiteral("org.kde.KWin"),
        QStringLiteral("reconfigure")));
    return xwaylandEavesdrops() == u"Modifiers";
}
