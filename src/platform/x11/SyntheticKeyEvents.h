#pragma once

// Tolkaro's own XTest keystrokes (the paste and capture key presses) must not reach the
// gesture: a synthetic Control release sent while the user holds Control would end the
// gesture. The key sender announces how many XTest key events it is about to post; the key
// monitor passes over that many key events that come from an XTest device.
//
// Only announced events are passed over, not everything XTest sends: the test desktop and
// accessibility tools drive the keyboard with XTest too, and those keystrokes are the
// user's. An announcement the monitor never sees (no monitor installed) lapses after
// kAnnouncementLifetime, so a later keystroke is never lost to it. Main thread only.
namespace SyntheticKeyEvents {

inline constexpr int kAnnouncementLifetimeMs = 2000;

// Called by the key sender right before it posts `count` XTest key events (each press and
// each release counts as one).
void announce(int count);

// Called by the key monitor for each key event whose source is an XTest device: true when
// it was announced (and is now accounted for), false when it came from someone else.
bool consumeAnnounced();

// Events announced and not yet seen.
int pending();

} // namespace SyntheticKeyEvents
