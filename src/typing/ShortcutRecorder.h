#pragma once

#include "settings/Preferences.h"

#include <QWidget>

#include <optional>

class QPushButton;
class QToolButton;

// The shortcut recorder: shows the shortcut, and after a click records the next key
// pressed with Ctrl, Alt or Super (or a function key) as the new one. Escape cancels,
// Backspace or the clear button removes the user's own shortcut so the default applies
// again. While recording it holds the keyboard, so even combinations the desktop uses can
// be recorded. Tied to the preferences: what is recorded is stored at once under
// "TypingModeKeyboardShortcut". Main thread.
class ShortcutRecorder : public QWidget
{
    Q_OBJECT

public:
    explicit ShortcutRecorder(QWidget *parent = nullptr);

    // The store to read and write, and the value shown while it holds nothing.
    void setAssociatedPreferences(Preferences *preferences, const StoredShortcut &fallback);
    // The shortcut shown: the stored one, else the fallback.
    StoredShortcut shortcutValue() const;
    bool isRecording() const { return m_recording; }
    void setRecording(bool recording);
    // A line under the recorder (why a shortcut was refused, or which one is in force).
    void setNote(const QString &note);

signals:
    void recordingChanged(bool recording);
    // The stored value changed (nullopt: cleared, the fallback applies).
    void shortcutValueChanged(const std::optional<StoredShortcut> &shortcut);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    void store(const std::optional<StoredShortcut> &shortcut);
    void refresh();

    Preferences *m_preferences = nullptr;
    StoredShortcut m_fallback;
    bool m_recording = false;
    QPushButton *m_button = nullptr;
    QToolButton *m_clearButton = nullptr;
    class QLabel *m_note = nullptr;
};
