#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>
#include <memory>

#include "settings/Preferences.h"

class Platform;
class Translator;
class SpotlightWindowController;

// The application's side of the typing mode: opens and closes the panel
// (showSpotlightTranslationPopup, which the application calls on "OpenTypingModeNotification"
// and the panel on its shortcut: one path both ways), translates the panel's text when its
// editing finishes with the one translation client (so it cancels, and is cancelled by, the
// gesture's requests), and on Return closes the panel and pastes the translation into the
// application that was in front. The panel is created on first use and heard by its
// signals. Main thread; the client's completion is moved there before it touches the panel.
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
                          Platform &platform, QObject *parent = nullptr);
    ~TypingModeCoordinator() override;

    // The panel's controller; null until the panel was first opened.
    SpotlightWindowController *spotlight() const { return m_spotlight.get(); }
    // The shortcut in force, so the open panel closes on it too.
    void setShortcutSource(ShortcutSource source);

public slots:
    // Opens the panel, or closes it when open.
    void showSpotlightTranslationPopup();

signals:
    // The typing mode's UsageEvents (opened, translation made, translation pasted) for the
    // usage reporter.
    void usageEvent(const QString &name);

private:
    void spotlightEditingFinished(const QString &typedText);
    void spotlightEnterPressed(const QString &translation);

    QPointer<Translator> m_translator;
    LanguageFunction m_currentDstLanguageCode;
    PasteFunction m_paste;
    ShortcutSource m_shortcutSource;
    Platform &m_platform;
    std::unique_ptr<SpotlightWindowController> m_spotlight;
};
