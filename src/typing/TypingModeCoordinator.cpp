#include "typing/TypingModeCoordinator.h"

#include "common/Log.h"
#include "common/UsageEvents.h"
#include "text/TextCut.h"
#include "translation/Translator.h"
#include "typing/SpotlightWindowController.h"

TypingModeCoordinator::TypingModeCoordinator(Translator *googleTranslator,
                                             LanguageFunction currentDstLanguageCode,
                                             PasteFunction paste, Platform &platform,
                                             QObject *parent)
    : QObject(parent), m_translator(googleTranslator),
      m_currentDstLanguageCode(std::move(currentDstLanguageCode)), m_paste(std::move(paste)),
      m_platform(platform)
{
}

TypingModeCoordinator::~TypingModeCoordinator() = default;

void TypingModeCoordinator::setShortcutSource(ShortcutSource source)
{
    m_shortcutSource = std::move(source);
    if (m_spotlight)
        m_spotlight->setShortcutSource(m_shortcutSource);
}

void TypingModeCoordinator::showSpotlightTranslationPopup()
{
    emit usageEvent(QString::fromLatin1(UsageEvents::kTypingModeOpened));
    if (!m_spotlight) {
        m_spotlight = std::make_unique<SpotlightWindowController>(m_platform);
        if (m_shortcutSource)
            m_spotlight->setShortcutSource(m_shortcutSource);
        connect(m_spotlight.get(), &SpotlightWindowController::editingFinished, this,
                &TypingModeCoordinator::spotlightEditingFinished);
        connect(m_spotlight.get(), &SpotlightWindowController::enterPressed, this,
                &TypingModeCoordinator::spotlightEnterPressed);
        connect(m_spotlight.get(), &SpotlightWindowController::shortcutPressed, this,
                &TypingModeCoordinator::showSpotlightTranslationPopup);
    }
    m_spotlight->toggle();
}

void TypingModeCoordinator::spotlightEditingFinished(const QString &typedText)
{
    emit usageEvent(QString::fromLatin1(UsageEvents::kTypingModeTranslationMade));
    if (!m_translator)
        return;
    m_translator->cancelCurrentTranslationRequestIfAny();
    const QString text = cutText(typedText, kTypingTextLimit);
    if (text.isEmpty()) {
        m_spotlight->shrinkDetails();
        return;
    }
    // Always the main destination language: the alternative one belongs to the gesture.
    QPointer<TypingModeCoordinator> self(this);
    m_translator->translateText(
        text, m_currentDstLanguageCode ? m_currentDstLanguageCode() : QString(),
        [self](bool success, const QString &translatedText, const QString &, const QString &) {
            // The completion may come from anywhere; the panel is touched on the main thread.
            if (!self)
                return;
            QMetaObject::invokeMethod(
                self.data(),
                [self, success, translatedText] {
                    if (self && self->m_spotlight)
                        self->m_spotlight->expandWithDetailsText(
                            success ? translatedText : QLatin1String(kTranslationFailedText));
                },
                Qt::QueuedConnection);
        });
}

void TypingModeCoordinator::spotlightEnterPressed(const QString &translation)
{
    emit usageEvent(QString::fromLatin1(UsageEvents::kTypingModeTranslationPasted));
    m_spotlight->close();
    // With the grab the other application never stopped being the active one; after the
    // focus fallback it has to be made active again before it can take the paste.
    m_spotlight->returnActivation();
    if (m_paste)
        m_paste(translation);
    tolkaro::logLine(QStringLiteral("Pasted %1").arg(tolkaro::privateText(translation)));
}
