#include "platform/x11/OutsideClickWatcher_x11.h"

#include "common/Log.h"

#include <QSocketNotifier>

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

struct OutsideClickWatcherX11::X11State
{
    Display *display = nullptr;
    int xiOpcode = 0;
};

namespace {
// Buttons 4 to 7 are wheel steps; the rest are presses a user means as clicks.
bool isClickButton(int button)
{
    return button >= 1 && button <= 3;
}
} // namespace

OutsideClickWatcherX11::OutsideClickWatcherX11(QObject *parent) : OutsideClickWatcher(parent) {}

OutsideClickWatcherX11::~OutsideClickWatcherX11()
{
    delete m_notifier;
    if (m_x11 && m_x11->display)
        XCloseDisplay(m_x11->display);
    delete m_x11;
}

bool OutsideClickWatcherX11::connectToDisplay()
{
    if (m_triedToConnect)
        return m_x11 != nullptr;
    m_triedToConnect = true;

    Display *display = XOpenDisplay(nullptr);
    if (!display)
        return false;
    int opcode = 0, firstEvent = 0, firstError = 0;
    int major = 2, minor = 2;
    if (!XQueryExtension(display, "XInputExtension", &opcode, &firstEvent, &firstError) ||
        XIQueryVersion(display, &major, &minor) != Success) {
        tolkaro::logLine(
            QStringLiteral("No XInput 2.2: a click elsewhere will not close the popover"));
        XCloseDisplay(display);
        return false;
    }
    m_x11 = new X11State{display, opcode};
    m_notifier = new QSocketNotifier(ConnectionNumber(display), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &OutsideClickWatcherX11::readEvents);
    return true;
}

bool OutsideClickWatcherX11::canWatchClicks()
{
    return connectToDisplay();
}

void OutsideClickWatcherX11::start()
{
    if (!connectToDisplay())
        return;
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(bits, XI_RawButtonPress);
    XIEventMask mask{XIAllMasterDevices, int(sizeof bits), bits};
    XISelectEvents(m_x11->display, DefaultRootWindow(m_x11->display), &mask, 1);
    XFlush(m_x11->display);
}

void OutsideClickWatcherX11::stop()
{
    if (!m_x11)
        return;
    // A zero-length mask removes the selection: the server sends nothing more.
    XIEventMask mask{XIAllMasterDevices, 0, nullptr};
    XISelectEvents(m_x11->display, DefaultRootWindow(m_x11->display), &mask, 1);
    XFlush(m_x11->display);
}

void OutsideClickWatcherX11::readEvents()
{
    bool pressed = false;
    while (XPending(m_x11->display) > 0) {
        XEvent event;
        XNextEvent(m_x11->display, &event);
        XGenericEventCookie *cookie = &event.xcookie;
        if (cookie->type != GenericEvent || cookie->extension != m_x11->xiOpcode ||
            !XGetEventData(m_x11->display, cookie))
            continue;
        if (cookie->evtype == XI_RawButtonPress) {
            const auto *raw = static_cast<const XIRawEvent *>(cookie->data);
            pressed = pressed || isClickButton(raw->detail);
        }
        XFreeEventData(m_x11->display, cookie);
    }
    if (pressed)
        emit buttonPressed();
}
