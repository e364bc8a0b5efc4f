#pragma once

#include "platform/ModifierKeyMonitor.h"

#include <QTimer>

#include <memory>

class AtspiKeystrokeKeySource;
class GnomeShellHelper;

// The key source of a GNOME Wayland session, from two sources that each see part of it.
// The shell helper reports the modifier mask whichever window has the focus, GTK 4 and the
// shell's own included, but a mask cannot tell left from right. The AT-SPI keystroke
// listener tells them apart, but only while a GTK 3 or Qt window has the focus. A key the
// listener reports goes out at once; a change of the mask that the listener has not
// explained within a short grace goes out as the left key (Control, Alt) or the
// alternative-language key: with GTK 4 focused, right Control counts as left.
//
// Main thread only; both sources deliver there.
class GnomeKeySource : public ModifierKeyMonitor
{
    Q_OBJECT

public:
    // How long a change of the mask waits for the listener to say which side it was; far
    // shorter than the double-press window, and longer than the listener's usual lag.
    static constexpr int kSideGraceMs = 60;

    GnomeKeySource(GnomeShellHelper &helper, std::unique_ptr<ModifierKeyMonitor> keystrokes,
                   const QString &alternativeKey, QObject *parent = nullptr);
    ~GnomeKeySource() override;

    bool install() override;
    void remove() override;
    bool isInstalled() const override { return m_installed; }
    // The helper answers (asked even while installed): without it no key is seen while GTK 4
    // or the shell has the focus, nor the pointer anywhere.
    bool canInstall() const override;
    // The helper not installed, switched off, or waiting for the next login.
    QString setupNeeded() const override;
    bool runSetup() override;

    // A new mask from the helper; public for tests.
    void modifiersChanged(quint32 modifiers);
    // A key from the keystroke listener; public for tests.
    void keystroke(const GestureKeyEvent &event);

private:
    struct Group
    {
        quint32 maskBits;
        GestureKeys keys; // the keys this mask bit stands for
        GestureKey unknownSide;
    };
    void settleMask();
    void emitChange(GestureKey key, bool pressed);

    GnomeShellHelper &m_helper;
    std::unique_ptr<ModifierKeyMonitor> m_keystrokes;
    QList<Group> m_groups;
    bool m_installed = false;
    quint32 m_mask = 0;
    quint32 m_pendingBits = 0; // pressed in the mask, side not yet known
    GestureKeys m_held;
    QTimer m_grace;
};
