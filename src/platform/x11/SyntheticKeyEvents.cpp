#include "platform/x11/SyntheticKeyEvents.h"

#include <chrono>

namespace {
using Clock = std::chrono::steady_clock;
int g_pending = 0;
Clock::time_point g_expiry;

void dropIfLapsed()
{
    if (g_pending > 0 && Clock::now() > g_expiry)
        g_pending = 0;
}
} // namespace

namespace SyntheticKeyEvents {

void announce(int count)
{
    if (count <= 0)
        return;
    dropIfLapsed();
    g_pending += count;
    g_expiry = Clock::now() + std::chrono::milliseconds(kAnnouncementLifetimeMs);
}

bool consumeAnnounced()
{
    dropIfLapsed();
    if (g_pending == 0)
        return false;
    --g_pending;
    return true;
}

int pending()
{
    dropIfLapsed();
    return g_pending;
}

} // namespace SyntheticKeyEvents
