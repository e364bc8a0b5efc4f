#pragma once

#include "settings/Preferences.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <utility>
#include <vector>

class GlobalHotKey;
class QLabel;
class QLineEdit;
class QWidget;
class ShortcutRecorder;

// The Keyboard Preferences window and the typing-mode shortcut behind it: the recorder, the
// stored shortcut with Alt+Space as its unwritten default, and the system-wide binding,
// which posts "OpenTypingModeNotification" and follows a newly recorded shortcut at once.
// Loading the window (window(), done once at start-up without showing it) binds the
// shortcut. When another program already owns the shortcut, that is said once and
// Ctrl+Alt+Space is used for the run, without storing it. Main thread.
class PreferencesWindowController : public QObject
{
    Q_OBJECT

public:
    explicit PreferencesWindowController(Preferences &preferences, QObject *parent = nullptr);
    ~PreferencesWindowController() override;

    // Loads the window on first call.
    QWidget *window();
    void showWindow();
    ShortcutRecorder *typingModeShortcutView() const { return m_typingModeShortcutView; }

    // The shortcut that is bound now (the fallback when the stored one was taken); keySym 0
    // when none could be bound.
    StoredShortcut activeShortcut() const;
    // This session offers system-wide shortcuts at all.
    bool canBindShortcuts() const;

signals:
    // The binding changed (another shortcut, or the fallback).
    void activeShortcutChanged(const StoredShortcut &shortcut);
    // After every binding: the note naming the fallback in use, empty when there is none.
    void shortcutFallbackChanged(const QString &note);
    // A translation service's key or address was changed in the window.
    void translationServicesChanged();

private:
    void windowDidLoad();
    void setupShortcuts();
    // The Services section: each service's key or address, saved as it is edited.
    QWidget *servicesSection();
    // The Services fields filled from the settings, when the window is shown: reading an
    // API key may ask the desktop's secret store.
    void loadServiceFields();
    void bindShortcutWithDefaultsKey();

    Preferences &m_preferences;
    QPointer<QWidget> m_window;
    ShortcutRecorder *m_typingModeShortcutView = nullptr;
    std::unique_ptr<GlobalHotKey> m_hotKey;
    bool m_saidShortcutTaken = false;
    std::vector<std::pair<QPointer<QLineEdit>, QString (Preferences::*)() const>> m_serviceFields;
};
