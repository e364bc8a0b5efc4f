#include "platform/gnome/GnomeWaylandPlatform.h"

#include "platform/GlobalHotKey.h"
#include "platform/KeySender.h"
#include "platform/ModifierKeyMonitor.h"
#include "platform/OutsideClickWatcher.h"
#include "platform/PointerLocator.h"
#include "platform/TextCaptureBackend.h"
#include "platform/WindowActivation.h"
#include "platform/atspi/AtspiCall.h"
#include "platform/atspi/AtspiGuard.h"
#include "platform/atspi/AtspiKeystrokeKeySource.h"
#include "platform/atspi/UIElementHitTest.h"
#include "platform/atspi/UIElementUtilities.h"
#include "platform/gnome/GnomeKeySource.h"
#include "platform/gnome/GnomeShellHelper.h"
#include "platform/x11/X11Platform.h"

#include <QWindow>

#include <X11/Xlib.h>
#include <unistd.h>

namespace {

using Bit = GnomeShellHelper::ModifierBit;

// The sizes of the application's windows in their own coordinates.
QList<QSize> accessibleWindowSizes(qint64 pid)
{
    const UIElement application = UIElementUtilities::applicationElementForProcess(pid);
    if (!application)
        return {};
    return AtspiCall::run<QList<QSize>>([application] {
        QList<QSize> sizes;
        for (const UIElement &window : UIElementUtilities::childrenOfUIElement(application)) {
            const auto component =
                AtspiCall::interfaceOf(window.accessible(), atspi_accessible_get_component_iface);
            if (!component)
                continue;
            GError *error = nullptr;
            AtspiRect *rect =
                atspi_component_get_extents(component.get(), ATSPI_COORD_TYPE_WINDOW, &error);
            if (!AtspiCall::failed(error) && rect)
                sizes << QSize(rect->width, rect->height);
            g_free(rect);
        }
        return sizes;
    });
}

// Where the window's own coordinates start on the screen. The shell knows the frame (what
// the user sees as the window) and the buffer (all the client draws, shadows included);
// the toolkit counts from one of them, or, when it draws its own title bar around its
// content (Qt), from inside the frame: its window is then smaller than the frame by equal
// side and bottom borders, and a title bar on top.
QPoint accessibilityOrigin(const GnomeShellHelper::Window &window)
{
    const QList<QSize> sizes = accessibleWindowSizes(window.pid);
    if (sizes.contains(window.buffer.size()))
        return window.buffer.topLeft();
    if (sizes.contains(window.frame.size()) || sizes.isEmpty())
        return window.frame.topLeft();
    for (const QSize &size : sizes) {
        const int sides = window.frame.width() - size.width();
        const int topAndBottom = window.frame.height() - size.height();
        if (sides >= 0 && topAndBottom >= sides / 2)
            return window.frame.topLeft() + QPoint(sides / 2, topAndBottom - sides / 2);
    }
    return window.frame.topLeft();
}

class PointerLocatorGnome : public PointerLocator
{
public:
    explicit PointerLocatorGnome(GnomeShellHelper &helper) : m_helper(helper) {}
    bool canLocatePointer() const override { return m_helper.isRunning(); }
    std::optional<QPoint> pointerPosition() override
    {
        const auto pointer = m_helper.pointer();
        return pointer ? std::optional(pointer->position) : std::nullopt;
    }
    WindowAtPoint windowAtPoint(const QPoint &screenPoint) override
    {
        const auto window = m_helper.windowAt(screenPoint, qint64(getpid()));
        if (!window)
            return {};
        return {window->pid, accessibilityOrigin(*window)};
    }

private:
    GnomeShellHelper &m_helper;
};

class KeySenderGnome : public KeySender
{
public:
    explicit KeySenderGnome(GnomeShellHelper &helper) : m_helper(helper) {}
    bool canSendKeys() const override { return m_helper.isRunning(); }
    bool modifierKeysDown() override
    {
        const auto pointer = m_helper.pointer();
        return pointer && (pointer->modifiers & (Bit::Shift | Bit::Control | Bit::Alt |
                                                 Bit::Super | Bit::AltGraph));
    }
    bool isKeyDown(quint32 keySym) override
    {
        // The mask knows modifiers only; every other key counts as up.
        const auto pointer = m_helper.pointer();
        const QByteArray name = XKeysymToString(KeySym(keySym));
        quint32 bit = 0;
        if (name.startsWith("Control_"))
            bit = Bit::Control;
        else if (name.startsWith("Alt_") || name.startsWith("Meta_"))
            bit = Bit::Alt;
        else if (name.startsWith("Shift_"))
            bit = Bit::Shift;
        else if (name.startsWith("Super_"))
            bit = Bit::Super;
        return pointer && bit && (pointer->modifiers & bit);
    }
    // A virtual keyboard cannot lift the user's own keys; the paste goes out regardless.
    void releaseHeldModifiers() override {}
    bool sendControlKeystroke(Qt::Key key) override
    {
        if (key < Qt::Key_A || key > Qt::Key_Z)
            return false;
        return m_helper.typeControlKey(QChar(u'a' + (key - Qt::Key_A)));
    }

private:
    GnomeShellHelper &m_helper;
};

class TextCaptureBackendGnome : public TextCaptureBackend
{
public:
    TextCaptureBackendGnome(GnomeShellHelper &helper, PointerLocator &locator, KeySender &keys)
        : m_helper(helper), m_locator(locator), m_keys(keys)
    {
    }
    bool isValid() const override { return m_helper.isRunning(); }
    bool canReplaceSelection() const override { return m_helper.isRunning(); }
    WindowAtPoint windowAtPoint(const QPoint &screenPoint) override
    {
        return m_locator.windowAtPoint(screenPoint);
    }
    qint64 activeWindowProcess() override
    {
        const auto window = m_helper.activeWindow();
        return window ? window->pid : 0;
    }
    QString activeWindowClass() override
    {
        const auto window = m_helper.activeWindow();
        return window ? window->wmClass : QString();
    }
    // Mutter takes a new X clipboard over for Wayland clients asynchronously; measured in
    // the GNOME test desktop, a Qt paste pressed at once sometimes read the old one.
    std::chrono::milliseconds clipboardHandOverDelay() const override
    {
        return std::chrono::milliseconds(200);
    }
    // XWayland bridges the selection, so its X owner is XWayland's proxy: nobody to name.
    qint64 primarySelectionOwnerProcess() override { return 0; }
    bool modifierKeysDown() override { return m_keys.modifierKeysDown(); }
    void releaseHeldModifiers() override { m_keys.releaseHeldModifiers(); }
    bool sendControlKeystroke(Qt::Key key) override { return m_keys.sendControlKeystroke(key); }

private:
    GnomeShellHelper &m_helper;
    PointerLocator &m_locator;
    KeySender &m_keys;
};

// The typing panel's shortcut as a shell keybinding, in GTK's accelerator syntax.
class GlobalHotKeyGnome : public GlobalHotKey
{
public:
    GlobalHotKeyGnome(GnomeShellHelper &helper, QObject *parent)
        : GlobalHotKey(parent), m_helper(helper)
    {
        connect(&m_helper, &GnomeShellHelper::shortcutActivated, this,
                [this](const QString &accelerator) {
                    if (!m_accelerator.isEmpty() && accelerator == m_accelerator)
                        emit activated();
                });
    }
    ~GlobalHotKeyGnome() override { unbind(); }
    bool isValid() const override { return m_helper.isRunning(); }
    BindResult bind(const StoredShortcut &shortcut) override
    {
        unbind();
        if (!m_helper.isRunning())
            return BindResult::Unavailable;
        const char *key = XKeysymToString(KeySym(shortcut.keySym));
        if (!key)
            return BindResult::NoSuchKey;
        const auto modifiers = Qt::KeyboardModifiers::fromInt(int(shortcut.modifiers));
        QString accelerator;
        if (modifiers & Qt::ShiftModifier)
            accelerator += QStringLiteral("<Shift>");
        if (modifiers & Qt::ControlModifier)
            accelerator += QStringLiteral("<Control>");
        if (modifiers & Qt::AltModifier)
            accelerator += QStringLiteral("<Alt>");
        if (modifiers & Qt::MetaModifier)
            accelerator += QStringLiteral("<Super>");
        accelerator += QLatin1String(key);
        if (!m_helper.bindShortcut(accelerator))
            return BindResult::TakenByAnotherProgram;
        m_bound = shortcut;
        m_accelerator = accelerator;
        return BindResult::Bound;
    }
    void unbind() override
    {
        if (!m_accelerator.isEmpty())
            m_helper.unbindShortcut(m_accelerator);
        m_bound = {};
        m_accelerator.clear();
    }
    StoredShortcut boundShortcut() const override { return m_bound; }

private:
    GnomeShellHelper &m_helper;
    StoredShortcut m_bound;
    QString m_accelerator;
};

// Activation on the shell's authority. The windows the typing panel comes back to are
// native ones, known to the shell only; and Mutter sends XWayland no keys while a native
// window has the focus, so our panel has to be activated like any window rather than grab
// the keyboard. Without the helper, the X11 activation (XWayland's windows only).
class WindowActivationGnome : public WindowActivation
{
public:
    WindowActivationGnome(GnomeShellHelper &helper, WindowActivation &x11)
        : m_helper(helper), m_x11(x11)
    {
    }
    bool canActivateWindows() const override
    {
        return m_helper.isRunning() || m_x11.canActivateWindows();
    }
    bool keyboardGrabReachesAllKeys() const override { return false; }
    WindowId activeWindow() override
    {
        if (!m_helper.isRunning())
            return m_x11.activeWindow();
        const auto window = m_helper.activeWindow();
        return window ? window->id : 0;
    }
    void takeFocus(QWindow *window) override
    {
        if (!m_helper.isRunning())
            return m_x11.takeFocus(window);
        if (window)
            m_helper.activateOwnWindow(window->winId());
    }
    bool requestActivation(WindowId window) override
    {
        return m_helper.isRunning() ? m_helper.activateWindow(window)
                                    : m_x11.requestActivation(window);
    }
    bool isActiveWithFocus(WindowId window) override
    {
        return m_helper.isRunning() ? activeWindow() == window : m_x11.isActiveWithFocus(window);
    }

private:
    GnomeShellHelper &m_helper;
    WindowActivation &m_x11;
};

} // namespace

