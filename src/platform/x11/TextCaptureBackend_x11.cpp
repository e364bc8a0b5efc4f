#include "platform/x11/TextCaptureBackend_x11.h"

#include "platform/KeySender.h"
#include "platform/atspi/AtspiThread.h"
#include "platform/x11/X11WindowQueries.h"

#include <unistd.h>

TextCaptureBackendX11::TextCaptureBackendX11(X11WindowQueries &windows, PointerLocator &locator,
                                             KeySender &keys)
    : m_windows(windows), m_locator(locator), m_keys(keys)
{
}

bool TextCaptureBackendX11::isValid() const
{
    return m_windows.isValid() && AtspiThread::instance().isValid();
}

bool TextCaptureBackendX11::canReplaceSelection() const
{
    return isValid() || m_keys.canSendKeys();
}

TextCaptureBackend::WindowAtPoint TextCaptureBackendX11::windowAtPoint(const QPoint &screenPoint)
{
    return m_locator.windowAtPoint(screenPoint);
}

qint64 TextCaptureBackendX11::activeWindowProcess()
{
    return m_windows.processIdOfWindow(m_windows.activeWindow());
}

QString TextCaptureBackendX11::activeWindowClass()
{
    return m_windows.windowClass(m_windows.activeWindow());
}

qint64 TextCaptureBackendX11::primarySelectionOwnerProcess()
{
    return m_windows.processIdOfWindow(m_windows.selectionOwner("PRIMARY"));
}

bool TextCaptureBackendX11::primarySelectionOwnedAt(const QPoint &screenPoint)
{
    const unsigned long owner = m_windows.selectionOwner("PRIMARY");
    if (!owner)
        return false;
    const auto window = m_windows.topLevelWindowAt(screenPoint, qint64(getpid()));
    return window && m_windows.isWindowWithin(owner, window->id);
}

std::optional<QString> TextCaptureBackendX11::primarySelectionText()
{
    const std::optional<QByteArray> utf8 = m_windows.primarySelectionUtf8();
    return utf8 ? std::optional<QString>(QString::fromUtf8(*utf8)) : std::nullopt;
}

quint64 TextCaptureBackendX11::primarySelectionChanges()
{
    return m_windows.primarySelectionChanges();
}

bool TextCaptureBackendX11::modifierKeysDown()
{
    return m_keys.modifierKeysDown();
}

void TextCaptureBackendX11::releaseHeldModifiers()
{
    m_keys.releaseHeldModifiers();
}

bool TextCaptureBackendX11::sendControlKeystroke(Qt::Key key)
{
    return m_keys.sendControlKeystroke(key);
}
