#include "AtspiThread.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <atspi/atspi.h>

#include <atomic>

namespace {

struct Completion
{
    std::mutex mutex;
    std::condition_variable done;
    bool finished = false;
};

std::atomic<bool> threadExists{false};

} // namespace

AtspiThread &AtspiThread::instance()
{
    // Never destroyed: element references released during exit still reach a live thread.
    static AtspiThread *thread = new AtspiThread;
    return *thread;
}

bool AtspiThread::exists()
{
    return threadExists.load();
}

AtspiThread::AtspiThread()
{
    m_thread.setObjectName(QStringLiteral("AT-SPI"));
    m_thread.start();
    m_context = new QObject;
    m_context->moveToThread(&m_thread);
    // The thread's event dispatcher is a GLib one with a GMainContext of its own, pushed as
    // that thread's default: libatspi's connections go there, away from the main loop.
    threadExists = true;
    runAndWait(
        [this] {
            if (atspi_init() > 1)
                return;
            if (DBusConnection *bus = atspi_get_a11y_bus()) {
                char *id = dbus_connection_get_server_id(bus);
                m_busServerId = QString::fromLatin1(id);
                dbus_free(id);
            }
            atspi_set_main_context(g_main_context_get_thread_default());
            // No longer start-up grace for young applications: a fixed short timeout.
            atspi_set_timeout(int(kMethodCallTimeout.count()), 0);
        },
        std::chrono::milliseconds(5000));
}

bool AtspiThread::isValid()
{
    if (!m_valid) {
        m_valid = call<bool>([] {
                      if (!atspi_is_initialized())
                          return false;
                      AtspiAccessible *desktop = atspi_get_desktop(0);
                      if (!desktop)
                          return false;
                      g_object_unref(desktop);
                      return true;
                  }).value_or(false);
    }
    return *m_valid;
}

bool AtspiThread::isCurrentThread() const
{
    return QThread::currentThread() == &m_thread;
}

void AtspiThread::post(std::function<void()> work)
{
    if (!m_thread.isRunning())
        return;
    QMetaObject::invokeMethod(m_context, std::move(work), Qt::QueuedConnection);
}

bool AtspiThread::runAndWait(std::function<void()> work, std::chrono::milliseconds deadline)
{
    auto completion = std::make_shared<Completion>();
    QMetaObject::invokeMethod(
        m_context,
        [completion, work = std::move(work)] {
            work();
            std::lock_guard lock(completion->mutex);
            completion->finished = true;
            completion->done.notify_all();
        },
        Qt::QueuedConnection);
    std::unique_lock lock(completion->mutex);
    return completion->done.wait_for(lock, deadline, [&] { return completion->finished; });
}
