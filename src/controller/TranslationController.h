#pragma once

#include "capture/CapturedText.h"
#include "gesture/ModifierGestureDetector.h"

#include <QObject>
#include <QPoint>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

class GoogleTranslateByURL;
class LanguageSelection;
class Preferences;

// What the controller needs of the popover at the pointer.
class TranslationPresenter
{
public:
    virtual ~TranslationPresenter() = default;
    virtual bool isPopoverShown() const = 0;
    virtual void displayPopOverWithText(const QString &text, const QPoint &position) = 0;
    virtual void hidePopOver() = 0;
    // Cross-fades to the text in the field's normal colour; no fade when it is unchanged.
    virtual void setAnimatedStringValue(const QString &text) = 0;
    // Cross-fades to the text in gray, always (messages and errors).
    virtual void setAnimatedGrayStringValue(const QString &text) = 0;
    // The pointer in global screen coordinates.
    virtual QPoint pointerPosition() const = 0;
};

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
// translates it, shows the translation or the error, pastes it on Option, hides and
// cancels on release. Main thread only; the client's completion is queued back here
// before any state is touched.
class TranslationController : public QObject, public GestureActions
{
    Q_OBJECT
public:
    using UsageReport = std::function<void(const QString &event, const QVariantMap &fields)>;

    TranslationController(GoogleTranslateByURL &translator, LanguageSelection &languages,
                          Preferences &preferences, TranslationPresenter &presenter,
                          TextSource &textSource, QObject *parent = nullptr);

    // Where fn's state is read (the gesture detector); absent means fn is up.
    void setFnStateSource(std::function<bool()> fnIsPressed);
    void setUsageReport(UsageReport report);
    // The typing mode's hooks for fn changes; absent until it exists.
    void setFnHooks(std::function<void()> pressed, std::function<void()> released);

    // GestureActions
    void controlDoublePressed() override;
    void controlDoublePressReleased() override;
    void altPressedWhenControlIsDoublePressed() override;
    void fnKeyPressed() override;
    void fnKeyReleased() override;

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

    GoogleTranslateByURL &m_translator;
    LanguageSelection &m_languages;
    Preferences &m_preferences;
    TranslationPresenter &m_presenter;
    TextSource &m_textSource;
    std::function<bool()> m_fnIsPressed;
    UsageReport m_usageReport;
    std::function<void()> m_fnPressedHook;
    std::function<void()> m_fnReleasedHook;
    std::optional<QString> m_lastTranslatedText;
    UIElement m_currentlyProcessedElement;
};
