#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>

#include "settings/Preferences.h"

class Translator;
class SpotlightWindowController;

// The application's side of the typing mode: opens and closes the panel
// (showSpotlightTranslationPopup, which the application calls on "OpenTypingModeNotification"
// and on its D-Bus command), translates the panel's text on "SpotlightEditingFinished"
// with the one translation client (so it cancels, and is cancelled by, the gesture's
// requests), and on "SpotlightEnterPressedNotification" closes the panel and pastes the
// translation into the application that was in front. The panel is created on first use.
// Main thread; the client's completion is moved there before it touches the panel.
class TypingModeCoordinator : public QObject
{
    Q_OBJECT

public:
    // Pastes a text into the application that is active now (clipboard kept as it was).
    using PasteFunction = std::function<void(const QString &text)>;
    using LanguageFunction = std::function<QString()>;
    using ShortcutSource = std::function<StoredShortcut()>;

    static constexpr char kTranslationFailedText[] = "Error translating text";

    TypingModeCoordinator(Translator *googleTranslator,
                          LanguageFunction currentDstLanguageCode, PasteFunction paste,
                          QObject *parent = nullptr);
    ~TypingModeCoordinator() override;

    // The panel's controller; null until the panel was first opened.
    SpotlightWindowController *spotlight() const { return m_spotlight.get(); }
    // The shortcut in force, so the open panel closes on it too.
    void setShortcutSource(ShortcutSource source);

public slots:
    // Opens the panel, or closes it when open.
    void showSpotlightTranslationPopup();
    // Forwarded to the panel when it exists.
    void fnKeyPressed();
    void fnKeyReleased();

signals:
    // The typing mode's UsageEvents (opened, translation made, translation pasted) for the
    // usage reporter.
    void usageEvent(const QString &name);

private:
    void spotlightEditingFinished(const QVariantMap &userInfo);
    void spotlightEnterPressed(const QVariantMap &userInfo);

    QPointer<Translator> m_googleTranslator;
    LanguageFunction m_currentDstLanguageCode;
    PasteFunction m_paste;
    ShortcutSource m_shortcutSource;
    std::unique_ptr<SpotlightWindowController> m_spotlight;
};
