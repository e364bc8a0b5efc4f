#pragma once

#include <Qt>

struct org_kde_kwin_fake_input;
struct wl_display;

// Keystrokes into the focused window of a KWin Wayland session, native Wayland windows
// included, through KWin's fake-input protocol. KWin offers the protocol only to a program
// whose installed desktop file lists it (X-KDE-Wayland-Interfaces, as Tolkaro's does) and
// whose Exec= is that program, so an uninstalled build has none (isValid() is false). A
// Wayland connection of its own, opened on first use; main thread only.
class KWinFakeInput
{
public:
    KWinFakeInput();
    ~KWinFakeInput();
    KWinFakeInput(const KWinFakeInput &) = delete;
    KWinFakeInput &operator=(const KWinFakeInput &) = delete;

    bool isValid();
    // Ctrl and a letter (Qt::Key_A to Qt::Key_Z), pressed and released.
    bool sendControlKeystroke(Qt::Key key);

private:
    bool m_tried = false;
    wl_display *m_display = nullptr;
    org_kde_kwin_fake_input *m_fakeInput = nullptr;
};
