#include "platform/Platform.h"

#include "platform/TextCaptureBackend.h"
#include "platform/null/NullPlatform.h"
#include "platform/x11/X11Platform.h"

#include <QGuiApplication>

Platform::Session Platform::detectSession()
{
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
