#pragma once

#include "platform/x11/X11Platform.h"

#include <memory>

class SwayIpc;

// Sway: Tolkaro's own windows and the X11 applications live on XWayland, where the X11
// backends serve; the focused window, native or X11, and its activation come from sway's
// IPC socket, and a keystroke into a native window from wtype (the virtual keyboard any
// client may use) when it is installed. Nothing lets a client hear the keys typed into a
// native window, so the gesture reaches X11 applications only and the typing panel opens
// by a command bound in sway's configuration. Main thread only.
class SwayPlatform : public X11Platform
{
public:
    explicit SwayPlatform(QString socketPath);
    ~SwayPlatform() override;

    QString name() const override { return QStringLiteral("sway"); }
    QStringList sessionLimits() override;
    KeySender &keySender() override;
    TextCaptureBackend &textCapture() override;
    WindowActivation &windowActivation() override;
    bool compositorIsRunning() override { return true; }

private:
    std::unique_ptr<SwayIpc> m_ipc;
    std::unique_ptr<KeySender> m_swayKeys;
    std::unique_ptr<TextCaptureBackend> m_swayCapture;
    std::unique_ptr<WindowActivation> m_swayActivation;
};
