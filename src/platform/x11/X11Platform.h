#pragma once

#include "platform/Platform.h"

#include <memory>

class X11WindowQueries;
class XTestKeySender;

// The X11 session's backends: XInput 2.2 for keys and clicks, xcb queries (with XRes) for
// windows and the pointer, XTest for keystrokes, passive grabs for the shortcut, EWMH for
// activation. Each seam is made on first use, with its own X connection where it reads
// events; queries that belong with Qt's own windows go over Qt's connection.
class X11Platform : public Platform
{
public:
    // XWaylandOnly: a Wayland desktop without a backend of its own, where only the
    // applications under XWayland can be reached.
    enum class Scope
    {
        WholeSession,
        XWaylandOnly,
    };
    explicit X11Platform(Scope scope = Scope::WholeSession);
    ~X11Platform() override;

    QString name() const override { return QStringLiteral("x11"); }
    QStringList sessionLimits() override;
    PointerLocator &pointerLocator() override;
    TextCaptureBackend &textCapture() override;
    KeySender &keySender() override;
    WindowActivation &windowActivation() override;
    bool compositorIsRunning() override;
    std::unique_ptr<ModifierKeyMonitor> createKeySource(const QString &alternativeKey,
                                                        QObject *parent) override;
    std::unique_ptr<GlobalHotKey> createGlobalHotKey(QObject *parent) override;
    std::unique_ptr<OutsideClickWatcher> createOutsideClickWatcher(QObject *parent) override;

protected:
    X11WindowQueries &windowQueries();

private:
    Scope m_scope;
    std::unique_ptr<X11WindowQueries> m_windowQueries;
    std::unique_ptr<PointerLocator> m_locator;
    std::unique_ptr<KeySender> m_keySender;
    std::unique_ptr<TextCaptureBackend> m_capture;
    std::unique_ptr<WindowActivation> m_activation;
};
