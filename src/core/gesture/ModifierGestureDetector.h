#pragma once

#include <QtGlobal>

#include <chrono>

// Modifier flag bits and key codes of the gesture, as the key monitor reports them.
namespace ModifierKeys {
inline constexpr quint64 kFnFlag = 0x800000;
inline constexpr quint64 kControlFlag = 0x40000;
inline constexpr quint64 kOptionFlag = 0x80000;
inline constexpr quint16 kLeftControlKeyCode = 59;
inline constexpr quint16 kRightControlKeyCode = 62;
inline constexpr quint16 kLeftOptionKeyCode = 58;
inline constexpr quint16 kRightOptionKeyCode = 61;
// The key that reports the fn flag (on PC keyboards, its stand-in).
inline constexpr quint16 kFnKeyCode = 63;
// Modifiers outside the gesture that still make a modifier change.
inline constexpr quint64 kShiftFlag = 0x20000;
inline constexpr quint64 kCommandFlag = 0x100000;
inline constexpr quint16 kLeftShiftKeyCode = 56;
inline constexpr quint16 kRightShiftKeyCode = 60;
inline constexpr quint16 kLeftCommandKeyCode = 55;
inline constexpr quint16 kRightCommandKeyCode = 54;
} // namespace ModifierKeys

// One modifier change: the flags held after it, the key that changed and when.
struct ModifierEvent
{
    quint64 modifierFlags = 0;
    quint16 keyCode = 0;
    std::chrono::system_clock::time_point time;
};

// What the gesture drives. The translation controller implements the first three; the
// typing mode hears about fn.
class GestureActions
{
public:
    virtual ~GestureActions() = default;
    virtual void controlDoublePressed() = 0;
    virtual void controlDoublePressReleased() = 0;
    virtual void altPressedWhenControlIsDoublePressed() = 0;
    virtual void fnKeyPressed() = 0;
    virtual void fnKeyReleased() = 0;
};

// Turns the stream of modifier changes into gesture actions: left Control pressed twice
// within 0.4 s and held, Option while held, fn changes while held. Pure logic, fed one
// event at a time on the main thread.
class ModifierGestureDetector
{
public:
    static constexpr std::chrono::milliseconds kDoublePressWindow{400};

    explicit ModifierGestureDetector(GestureActions &actions);

    void keyboardTapEvent(const ModifierEvent &event);

    bool controlIsDoublePressed() const { return m_controlIsDoublePressed; }
    bool fnIsPressed() const { return m_fnIsPressed; }
    std::chrono::system_clock::time_point lastControlKeyPressedTime() const
    {
        return m_lastControlKeyPressedTime;
    }
    // Set to the launch time at start-up, so a single press soon after launch completes
    // a double press.
    void setLastControlKeyPressedTime(std::chrono::system_clock::time_point time)
    {
        m_lastControlKeyPressedTime = time;
    }

private:
    GestureActions &m_actions;
    bool m_controlIsDoublePressed = false;
    bool m_fnIsPressed = false;
    std::chrono::system_clock::time_point m_lastControlKeyPressedTime;
};
