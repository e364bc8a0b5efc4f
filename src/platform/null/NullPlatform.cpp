#include "platform/null/NullPlatform.h"

#include "platform/GlobalHotKey.h"
#include "platform/KeySender.h"
#include "platform/ModifierKeyMonitor.h"
#include "platform/OutsideClickWatcher.h"
#include "platform/PointerLocator.h"
#include "platform/TextCaptureBackend.h"
#include "platform/WindowActivation.h"

namespace {

class NullKeySource : public ModifierKeyMonitor
{
public:
    using ModifierKeyMonitor::ModifierKeyMonitor;
    bool install() override { return false; }
    void remove() override {}
    bool isInstalled() const override { return false; }
    bool canInstall() const override { return false; }
};

class NullGlobalHotKey : public GlobalHotKey
{
public:
    using GlobalHotKey::GlobalHotKey;
    bool isValid() const override { return false; }
    BindResult bind(const StoredShortcut &) override { return BindResult::Unavailable; }
    void unbind() override {}
    StoredShortcut boundShortcut() const override { return {}; }
};

class NullOutsideClickWatcher : public OutsideClickWatcher
{
public:
    using OutsideClickWatcher::OutsideClickWatcher;
    bool canWatchClicks() override { return false; }
    void start() override {}
    void stop() override {}
};

class NullPointerLocator : public PointerLocator
{
public:
    bool canLocatePointer() const override { return false; }
    std::optional<QPoint> pointerPosition() override { return std::nullopt; }
    WindowAtPoint windowAtPoint(const QPoint &) override { return {}; }
};

class NullKeySender : public KeySender
{
public:
    bool canSendKeys() const override { return false; }
    bool modifierKeysDown() override { return false; }
    bool isKeyDown(quint32) override { return false; }
    void releaseHeldModifiers() override {}
    bool sendControlKeystroke(Qt::Key) override { return false; }
};

class NullWindowActivation : public WindowActivation
{
public:
    bool canActivateWindows() const override { return false; }
    WindowId activeWindow() override { return 0; }
    void takeFocus(QWindow *) override {}
    bool requestActivation(WindowId) override { return false; }
    bool isActiveWithFocus(WindowId) override { return false; }
};

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
    bool sendControlKeystroke(Qt::Key) override { return false; }
};

} // namespace

struct NullPlatform::Backends
{
    NullPointerLocator locator;
    NullTextCaptureBackend capture;
    NullKeySender keys;
    NullWindowActivation activation;
};

NullPlatform::NullPlatform() : m_backends(std::make_unique<Backends>()) {}
NullPlatform::~NullPlatform() = default;

PointerLocator &NullPlatform::pointerLocator()
{
    return m_backends->locator;
}

TextCaptureBackend &NullPlatform::textCapture()
{
    return m_backends->capture;
}

KeySender &NullPlatform::keySender()
{
    return m_backends->keys;
}

WindowActivation &NullPlatform::windowActivation()
{
    return m_backends->activation;
}

std::unique_ptr<ModifierKeyMonitor> NullPlatform::createKeySource(const QString &, QObject *parent)
{
    return std::make_unique<NullKeySource>(parent);
}

std::unique_ptr<GlobalHotKey> NullPlatform::createGlobalHotKey(QObject *parent)
{
    return std::make_unique<NullGlobalHotKey>(parent);
}

std::unique_ptr<OutsideClickWatcher> NullPlatform::createOutsideClickWatcher(QObject *parent)
{
    return std::make_unique<NullOutsideClickWatcher>(parent);
}
