#pragma once

#include <QtGlobal>

#include <deque>
#include <functional>
#include <optional>

// Tolkaro's own XTest keystrokes (the paste and capture key presses) must not reach the
// gesture: a synthetic Control release sent while the user holds Control would end the
// gesture. But the XTest device is shared: remote desktops, software KVMs, on-screen
// keyboards and test drivers type through it too, and their keys are the user's.
//
// So each event is announced (key code and direction) right before it is posted, and the
// key monitor passes over an XTest event only when it matches an announcement, each
// announcement matching once: when another client's look-alike event takes an announcement,
// our own event comes unmatched in its place, so the count of events reported stays right.
// The server may drop an event (a press of a modifier that is already down): once the
// sender has waited for the server, the key monitor reads its events up to that point and
// calls `expire()`, so an announcement never seen does not wait to catch someone else's key.
// Main thread only.
class SyntheticKeyFilter
{
public:
    void announce(quint8 keyCode, bool press);
    // An event from an XTest device: true when it is an announced one (now accounted for).
    bool passOver(quint8 keyCode, bool press);
    // How many announcements were ever made: the mark of everything announced so far.
    quint64 mark() const { return m_announcedCount; }
    // Forgets the announcements made before the mark (all of them by default).
    void expire(std::optional<quint64> mark = std::nullopt);

private:
    struct Event
    {
        quint8 keyCode;
        bool press;
        quint64 number;
    };
    std::deque<Event> m_announced;
    quint64 m_announcedCount = 0;
};

// The process's one filter, between the key sender and the key monitor.
namespace SyntheticKeyEvents {

SyntheticKeyFilter &filter();

// The sender has posted a batch of events and waited for the server to handle them; the
// key monitor (when one listens) reads its events up to then and expires the batch's rest.
void batchSent();
void setBatchSentHandler(std::function<void(quint64 mark)> handler);

} // namespace SyntheticKeyEvents
