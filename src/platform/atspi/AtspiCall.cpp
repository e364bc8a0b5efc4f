#include "AtspiGuard.h"

#include <QElapsedTimer>

#include <cstring>

namespace {

// A call that takes this long has run into the method-call timeout.
constexpr auto kStallThreshold = AtspiThread::kMethodCallTimeout * 9 / 10;
// The give-up mark fades after this long, so that reads made later, outside any capture or
// paste, try again.
constexpr std::chrono::milliseconds kGiveUpWindow{1000};

class GiveUpMark
{
public:
    bool isSet() const { return m_since.isValid() && m_since.elapsed() < kGiveUpWindow.count(); }
    void set(bool gaveUp)
    {
        if (gaveUp)
            m_since.start();
        else
            m_since.invalidate();
    }
    QElapsedTimer since() const { return m_since; }
    void restore(const QElapsedTimer &since) { m_since = since; }

private:
    QElapsedTimer m_since;
};

thread_local GiveUpMark t_gaveUp;

qint64 nowNs()
{
    static QElapsedTimer clock = [] {
        QElapsedTimer started;
        started.start();
        return started;
    }();
    return clock.nsecsElapsed();
}

} // namespace

namespace AtspiCall {

void beginWork()
{
    AtspiThread::instance().call<bool>([] {
        t_gaveUp.set(false);
        return true;
    });
}

bool gaveUp()
{
    return AtspiThread::instance().call<bool>([] { return t_gaveUp.isSet(); }).value_or(true);
}

bool gaveUpOnThisThread()
{
    return t_gaveUp.isSet();
}

KeepGiveUpMark::KeepGiveUpMark() : m_saved(t_gaveUp.since()) {}

KeepGiveUpMark::~KeepGiveUpMark()
{
    t_gaveUp.restore(m_saved);
}

StallGuard::StallGuard() : m_startNs(nowNs()) {}

StallGuard::~StallGuard()
{
    const auto took = std::chrono::nanoseconds(nowNs() - m_startNs);
    if (took >= kStallThreshold)
        t_gaveUp.set(true);
}

void TextRangeFree::operator()(AtspiTextRange *range) const
{
    g_free(range->content);
    g_free(range);
}

QString takeString(gchar *text)
{
    const QString result = QString::fromUtf8(text);
    g_free(text);
    return result;
}

bool failed(GError *error)
{
    if (!error)
        return false;
    if (std::strstr(error->message, "reply") || std::strstr(error->message, "Timeout") ||
        std::strstr(error->message, "timed out"))
        t_gaveUp.set(true);
    g_error_free(error);
    return true;
}

AtspiRole roleOf(AtspiAccessible *accessible)
{
    if (!accessible || gaveUpOnThisThread())
        return ATSPI_ROLE_INVALID;
    GError *error = nullptr;
    const AtspiRole role = atspi_accessible_get_role(accessible, &error);
    return failed(error) ? ATSPI_ROLE_INVALID : role;
}

bool hasInterface(AtspiAccessible *accessible, const char *name)
{
    if (!accessible || gaveUpOnThisThread())
        return false;
    StallGuard guard;
    GArray *interfaces = atspi_accessible_get_interfaces(accessible);
    if (!interfaces)
        return false;
    bool found = false;
    for (guint i = 0; i < interfaces->len; ++i) {
        gchar *interface = g_array_index(interfaces, gchar *, i);
        found = found || std::strcmp(interface, name) == 0;
        g_free(interface);
    }
    g_array_free(interfaces, TRUE);
    return found;
}

QHash<QString, QString> objectAttributes(AtspiAccessible *accessible)
{
    QHash<QString, QString> result;
    if (!accessible || gaveUpOnThisThread())
        return result;
    GError *error = nullptr;
    GHashTable *attributes = atspi_accessible_get_attributes(accessible, &error);
    if (failed(error) || !attributes)
        return result;
    GHashTableIter iter;
    gpointer key;
    gpointer value;
    g_hash_table_iter_init(&iter, attributes);
    while (g_hash_table_iter_next(&iter, &key, &value))
        result.insert(QString::fromUtf8(static_cast<const char *>(key)),
                      QString::fromUtf8(static_cast<const char *>(value)));
    g_hash_table_unref(attributes);
    return result;
}

} // namespace AtspiCall
