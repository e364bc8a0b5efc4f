#include "gesture/ModifierGestureDetector.h"

#include "common/Log.h"

namespace {
constexpr GestureKeys kControlKeys = GestureKey::LeftControl | GestureKey::RightControl;
constexpr GestureKeys kAltKeys = GestureKey::LeftAlt | GestureKey::RightAlt;
} // namespace

ModifierGestureDetector::ModifierGestureDetector(GestureActions &actions) : m_actions(actions) {}

// Both stages see every event, the alternative-language key first: a Control or Alt change
// made while that key is held translates again before stage B acts on it, and that
// repetition is intended.
void ModifierGestureDetector::keyboardTapEvent(const GestureKeyEvent &event)
{
    // Stage A: the alternative-language key. Its state is updated before any action runs.
    if (event.held.testFlag(GestureKey::AlternativeLanguage)) {
        tolkaro::logLine(QStringLiteral("fn is pressed"));
        m_alternativeKeyIsPressed = true;
        if (m_controlIsDoublePressed) {
            tolkaro::logLine(QStringLiteral("Control was already double pressed ;)"));
            m_actions.alternativeLanguageSwitched(true);
        }
    } else {
        if (m_alternativeKeyIsPressed && m_controlIsDoublePressed) {
            tolkaro::logLine(QStringLiteral(
                "fn was just released, and Control is already double pressed! Translating "
                "again using the non-alternative language!"));
            m_alternativeKeyIsPressed = false;
            m_actions.alternativeLanguageSwitched(false);
        }
        m_alternativeKeyIsPressed = false;
    }

    // Stage B: Control and Alt. Only the left keys take part; a change of the left Control
    // key while the right one is down counts as a press.
    if (event.held & kControlKeys) {
        if (event.key == GestureKey::LeftControl) {
            // While held, the timestamp stays on the press that completed the gesture, so
            // a quick press right after the release starts the next one.
            if (m_controlIsDoublePressed)
                return;
            const auto interval = event.time - m_lastControlKeyPressedTime;
            m_lastControlKeyPressedTime = event.time;
            if (interval <= kDoublePressWindow) {
                m_controlIsDoublePressed = true;
                m_actions.controlDoublePressed(m_alternativeKeyIsPressed);
            } else {
                m_actions.controlPressedOnce();
            }
        } else if ((event.held & kAltKeys) && event.key == GestureKey::LeftAlt &&
                   m_controlIsDoublePressed) {
            m_actions.altPressedWhenControlIsDoublePressed();
        }
    } else if (event.key == GestureKey::LeftControl && m_controlIsDoublePressed) {
        m_controlIsDoublePressed = false;
        m_actions.controlDoublePressReleased();
    }
}
