#pragma once

#include "platform/ModifierKeyMonitor.h"

#include <array>
#include <chrono>
#include <memory>
#include <vector>

// One key source made of several that may each see a key, or miss it: in a KWin session the
// accessibility registry hears keys typed into GTK 3 and Qt windows, XWayland those typed
// into X11 windows (and, when the user allows it, the modifiers typed anywhere), and a GTK 3
// window under XWayland is heard by both. A change is passed on once, by whichever source
// tells it first; the other's echo, which follows within moments, is dropped. A press of a
// key held for longer than that means its release was lost (XWayland loses it after
// Ctrl+letter when it only forwards modifiers, and stops after Meta): the release is passed
// on first. Main thread only.
class MergedKeySource : public ModifierKeyMonitor
{
    Q_OBJECT

public:
    explicit MergedKeySource(std::vector<std::unique_ptr<ModifierKeyMonitor>> sources,
                             QObject *parent = nullptr);
    ~MergedKeySource() override;

    bool install() override;
    void remove() override;
    bool isInstalled() const override;
    bool canInstall() const override;

private:
    void take(std::size_t source, const GestureKeyEvent &event);

    std::vector<std::unique_ptr<ModifierKeyMonitor>> m_sources;
    GestureKeys m_held;
    // Which source pressed each held key, by the key's bit.
    std::array<std::size_t, 8> m_pressedBy{};
    std::array<std::chrono::steady_clock::time_point, 8> m_pressedAt{};
};
