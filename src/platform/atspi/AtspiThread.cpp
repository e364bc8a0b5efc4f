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

namespace {

// libatspi opens a direct connection to each application that offers one (GTK does) and
// hands it to the default main context, which is the Qt main thread's. That thread then
// polls the socket too, and when it takes a reply off the connection first, the call here
// waiting for that reply sleeps out its whole timeout although the answer came in a
// millisecond: a menu press given up on, a capture that finds nothing. So before each piece
// of work every application's connection is put on this thread's context (a no-op for those
// already there).
void keepApplicationConnectionsHere()
{
    AtspiAccessible *desktop = atspi_get_desktop(0);
    if (!desktop)
        return;
    GMainContext *here = g_main_context_get_thread_default();
    for (guint i = 0; desktop->children && i < desktop->children->len; ++i) {
        auto *application = static_cast<AtspiAccessible *>(g_ptr_array_index(desktop->children, i));
        if (application && application->parent.app && application->parent.app->bus)
            atspi_dbus_connection_setup_with_g_main(application->parent.app->bus, here);
    }
    g_object_unref(desktop);
}

} // namespace

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
    QMetaObject::invokeMethod(
        m_context,
        [work = std::move(work)] {
            if (atspi_is_initialized())
                keepApplicationConnectionsHere();
            work();
        },
        Qt::QueuedConnection);
}

bool AtspiThread::runAndWait(std::function<void()> work, std::chrono::milliseconds deadline)
{
    auto completion = std::make_shared<Completion>();
    QMetaObject::invokeMethod(
        m_context,
        [completion, work = std::move(work)] {
            if (atspi_is_initialized())
                keepApplicationConnectionsHere();
            work();
            std::lock_guard lock(completion->mutex);
            completion->finished = true;
            completion->done.notify_all();
        },
        Qt::QueuedConnection);
    std::unique_lock lock(completion->mutex);
    return completion->done.wait_for(lock, deadline, [&] { return completion->finished; });
}
