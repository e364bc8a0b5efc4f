#include "platform/x11/SyntheticKeyEvents.h"

#include <algorithm>

void SyntheticKeyFilter::announce(quint8 keyCode, bool press)
{
    m_announced.push_back({keyCode, press});
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

void SyntheticKeyFilter::expire()
{
    m_announced.clear();
}

namespace SyntheticKeyEvents {
namespace {
std::function<void()> g_batchSentHandler;
}

SyntheticKeyFilter &filter()
{
    static SyntheticKeyFilter instance;
    return instance;
}

void batchSent()
{
    if (g_batchSentHandler)
        g_batchSentHandler();
    else
        filter().expire();
}

void setBatchSentHandler(std::function<void()> handler)
{
    g_batchSentHandler = std::move(handler);
}

} // namespace SyntheticKeyEvents
