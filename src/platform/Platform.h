#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class GlobalHotKey;
class KeySender;
class ModifierKeyMonitor;
class OutsideClickWatcher;
class PointerLocator;
class QObject;
class TextCaptureBackend;
class WindowActivation;

// Every seam between Tolkaro and the desktop session, from one place: the key source, the
// pointer locator, text capture, the key sender, the global shortcut, the outside-click
// watcher and window activation. The set is chosen once, at first use, by the kind of
// session (an X11 display: the X11 backends; nothing usable: null backends, which answer
// "cannot" to every capability query so the interface can grey the feature out; GNOME on
// Wayland: the GNOME set, which asks Tolkaro's GNOME Shell helper). Main thread only.
class Platform
{
public:
    enum class Session
    {
        None,
        X11,
        // Wayland sessions; Tolkaro's own windows stay X11 windows under XWayland.
        GnomeWayland,
        KdeWayland,
        OtherWayland, // a Wayland desktop Tolkaro has no backend for
    };

    virtual ~Platform() = default;

    // The set for this process, made on first use.
    static Platform &instance();
    // The kind of session this process runs in.
    static Session detectSession();
    // The kind of desktop session from its environment variables (XDG_SESSION_TYPE,
    // WAYLAND_DISPLAY, XDG_CURRENT_DESKTOP, DISPLAY), whatever Qt runs on.
    static Session sessionFromEnvironment();
    // Called first thing in main: in a Wayland session with XWayland, Tolkaro's windows are
    // X11 windows (placed where asked, never taking the focus) unless the user chose a Qt
    // platform.
    static void preferXWaylandForOwnWindows();
    // A set for the given kind of session (tests use None).
    static std::unique_ptr<Platform> create(Session session);

    // "x11", "gnome-wayland", "kde-wayland", "sway", or "none".
    virtual QString name() const = 0;
    // What this session cannot do that another could, one line each, for the status menu;
    // empty when nothing is missing.
    virtual QStringList sessionLimits() { return {}; }
    // A setting of the desktop whose change would lift a limit, as a menu item's text (empty
    // when there is none); applySessionFix() changes it, once the user has agreed, and says
    // whether it could.
    virtual QString sessionFixOffer() { return {}; }
    virtual bool applySessionFix() { return false; }

    // Seams held by the platform for the life of the process.
    virtual PointerLocator &pointerLocator() = 0;
    virtual TextCaptureBackend &textCapture() = 0;
    virtual KeySender &keySender() = 0;
    virtual WindowActivation &windowActivation() = 0;
    // A compositing manager runs: translucent windows show what lies beneath them.
    virtual bool compositorIsRunning() = 0;

    // Seams owned by their user. Never null: a backend that cannot work says so itself.
    // The key source watches for the alternative-language key by its name (an X keysym
    // name such as "Super_L").
    virtual std::unique_ptr<ModifierKeyMonitor> createKeySource(const QString &alternativeKey,
                                                                QObject *parent = nullptr) = 0;
    virtual std::unique_ptr<GlobalHotKey> createGlobalHotKey(QObject *parent = nullptr) = 0;
    virtual std::unique_ptr<OutsideClickWatcher>
    createOutsideClickWatcher(QObject *parent = nullptr) = 0;
};
