#include "typing/EditTimers.h"

EditTimers::EditTimers(QObject *parent) : QObject(parent)
{
    m_refreshTimerHack.setSingleShot(true);
    m_refreshTimerHack.setInterval(kRelayoutDelay);
    // Precise: the default coarse timer may stretch 10 ms by 5 % either way, which is
    // harmless, but the half second must not fire early.
    m_editingCallbackTimer.setSingleShot(true);
    m_editingCallbackTimer.setTimerType(Qt::PreciseTimer);
    m_editingCallbackTimer.setInterval(kEditingFinishedDelay);
    connect(&m_refreshTimerHack, &QTimer::timeout, this, &EditTimers::relayoutDue);
    connect(&m_editingCallbackTimer, &QTimer::timeout, this, &EditTimers::editingFinished);
}

void EditTimers::textDidChange()
{
    // A pending re-layout is left to run; only the editing countdown starts over.
    if (!m_refreshTimerHack.isActive())
        m_refreshTimerHack.start();
    m_editingCallbackTimer.start();
}
