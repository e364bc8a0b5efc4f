#pragma once

#include "capture/TextCaptureBackend.h"

#include <memory>

class X11WindowQueries;
class XTestKeySender;

// X11: window queries over xcb (with XRes for windows without _NET_WM_PID) and keystrokes
// through XTest, announced so that Tolkaro's own key monitor passes over them.
class TextCaptureBackendX11 : public TextCaptureBackend
{
public:
    TextCaptureBackendX11();
    ~TextCaptureBackendX11() override;

    bool isValid() const override;
    bool canReplaceSelection() const override;
    WindowAtPoint windowAtPoint(const QPoint &screenPoint) override;
    qint64 activeWindowProcess() override;
    QString activeWindowClass() override;
    qint64 primarySelectionOwnerProcess() override;
    bool modifierKeysDown() override;
    void releaseHeldModifiers() override;
    bool sendControlKeystroke(uint32_t keysym) override;

private:
    std::unique_ptr<X11WindowQueries> m_windows;
    std::unique_ptr<XTestKeySender> m_keys;
};
