#include "system/ShortcutFallbackNotice.h"

#include "settings/Preferences.h"
#include "system/DesktopNotifier.h"

ShortcutFallbackNotice::ShortcutFallbackNotice(Preferences &preferences,
                                               std::unique_ptr<DesktopNotifier> notifier,
                                               QObject *parent)
    : QObject(parent), m_preferences(preferences), m_notifier(std::move(notifier))
{
}

ShortcutFallbackNotice::~ShortcutFallbackNotice() = default;

void ShortcutFallbackNotice::tell(const QString &note)
{
    if (note == m_preferences.typingModeShortcutNoticeTold())
        return;
    m_preferences.setTypingModeShortcutNoticeTold(note);
    m_preferences.synchronize();
    if (note.isEmpty())
        return;
    m_notifier->notify(QStringLiteral("Tolkaro's typing-mode shortcut"),
                       note + QStringLiteral(" To choose another one: Tolkaro's tray menu, My "
                                             "Tolkaro, Keyboard Preferences..."));
}
