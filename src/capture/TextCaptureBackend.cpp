#include "capture/TextCaptureBackend.h"

#include "capture/TextCaptureBackend_x11.h"

#include <QGuiApplication>

namespace {

// No display to ask (a Wayland session without XWayland, a console).
class NullTextCaptureBackend : public TextCaptureBackend
{
public:
    bool isValid() const override { return false; }
    bool canReplaceSelection() const override { return false; }
    WindowAtPoint windowAtPoint(const QPoint &) override { return {}; }
    qint64 activeWindowProcess() override { return 0; }
    QString activeWindowClass() override { return {}; }
    qint64 primarySelectionOwnerProcess() override { return 0; }
    bool modifierKeysDown() override { return false; }
    void releaseHeldModifiers() override {}
    bool sendControlKeystroke(uint32_t) override { return false; }
};

} // namespace

TextCaptureBackend &TextCaptureBackend::instance()
{
    static std::unique_ptr<TextCaptureBackend> backend = []() -> std::unique_ptr<TextCaptureBackend> {
        if (QGuiApplication::platformName() == u"xcb") {
            auto x11 = std::make_unique<TextCaptureBackendX11>();
            if (x11->isValid())
                return x11;
        }
        return std::make_unique<NullTextCaptureBackend>();
    }();
    return *backend;
}
