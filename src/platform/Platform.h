#pragma once

#include <QString>

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
// "cannot" to every capability query so the interface can grey the feature out). A Wayland
// set takes its place beside them. Main thread only.
class Platform
{
public:
    enum class Session
    {
        None,
        X11,
        KdeWayland, // KDE Plasma on Wayland, Tolkaro's own windows on XWayland
    };

    virtual ~Platform() = default;

    // The set for this process, made on first use.
    static Platform &instance();
    // The kind of session this process runs in.
    static Session detectSession();
    // A set for the given kind of session (tests use None).
    static std::unique_ptr<Platform> create(Session session);

    // "x11", "kde-wayland", or "none".
    virtual QString name() const = 0;

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
