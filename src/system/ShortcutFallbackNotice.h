#pragma once

#include <QObject>
#include <QString>

#include <memory>

class DesktopNotifier;
class Preferences;

// Tells the user, once per change, that the typing-mode shortcut they chose is owned by
// another program (Alt+Space is the window menu on many desktops) and which shortcut opens
// the panel instead. What was told last is kept in the preferences, so the same situation
// at every start is told once, and a new one (or the old one after it went away) again.
// Main thread.
class ShortcutFallbackNotice : public QObject
{
    Q_OBJECT

public:
    ShortcutFallbackNotice(Preferences &preferences, std::unique_ptr<DesktopNotifier> notifier,
                           QObject *parent = nullptr);
    ~ShortcutFallbackNotice() override;

    // `note` names the wanted shortcut and the one in use; empty when the wanted one is bound.
    void tell(const QString &note);

private:
    Preferences &m_preferences;
    std::unique_ptr<DesktopNotifier> m_notifier;
};
