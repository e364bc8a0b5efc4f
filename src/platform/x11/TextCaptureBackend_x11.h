#pragma once

#include "platform/TextCaptureBackend.h"

class KeySender;
class X11WindowQueries;

// X11: window queries over xcb (with XRes for windows without _NET_WM_PID); the window
// under the pointer from the pointer locator and keystrokes through the key sender.
class TextCaptureBackendX11 : public TextCaptureBackend
{
public:
    TextCaptureBackendX11(X11WindowQueries &windows, PointerLocator &locator, KeySender &keys);

    bool isValid() const override;
    bool canReplaceSelection() const override;
    WindowAtPoint windowAtPoint(const QPoint &screenPoint) override;
    qint64 activeWindowProcess() override;
    QString activeWindowClass() override;
    qint64 primarySelectionOwnerProcess() override;
    bool primarySelectionOwnedAt(const QPoint &screenPoint) override;
    quint64 primarySelectionChanges() override;
    std::optional<QString> primarySelectionText() override;
    bool modifierKeysDown() override;
    void releaseHeldModifiers() override;
    bool sendControlKeystroke(Qt::Key key) override;

private:
    X11WindowQueries &m_windows;
    PointerLocator &m_locator;
    KeySender &m_keys;
};
