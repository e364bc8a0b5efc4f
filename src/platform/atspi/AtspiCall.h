#pragma once

#include "AtspiThread.h"

#include <QElapsedTimer>

#include <functional>

// Runs AT-SPI work as one guarded piece on the AT-SPI thread (AtspiThread), from any thread.
//
// Once a call into an application times out, the work that follows gives up at once until
// the next beginWork() or for one second, so a capture from a stopped application costs one
// timeout instead of one per call. libatspi reports few timeouts as errors; a call that took
// most of the method-call timeout counts as one (AtspiGuard.h has the on-thread pieces).
namespace AtspiCall {

// Marks the start of one piece of work (a capture, a paste): forgets an earlier timeout.
void beginWork();
// A call of the current piece of work timed out: its application is not answering.
bool gaveUp();

// Whether the give-up mark is set; AT-SPI thread only.
bool gaveUpOnThisThread();

// Runs work on the AT-SPI thread and returns its result, or the fallback when the work has
// given up before it started or did not finish in time. Work started from the AT-SPI thread
// runs at once, so operations built on run() compose inside one another.
template <typename T> T run(std::function<T()> work, T fallback = T());

// Measures one call: a call that took most of the method-call timeout sets the give-up mark.
class StallGuard
{
public:
    StallGuard();
    ~StallGuard();
    StallGuard(const StallGuard &) = delete;
    StallGuard &operator=(const StallGuard &) = delete;

private:
    qint64 m_startNs;
};

// Keeps the give-up mark as it was across a call that may answer late without a hang (a
// press that the application runs before it answers).
class KeepGiveUpMark
{
public:
    KeepGiveUpMark();
    ~KeepGiveUpMark();
    KeepGiveUpMark(const KeepGiveUpMark &) = delete;
    KeepGiveUpMark &operator=(const KeepGiveUpMark &) = delete;

private:
    QElapsedTimer m_saved;
};

} // namespace AtspiCall

template <typename T> T AtspiCall::run(std::function<T()> work, T fallback)
{
    return AtspiThread::instance()
        .call<T>([work = std::move(work), fallback] {
            if (gaveUpOnThisThread())
                return fallback;
            StallGuard guard;
            return work();
        })
        .value_or(std::move(fallback));
}
