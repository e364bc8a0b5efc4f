#include "typing/TypingModeCoordinator.h"

#include "common/Log.h"
#include "common/NotificationCenter.h"
#include "common/UsageEvents.h"
#include "text/TextCut.h"
#include "translation/Translator.h"
#include "typing/SpotlightWindowController.h"

TypingModeCoordinator::TypingModeCoordinator(Translator *googleTranslator,
                                             LanguageFunction currentDstLanguageCode,
                                             PasteFunction paste, QObject *parent)
    : QObject(parent), m_googleTranslator(googleTranslator),
      m_currentDstLanguageCode(std::move(currentDstLanguageCode)), m_paste(std::move(paste))
{
}

TypingModeCoordinator::~TypingModeCoordinator()
{
    NotificationCenter::defaultCenter().removeObservers(this);
}

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
        m_spotlight = std::make_unique<SpotlightWindowController>();
        if (m_shortcutSource)
            m_spotlight->setShortcutSource(m_shortcutSource);
        NotificationCenter &center = NotificationCenter::defaultCenter();
        center.addObserver(QLatin1String(NotificationNames::kSpotlightEditingFinished), this,
                           [this](const QVariantMap &info) { spotlightEditingFinished(info); });
        center.addObserver(QLatin1String(NotificationNames::kSpotlightEnterPressedNotification),
                           this, [this](const QVariantMap &info) { spotlightEnterPressed(info); });
    }
    m_spotlight->toggle();
}

void TypingModeCoordinator::fnKeyPressed()
{
    if (m_spotlight)
        m_spotlight->fnKeyPressed();
}

void TypingModeCoordinator::fnKeyReleased()
{
    if (m_spotlight)
        m_spotlight->fnKeyReleased();
}

void TypingModeCoordinator::spotlightEditingFinished(const QVariantMap &userInfo)
{
    emit usageEvent(QString::fromLatin1(UsageEvents::kTypingModeTranslationMade));
    const QString typedText =
        userInfo.value(QLatin1String(NotificationUserInfoKeys::kText)).toString();
    if (!m_googleTranslator)
        return;
    m_googleTranslator->cancelCurrentTranslationRequestIfAny();
    const QString text = cutText(typedText, kTypingTextLimit);
    if (text.isEmpty()) {
        m_spotlight->shrinkDetails();
        return;
    }
    // Always the main destination language: fn plays no part in the typing mode.
    QPointer<TypingModeCoordinator> self(this);
    m_googleTranslator->translateText(
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

void TypingModeCoordinator::spotlightEnterPressed(const QVariantMap &userInfo)
{
    emit usageEvent(QString::fromLatin1(UsageEvents::kTypingModeTranslationPasted));
    const QString translation =
        userInfo.value(QLatin1String(NotificationUserInfoKeys::kTranslation)).toString();
    m_spotlight->close();
    // With the grab the other application never stopped being the active one; after the
    // focus fallback it has to be made active again before it can take the paste.
    m_spotlight->returnActivation();
    if (m_paste)
        m_paste(translation);
    tolkaro::logLine(QStringLiteral("Pasted %1").arg(translation));
}
