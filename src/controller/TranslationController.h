#pragma once

#include "capture/CapturedText.h"
#include "gesture/ModifierGestureDetector.h"
#include "presentation/TranslationPresenter.h"

#include <QObject>
#include <QPoint>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

class Translator;
class LanguageSelection;
class Preferences;

// What the controller needs of the other applications: their text and their paste.
class TextSource
{
public:
    virtual ~TextSource() = default;
    // The active application is one whose selection is read by keystrokes.
    virtual bool isBooksAppActive() = 0;
    virtual std::optional<QString> getStringForBooksApp() = 0;
    virtual CapturedText getStringForCurrentUIElement() = 0;
    // Replaces the selection of the application that holds the element (a capture's target).
    virtual void pasteIntoApplicationThatContains(const UIElement &element,
                                                  const QString &text) = 0;
};

// Carries out the gesture: captures the text under the pointer, shows it at the pointer,
// translates it, shows the translation or the error, pastes it on left Alt, hides and
// cancels on release. Main thread only; the client's completion is queued back here
// before any state is touched.
class TranslationController : public QObject, public GestureActions
{
    Q_OBJECT
public:
    using UsageReport = std::function<void(const QString &event, const QVariantMap &fields)>;

    TranslationController(Translator &translator, LanguageSelection &languages,
                          Preferences &preferences, TranslationPresenter &presenter,
                          TextSource &textSource, QObject *parent = nullptr);

    void setUsageReport(UsageReport report);

    // GestureActions
    void controlDoublePressed(bool alternativeLanguage) override;
    // Captures and translates again; the popover stays where it is.
    void alternativeLanguageSwitched(bool alternativeLanguage) override;
    void controlDoublePressReleased() override;
    void altPressedWhenControlIsDoublePressed() override;
    // The gesture's first Control tap: the translator opens its connection ahead of the
    // request that may follow.
    void controlPressedOnce() override;

    bool isBooksAppActive();
    void startTranslatingText(const QString &text);
    void cancelTranslatingText();

    qint64 getTranslationsCounter() const;
    void incrementTranslationsCounter();

    std::optional<QString> lastTranslatedText() const { return m_lastTranslatedText; }
    // The element of the last capture that found one: where the translation is pasted.
    UIElement currentlyProcessedElement() const { return m_currentlyProcessedElement; }

signals:
    // Emitted after each answer has been shown (tests and benchmarks watch it).
    void translationShown(bool success, const QString &text);

private:
    void translationCompleted(bool success, const QString &translatedText,
                              const QString &guessedLanguageCode, const QString &errorMessage);

    Translator &m_translator;
    LanguageSelection &m_languages;
    Preferences &m_preferences;
    TranslationPresenter &m_presenter;
    TextSource &m_textSource;
    UsageReport m_usageReport;
    // The language of the gesture's latest translation: the alternative one while its key
    // was held at the last action.
    bool m_alternativeLanguage = false;
    std::optional<QString> m_lastTranslatedText;
    UIElement m_currentlyProcessedElement;
};
