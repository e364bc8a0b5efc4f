#include "platform/Platform.h"

#include "platform/TextCaptureBackend.h"
#include "platform/kwin/KWinPlatform.h"
#include "platform/gnome/GnomeWaylandPlatform.h"
#include "platform/null/NullPlatform.h"
#include "platform/sway/SwayPlatform.h"
#include "platform/x11/X11Platform.h"

#include <QGuiApplication>

Platform::Session Platform::sessionFromEnvironment()
{
    const bool wayland = qEnvironmentVariable("XDG_SESSION_TYPE") == u"wayland" ||
                         !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    if (wayland) {
        const QStringList desktops =
            qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':', Qt::SkipEmptyParts);
        if (desktops.contains(QLatin1String("GNOME"), Qt::CaseInsensitive))
            return Session::GnomeWayland;
        if (desktops.contains(QLatin1String("KDE"), Qt::CaseInsensitive))
            return Session::KdeWayland;
        return Session::OtherWayland;
    }
    return qEnvironmentVariableIsEmpty("DISPLAY") ? Session::None : Session::X11;
}

void Platform::preferXWaylandForOwnWindows()
{
    const Session session = sessionFromEnvironment();
    if ((session == Session::GnomeWayland || session == Session::KdeWayland ||
         session == Session::OtherWayland) &&
        !qEnvironmentVariableIsEmpty("DISPLAY") && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
}

Platform::Session Platform::detectSession()
{
    // With a GUI application the Qt platform plugin has already decided whether there is an
    // X display for Tolkaro's windows; without one (the command-line translation, some
    // tests) the environment alone decides.
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()) &&
        QGuiApplication::platformName() != u"xcb")
        return Session::None;
    return sessionFromEnvironment();
}

std::unique_ptr<Platform> Platform::create(Session session)
{
    switch (session) {
    case Session::X11:
        return std::make_unique<X11Platform>();
    case Session::GnomeWayland:
        if (!qEnvironmentVariableIsEmpty("DISPLAY"))
            return std::make_unique<GnomeWaylandPlatform>();
        break;
    case Session::KdeWayland:
        if (!qEnvironmentVariableIsEmpty("DISPLAY"))
            return std::make_unique<KWinPlatform>();
        break;
    case Session::OtherWayland:
        // XWayland's applications still work as on X11; the rest of the session is out of
        // reach, and the status menu says so. Sway's IPC names the focused native window.
        if (!qEnvironmentVariableIsEmpty("DISPLAY") && !qEnvironmentVariableIsEmpty("SWAYSOCK"))
            return std::make_unique<SwayPlatform>(qEnvironmentVariable("SWAYSOCK"));
        if (!qEnvironmentVariableIsEmpty("DISPLAY"))
            return std::make_unique<X11Platform>(X11Platform::Scope::XWaylandOnly);
        break;
    case Session::None:
        break;
    }
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
