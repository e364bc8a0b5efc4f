#pragma once

#include <QString>
#include <QThread>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

// The one thread on which every libatspi call is made.
//
// libatspi is not thread-safe, and a blocking call into a stopped or hung application must
// never freeze Tolkaro's interface. So libatspi lives on this dedicated thread, with its
// D-Bus connections moved onto the thread's own GMainContext (atspi_set_main_context) so
// that Qt's main loop never dispatches them, and with a short method-call timeout. Callers
// on any other thread hand it a piece of work and wait for it with a deadline; a caller
// that gives up leaves the work to finish on its own (later work queues behind it).
//
// Why a thread of its own rather than the main thread with short timeouts: libatspi would
// then dispatch its connections from Qt's main loop, inside every nested event loop, and a
// capture blocked in a call could not be abandoned. Measured on the test desktop: a hop to
// this thread and back costs 0.012 ms (median), nothing beside one AT-SPI round trip (0.1 to
// 0.5 ms); a capture from a SIGSTOPped application gives up after 0.2 to 0.4 s (libatspi
// spends one or two method-call timeouts in its first call), where libatspi's default
// timeout of 0.8 s per call, over the dozen calls of a capture, would freeze Tolkaro.
class AtspiThread
{
public:
    // Each D-Bus call into another application gives up after this long.
    static constexpr std::chrono::milliseconds kMethodCallTimeout{200};
    // A press of another application's menu item, which nobody waits for, gives up later.
    static constexpr std::chrono::milliseconds kActionTimeout{1000};
    // A caller stops waiting for one piece of work after this long.
    static constexpr std::chrono::milliseconds kDefaultDeadline{1500};

    static AtspiThread &instance();
    // Whether instance() has been asked for yet, without starting the thread.
    static bool exists();

    // The id (D-Bus server GUID) of the accessibility bus libatspi connected to when the
    // thread started; empty when there was none. libatspi never leaves that bus, so a bus
    // with another id means this process can no longer read other applications.
    QString busServerId() const { return m_busServerId; }

    // libatspi is initialised and the accessibility bus answers.
    bool isValid();
    bool isCurrentThread() const;

    // Runs work on the thread and returns its result, or nullopt when it did not finish
    // before the deadline. Work started from the thread itself runs at once.
    template <typename T>
    std::optional<T> call(std::function<T()> work,
                          std::chrono::milliseconds deadline = kDefaultDeadline);

    // Runs work on the thread without waiting (releases of references).
    void post(std::function<void()> work);

private:
    AtspiThread();
    bool runAndWait(std::function<void()> work, std::chrono::milliseconds deadline);

    QThread m_thread;
    QObject *m_context = nullptr;
    std::optional<bool> m_valid;
    QString m_busServerId;
};

template <typename T>
std::optional<T> AtspiThread::call(std::function<T()> work, std::chrono::milliseconds deadline)
{
    if (isCurrentThread())
        return work();
    auto result = std::make_shared<std::optional<T>>();
    const bool finished = runAndWait([result, work = std::move(work)] { *result = work(); },
                                     deadline);
    if (!finished)
        return std::nullopt;
    return std::move(*result);
}
