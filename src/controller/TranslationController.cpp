#include "controller/TranslationController.h"

#include "common/Log.h"
#include "common/UsageEvents.h"
#include "languages/LanguageTable.h"
#include "settings/Preferences.h"
#include "text/TextCut.h"
#include "translation/Translator.h"

#include <QPointer>

namespace {
const QString kNoTextMessage = QStringLiteral("No text to translate");
} // namespace

TranslationController::TranslationController(Translator &translator,
                                             LanguageSelection &languages,
                                             Preferences &preferences,
                                             TranslationPresenter &presenter,
                                             TextSource &textSource, QObject *parent)
    : QObject(parent), m_translator(translator), m_languages(languages),
      m_preferences(preferences), m_presenter(presenter), m_textSource(textSource)
{
}

void TranslationController::setUsageReport(UsageReport report)
{
    m_usageReport = std::move(report);
}

bool TranslationController::isBooksAppActive()
{
    return m_textSource.isBooksAppActive();
}

void TranslationController::controlDoublePressed(bool alternativeLanguage)
{
    m_alternativeLanguage = alternativeLanguage;
    tolkaro::logLine(QStringLiteral("Control double pressed"));
    std::optional<QString> text;
    if (isBooksAppActive()) {
        tolkaro::logLine(QStringLiteral("Books is active"));
        text = m_textSource.getStringForBooksApp();
    } else {
        CapturedText captured = m_textSource.getStringForCurrentUIElement();
        // A capture that found no element leaves the paste where the last one found it.
        if (captured.target)
            m_currentlyProcessedElement = std::move(captured.target);
        text = std::move(captured.text);
    }

    if (!text) {
        // A request already in flight keeps running: its answer may still arrive.
        m_lastTranslatedText.reset();
        if (!m_presenter.isPopoverShown())
            m_presenter.displayPopOverWithText(kNoTextMessage, m_presenter.pointerPosition());
        m_presenter.setAnimatedGrayStringValue(kNoTextMessage);
        return;
    }

    const QString cut = cutText(*text, kGestureTextLimit);
    // On a translation again (the alternative key changed) the popover stays where it is with its text.
    if (!m_presenter.isPopoverShown())
        m_presenter.displayPopOverWithText(cut, m_presenter.pointerPosition());
    startTranslatingText(cut);
}

void TranslationController::controlPressedOnce()
{
    m_translator.prepare();
}

void TranslationController::startTranslatingText(const QString &text)
{
    m_translator.cancelCurrentTranslationRequestIfAny();
    const QString cut = cutText(text, kGestureTextLimit);
    const QString language =
        m_alternativeLanguage ? m_languages.currentDstLanguageCode2() : m_languages.currentDstLanguageCode();

    // The completion may run before translateText() returns; always queue it, so answers
    // are handled in the order they arrive and never inside the caller's stack.
    QPointer<TranslationController> self(this);
    m_translator.translateText(
        cut, language,
        [self](bool success, const QString &translatedText, const QString &guessedLanguageCode,
               const QString &errorMessage) {
            if (!self)
                return;
            QMetaObject::invokeMethod(
                self.data(),
                [self, success, translatedText, guessedLanguageCode, errorMessage] {
                    if (self)
                        self->translationCompleted(success, translatedText, guessedLanguageCode,
                                                   errorMessage);
                },
                Qt::QueuedConnection);
        });
}

void TranslationController::translationCompleted(bool success, const QString &translatedText,
                                                 const QString &guessedLanguageCode,
                                                 const QString &errorMessage)
{
    // Cancelled and stale answers are handled like any other: the field always shows the
    // latest completion, and every completed request counts.
    incrementTranslationsCounter();
    if (m_usageReport) {
        QVariantMap fields{{QStringLiteral("counter"), getTranslationsCounter()}};
        if (!success)
            fields.insert(QStringLiteral("error"), errorMessage);
        m_usageReport(QString::fromLatin1(success ? UsageEvents::kTranslationMade
                                                       : UsageEvents::kTranslationError), fields);
    }

    if (!success) {
        m_lastTranslatedText.reset();
        tolkaro::logLine(QStringLiteral("Error: %1").arg(errorMessage));
        m_presenter.setAnimatedGrayStringValue(errorMessage);
        emit translationShown(false, errorMessage);
        return;
    }

    m_lastTranslatedText = translatedText;
    tolkaro::logLine(QStringLiteral("%1 (src lang is %2)")
                         .arg(tolkaro::privateText(translatedText),
                              guessedLanguageCode.isNull() ? QStringLiteral("(null)")
                                                           : guessedLanguageCode));
    m_presenter.setAnimatedStringValue(translatedText);
    emit translationShown(true, translatedText);
}

void TranslationController::cancelTranslatingText()
{
    m_translator.cancelCurrentTranslationRequestIfAny();
}

void TranslationController::alternativeLanguageSwitched(bool alternativeLanguage)
{
    controlDoublePressed(alternativeLanguage);
}

void TranslationController::controlDoublePressReleased()
{
    m_presenter.hidePopOver();
    cancelTranslatingText();
}

void TranslationController::altPressedWhenControlIsDoublePressed()
{
    if (!m_lastTranslatedText)
        return;
    m_textSource.pasteIntoApplicationThatContains(m_currentlyProcessedElement,
                                                  *m_lastTranslatedText);
}

qint64 TranslationController::getTranslationsCounter() const
{
    return m_preferences.totalTranslationsMadeCounter();
}

void TranslationController::incrementTranslationsCounter()
{
    m_preferences.setTotalTranslationsMadeCounter(getTranslationsCounter() + 1);
}
