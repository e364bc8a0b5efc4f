#include "platform/x11/SyntheticKeyEvents.h"

#include <algorithm>

void SyntheticKeyFilter::announce(quint8 keyCode, bool press)
{
    m_announced.push_back({keyCode, press, m_announcedCount++});
}

bool SyntheticKeyFilter::passOver(quint8 keyCode, bool press)
{
    const auto match = std::find_if(m_announced.begin(), m_announced.end(), [&](const Event &e) {
        return e.keyCode == keyCode && e.press == press;
    });
    if (match == m_announced.end())
        return false;
    m_announced.erase(match);
    return true;
}

void SyntheticKeyFilter::expire(std::optional<quint64> mark)
{
    const quint64 before = mark.value_or(m_announcedCount);
    std::erase_if(m_announced, [before](const Event &e) { return e.number < before; });
}

namespace SyntheticKeyEvents {
namespace {
std::function<void(quint64)> g_batchSentHandler;
}

SyntheticKeyFilter &filter()
{
    static SyntheticKeyFilter instance;
    return instance;
}

void batchSent()
{
    if (g_batchSentHandler)
        g_batchSentHandler(filter().mark());
    else
        filter().expire();
}

void setBatchSentHandler(std::function<void(quint64)> handler)
{
    g_batchSentHandler = std::move(handler);
}

} // namespace SyntheticKeyEvents
