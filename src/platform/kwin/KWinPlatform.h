#pragma once

#include "platform/x11/X11Platform.h"

#include <memory>

class KWinScript;

// KDE Plasma on Wayland: Tolkaro's own windows live on XWayland, so the X11 backends serve
// for them and for X11 applications; what only the compositor knows (the pointer over a
// native Wayland window, the window under it, the active window) comes from the script
// Tolkaro runs inside KWin. The script is loaded on first use. Main thread only.
class KWinPlatform : public X11Platform
{
public:
    KWinPlatform();
    ~KWinPlatform() override;

    QString name() const override { return QStringLiteral("kde-wayland"); }
    QStringList sessionLimits() override;
    // XWayland sees no key typed into a native Wayland window unless kwinrc says so
    // ([Xwayland] XwaylandEavesdrops, "Legacy X11 App Support" in the settings): offered
    // is Modifiers, which lets X11 clients see Shift, Control, Alt and Meta only.
    QString sessionFixOffer() override;
    bool applySessionFix() override;
    PointerLocator &pointerLocator() override;
    KeySender &keySender() override;
    TextCaptureBackend &textCapture() override;
    // Through KWin: XWayland can activate X11 windows only.
    WindowActivation &windowActivation() override;
    bool compositorIsRunning() override { return true; }
    // The accessibility registry's keys and XWayland's, merged.
    std::unique_ptr<ModifierKeyMonitor> createKeySource(const QString &alternativeKey,
                                                        QObject *parent) override;
    // KDE's global shortcut service; the XWayland grab (X11 windows only) without it.
    std::unique_ptr<GlobalHotKey> createGlobalHotKey(QObject *parent) override;

private:
    KWinScript &script();

    std::unique_ptr<KWinScript> m_script;
    std::unique_ptr<PointerLocator> m_kwinLocator;
    std::unique_ptr<KeySender> m_kwinKeys;
    std::unique_ptr<TextCaptureBackend> m_kwinCapture;
    std::unique_ptr<WindowActivation> m_kwinActivation;
};
