#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>

// The two one-shot timers behind the typing panel's edits. Every edit asks for a
// re-layout kRelayoutDelay later (edits inside that window share one re-layout, so the
// growing field has taken its new height before the panel reads it) and restarts the
// editing-finished countdown, so a translation is asked for kEditingFinishedDelay after
// the last keystroke and never during continuous typing. Main thread; the timers keep
// running whatever the panel does, hidden or shown.
class EditTimers : public QObject
{
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds kRelayoutDelay{10};
    static constexpr std::chrono::milliseconds kEditingFinishedDelay{500};

    explicit EditTimers(QObject *parent = nullptr);

    // One edit of the input field.
    void textDidChange();

    bool isRelayoutPending() const { return m_refreshTimerHack.isActive(); }
    bool isEditingFinishedPending() const { return m_editingCallbackTimer.isActive(); }

signals:
    void relayoutDue();
    void editingFinished();

private:
    QTimer m_refreshTimerHack;
    QTimer m_editingCallbackTimer;
};
