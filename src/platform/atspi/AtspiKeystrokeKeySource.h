#pragma once

#include "platform/ModifierKeyMonitor.h"

#include <QHash>
#include <QString>

#include <memory>

// A key source that needs no display server: the toolkits of the focused application
// (GTK 3, Qt) hand their key events to the accessibility registry, which passes on those of
// the gesture keys to a keystroke listener registered for them alone (every other key never
// leaves the registry). This works under any compositor, Wayland included, but only while a
// window of such a toolkit has the keyboard focus: GTK 4 forwards no keys, so a Wayland
// backend pairs it with a compositor-side source that sees the modifier state everywhere.
// Left and right keys are told apart by their keysym, or by their evdev hardware code where
// a toolkit leaves the keysym out.
//
// The listener lives on the AT-SPI thread (libatspi dispatches it there); each key is queued
// to this object's thread, where keyEvent() is emitted in the order the keys came.
class AtspiKeystrokeKeySource : public ModifierKeyMonitor
{
    Q_OBJECT

public:
    // The alternative-language key is an X keysym name ("Super_L"); an unknown name leaves
    // it without a key.
    explicit AtspiKeystrokeKeySource(const QString &alternativeKey, QObject *parent = nullptr);
    ~AtspiKeystrokeKeySource() override;

    bool install() override;
    void remove() override;
    bool isInstalled() const override { return m_listener != nullptr; }
    bool canInstall() const override;

    // What a key reported by a toolkit means to the gesture: by keysym first, then by the
    // hardware code (evdev + 8). Public for the merging sources and their tests.
    static std::optional<GestureKey> roleOf(quint32 keysym, quint32 hardwareCode,
                                            quint32 alternativeKeysym);
    // The keysym of a name among the keys a gesture can use; 0 when unknown.
    static quint32 keysymForName(const QString &name);

private:
    void handleKey(bool pressed, quint32 keysym, quint32 hardwareCode);

    struct Listener;
    quint32 m_alternativeKeysym = 0;
    std::shared_ptr<Listener> m_listener;
    GestureKeys m_held;
};
