#pragma once

#include "platform/Platform.h"

#include <memory>

class GnomeShellHelper;
class X11Platform;

// GNOME on Wayland. Tolkaro's own windows are X11 windows under XWayland, so what concerns
// them alone (the compositor, clicks outside the typing panel) stays with the X11 backends.
// What concerns the rest of the session asks Tolkaro's GNOME Shell helper: the pointer, the
// window under it, the active window and activating windows (ours included: the typing
// panel takes the focus), the modifier keys (merged with the AT-SPI keystroke listener,
// which tells left from right), the paste keystroke and the typing panel's shortcut. Without the helper every one of those seams says it cannot work.
// Main thread only.
class GnomeWaylandPlatform : public Platform
{
public:
    GnomeWaylandPlatform();
    ~GnomeWaylandPlatform() override;

    QString name() const override { return QStringLiteral("gnome-wayland"); }
    QStringList sessionLimits() override;
    PointerLocator &pointerLocator() override;
    TextCaptureBackend &textCapture() override;
    KeySender &keySender() override;
    WindowActivation &windowActivation() override;
    bool compositorIsRunning() override { return true; }
    std::unique_ptr<ModifierKeyMonitor> createKeySource(const QString &alternativeKey,
                                                        QObject *parent) override;
    std::unique_ptr<GlobalHotKey> createGlobalHotKey(QObject *parent) override;
    std::unique_ptr<OutsideClickWatcher> createOutsideClickWatcher(QObject *parent) override;

    GnomeShellHelper &helper() { return *m_helper; }

private:
    struct Seams;
    std::unique_ptr<GnomeShellHelper> m_helper;
    std::unique_ptr<X11Platform> m_ownWindows;
    std::unique_ptr<Seams> m_seams;
};
