#pragma once

#include "platform/Platform.h"

#include <memory>

// The backends of a session Tolkaro cannot work with (no X11 display, a Wayland desktop
// without a backend yet): every capability query answers false and every action does
// nothing, so the interface greys out what cannot work instead of failing silently.
class NullPlatform : public Platform
{
public:
    NullPlatform();
    ~NullPlatform() override;

    QString name() const override { return QStringLiteral("none"); }
    PointerLocator &pointerLocator() override;
    TextCaptureBackend &textCapture() override;
    KeySender &keySender() override;
    WindowActivation &windowActivation() override;
    bool compositorIsRunning() override { return false; }
    std::unique_ptr<ModifierKeyMonitor> createKeySource(const QString &alternativeKey,
                                                        QObject *parent) override;
    std::unique_ptr<GlobalHotKey> createGlobalHotKey(QObject *parent) override;
    std::unique_ptr<OutsideClickWatcher> createOutsideClickWatcher(QObject *parent) override;

private:
    struct Backends;
    std::unique_ptr<Backends> m_backends;
};
