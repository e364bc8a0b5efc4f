#include "platform/kwin/MergedKeySource.h"

#include <bit>

namespace {

// Far longer than a source's echo takes, far shorter than a press and a release by hand.
constexpr auto kEchoWindow = std::chrono::milliseconds(150);

std::size_t bitOf(GestureKey key)
{
    return std::size_t(std::countr_zero(unsigned(key)));
}

} // namespace

MergedKeySource::MergedKeySource(std::vector<std::unique_ptr<ModifierKeyMonitor>> sources,
                                 QObject *parent)
    : ModifierKeyMonitor(parent), m_sources(std::move(sources))
{
    for (std::size_t i = 0; i < m_sources.size(); ++i)
        connect(m_sources[i].get(), &ModifierKeyMonitor::keyEvent, this,
                [this, i](const GestureKeyEvent &event) { take(i, event); });
}

MergedKeySource::~MergedKeySource() = default;

bool MergedKeySource::install()
{
    bool any = false;
    for (const auto &source : m_sources)
        any = source->install() || any;
    return any;
}

void MergedKeySource::remove()
{
    for (const auto &source : m_sources)
        source->remove();
}

bool MergedKeySource::isInstalled() const
{
    for (const auto &source : m_sources) {
        if (source->isInstalled())
            return true;
    }
    return false;
}

bool MergedKeySource::canInstall() const
{
    for (const auto &source : m_sources) {
        if (source->canInstall())
            return true;
    }
    return false;
}

void MergedKeySource::take(std::size_t source, const GestureKeyEvent &event)
{
    const std::size_t bit = bitOf(event.key);
    if (event.isPress()) {
        if (m_held.testFlag(event.key)) {
            // The other source's echo comes within moments; later, the release was lost.
            if (m_pressedBy[bit] != source && event.time - m_pressedAt[bit] < kEchoWindow)
                return;
            m_held.setFlag(event.key, false);
            emit keyEvent({event.key, m_held, event.time});
        }
        m_held.setFlag(event.key, true);
        m_pressedBy[bit] = source;
        m_pressedAt[bit] = event.time;
        emit keyEvent({event.key, m_held, event.time});
    } else if (m_held.testFlag(event.key)) {
        m_held.setFlag(event.key, false);
        emit keyEvent({event.key, m_held, event.time});
    }
}