struct GnomeWaylandPlatform::Seams
{
    Seams(GnomeShellHelper &helper, X11Platform &ownWindows)
        : locator(helper), keys(helper), capture(helper, locator, keys),
          activation(helper, ownWindows.windowActivation())
    {
    }
    PointerLocatorGnome locator;
    KeySenderGnome keys;
    TextCaptureBackendGnome capture;
    WindowActivationGnome activation;
};

GnomeWaylandPlatform::GnomeWaylandPlatform()
    : m_helper(std::make_unique<GnomeShellHelper>()),
      m_ownWindows(std::make_unique<X11Platform>()),
      m_seams(std::make_unique<Seams>(*m_helper, *m_ownWindows))
{
    UIElementHitTest::setWindowCoordinatesOnly(true);
}

GnomeWaylandPlatform::~GnomeWaylandPlatform() = default;

QStringList GnomeWaylandPlatform::sessionLimits()
{
    if (m_helper->isRunning())
        return {};
    return {QStringLiteral("GNOME on Wayland: without Tolkaro's GNOME Shell helper the "
                           "translation gesture, the paste and the typing shortcut are off")};
}

PointerLocator &GnomeWaylandPlatform::pointerLocator()
{
    return m_seams->locator;
}

TextCaptureBackend &GnomeWaylandPlatform::textCapture()
{
    return m_seams->capture;
}

KeySender &GnomeWaylandPlatform::keySender()
{
    return m_seams->keys;
}

WindowActivation &GnomeWaylandPlatform::windowActivation()
{
    return m_seams->activation;
}

std::unique_ptr<ModifierKeyMonitor>
GnomeWaylandPlatform::createKeySource(const QString &alternativeKey, QObject *parent)
{
    return std::make_unique<GnomeKeySource>(
        *m_helper, std::make_unique<AtspiKeystrokeKeySource>(alternativeKey), alternativeKey,
        parent);
}

std::unique_ptr<GlobalHotKey> GnomeWaylandPlatform::createGlobalHotKey(QObject *parent)
{
    return std::make_unique<GlobalHotKeyGnome>(*m_helper, parent);
}

std::unique_ptr<OutsideClickWatcher>
GnomeWaylandPlatform::createOutsideClickWatcher(QObject *parent)
{
    // Clicks over X11 windows only: a click in a Wayland window goes unseen, and the typing
    // panel then closes when it loses the focus instead.
    return m_ownWindows->createOutsideClickWatcher(parent);
}
