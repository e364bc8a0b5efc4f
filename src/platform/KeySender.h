#pragma once

#include <Qt>
#include <QtGlobal>

// Synthetic keystrokes into the focused window of another application, and the state of
// the modifier keys they must wait for. Tolkaro's own keystrokes never count as the user's
// gesture. Main thread only; a backend from Platform.
class KeySender
{
public:
    virtual ~KeySender() = default;

    virtual bool canSendKeys() const = 0;
    // Any Shift, Control, Alt or Super key is down.
    virtual bool modifierKeysDown() = 0;
    // A key typing this X keysym (as shortcuts are stored) is down right now.
    virtual bool isKeyDown(quint32 keySym) = 0;
    // Releases every modifier key the server thinks is down (the user's Alt would turn a
    // synthetic Ctrl+C into Ctrl+Alt+C).
    virtual void releaseHeldModifiers() = 0;
    // Sends Ctrl and a letter key (Qt::Key_C, Qt::Key_V) to the focused window.
    virtual bool sendControlKeystroke(Qt::Key key) = 0;
};
