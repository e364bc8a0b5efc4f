#include "gesture/ModifierGestureDetector.h"

#include "common/Log.h"

using namespace ModifierKeys;

ModifierGestureDetector::ModifierGestureDetector(GestureActions &actions) : m_actions(actions) {}

// Both stages see every event, fn first: a Control or Option change made while fn is
// held re-translates before stage B acts on it, and that repetition is intended.
void ModifierGestureDetector::keyboardTapEvent(const ModifierEvent &event)
{
    // Stage A: fn. The flag is updated before any action runs, so a translation started
    // from here already picks the right language.
    if (event.modifierFlags & kFnFlag) {
        tolkaro::logLine(QStringLiteral("fn is pressed"));
        m_fnIsPressed = true;
        m_actions.fnKeyPressed();
        if (m_controlIsDoublePressed) {
            tolkaro::logLine(QStringLiteral("Control was already double pressed ;)"));
            m_actions.controlDoublePressed();
        }
    } else {
        if (m_fnIsPressed) {
            m_actions.fnKeyReleased();
            if (m_controlIsDoublePressed) {
                tolkaro::logLine(QStringLiteral(
                    "fn was just released, and Control is already double pressed! Translating "
                    "again using the non-alternative language!"));
                m_fnIsPressed = false;
                m_actions.controlDoublePressed();
            }
        }
        m_fnIsPressed = false;
    }

    // Stage B: Control and Option. Only the left keys take part.
    if (event.modifierFlags & kControlFlag) {
        if (event.keyCode == kLeftControlKeyCode) {
            // While held, the timestamp stays on the press that completed the gesture, so
            // a quick press right after the release starts the next one.
            if (m_controlIsDoublePressed)
                return;
            // Signed wall-clock interval: a clock set backwards makes it negative, which
            // still counts as a double press.
            const auto interval = event.time - m_lastControlKeyPressedTime;
            m_lastControlKeyPressedTime = event.time;
            if (interval <= kDoublePressWindow) {
                m_controlIsDoublePressed = true;
                m_actions.controlDoublePressed();
            }
        } else if ((event.modifierFlags & kOptionFlag) && event.keyCode == kLeftOptionKeyCode &&
                   m_controlIsDoublePressed) {
            m_actions.altPressedWhenControlIsDoublePressed();
        }
    } else if (event.keyCode == kLeftControlKeyCode && m_controlIsDoublePressed) {
        m_controlIsDoublePressed = false;
        m_actions.controlDoublePressReleased();
    }
}
