#include "platform/Platform.h"

#include "platform/TextCaptureBackend.h"
#include "platform/kwin/KWinPlatform.h"
#include "platform/null/NullPlatform.h"
#include "platform/x11/X11Platform.h"

#include <QGuiApplication>

Platform::Session Platform::detectSession()
{
    // Tolkaro's windows are X11 windows there too (XWayland); the compositor tells the rest.
    const bool wayland = qEnvironmentVariable("XDG_SESSION_TYPE") == u"wayland" ||
                         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (wayland && !qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':').contains(u"KDE"))
        return Session::KdeWayland;
    // With a GUI application the Qt platform plugin has already decided; without one (the
    // command-line translation, some tests) an X display is what counts.
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return QGuiApplication::platformName() == u"xcb" ? Session::X11 : Session::None;
    return qEnvironmentVariableIsEmpty("DISPLAY") ? Session::None : Session::X11;
}

std::unique_ptr<Platform> Platform::create(Session session)
{
    if (session == Session::X11)
        return std::make_unique<X11Platform>();
    if (session == Session::KdeWayland)
        return std::make_unique<KWinPlatform>();
    return std::make_unique<NullPlatform>();
}

Platform &Platform::instance()
{
    static const std::unique_ptr<Platform> platform = create(detectSession());
    return *platform;
}

TextCaptureBackend &TextCaptureBackend::instance()
{
    return Platform::instance().textCapture();
}
