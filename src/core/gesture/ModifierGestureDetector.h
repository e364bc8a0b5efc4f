#pragma once

#include <QFlags>
#include <QtGlobal>

#include <chrono>

// The keys the gesture knows. Key sources report only these; every other key is dropped
// where it arrives. The alternative-language key is a configurable stand-in (left Super by
// default), since PC keyboards have no key of their own for it.
enum class GestureKey : quint8
{
    LeftControl = 0x01,
    RightControl = 0x02,
    LeftAlt = 0x04,
    RightAlt = 0x08,
    AlternativeLanguage = 0x10,
};
Q_DECLARE_FLAGS(GestureKeys, GestureKey)
Q_DECLARE_OPERATORS_FOR_FLAGS(GestureKeys)

// One change of a gesture key: the key that went down or up, the gesture keys held after
// the change, and when it happened (a monotonic clock, so a clock change between two
// presses cannot make or break a double press).
struct GestureKeyEvent
{
    GestureKey key = GestureKey::LeftControl;
    GestureKeys held;
    std::chrono::steady_clock::time_point time;

    bool isPress() const { return held.testFlag(key); }
};

// What the gesture drives, one way: the translation controller implements it and never
// asks the detector anything back.
class GestureActions
{
public:
    virtual ~GestureActions() = default;
    // Left Control pressed twice within the window and held; translate into the alternative
    // language when its key is held.
    virtual void controlDoublePressed(bool alternativeLanguage) = 0;
    // While held, the alternative-language key is (still, or no longer) down: translate
    // again into that language.
    virtual void alternativeLanguageSwitched(bool alternativeLanguage) = 0;
    // Left Alt pressed while held: paste the translation.
    virtual void altPressedWhenControlIsDoublePressed() = 0;
    // Left Control released: the gesture is over.
    virtual void controlDoublePressReleased() = 0;
    // Left Control pressed without completing a double press: a gesture may follow, so
    // whatever its translation needs can be made ready now.
    virtual void controlPressedOnce() {}
};

// Turns the stream of gesture-key changes into gesture actions: left Control pressed twice
// within 0.4 s and held, left Alt while held, the alternative-language key while held.
// Pure logic, fed one event at a time on the main thread.
class ModifierGestureDetector
{
public:
    static constexpr std::chrono::milliseconds kDoublePressWindow{400};

    explicit ModifierGestureDetector(GestureActions &actions);

    void keyboardTapEvent(const GestureKeyEvent &event);

    // Set to the launch time at start-up, so a single press soon after launch completes
    // a double press.
    void setLastControlKeyPressedTime(std::chrono::steady_clock::time_point time)
    {
        m_lastControlKeyPressedTime = time;
    }

private:
    GestureActions &m_actions;
    bool m_controlIsDoublePressed = false;
    bool m_alternativeKeyIsPressed = false;
    std::chrono::steady_clock::time_point m_lastControlKeyPressedTime;
};
