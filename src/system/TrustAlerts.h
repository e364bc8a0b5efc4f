#pragma once

#include <QString>

// The texts of the trust monitor's alerts.
namespace TrustTexts {
inline constexpr char kPermissionMessage[] =
    "Tolkaro would like to listen to Control and Option key presses";
inline constexpr char kPermissionInformative[] =
    "For Tolkaro to operate correctly it has to be able to access text under the mouse cursor "
    "in other applications and listen to Control and Option key presses, so it knows when to "
    "popup a translation message for you. To do so, you need to allow Tolkaro to become an "
    "Accessibility application.\n\n"
    "This can be done by switching on assistive technologies in your desktop's "
    "Settings->Accessibility, or Tolkaro will switch them on for you if you choose \"Yes, let's "
    "do it\". Applications that are already running have to be restarted before Tolkaro can "
    "read their text.\n\n"
    "Tolkaro does not listen to any buttons other than Control and Option and does not read any "
    "other text apart from what you want to have translated.";
inline constexpr char kPermissionAgree[] = "Yes, let's do it";
inline constexpr char kPermissionDecline[] = "No, thanks";

inline constexpr char kRefusalMessage[] = "You cannot use Tolkaro 😞";
inline constexpr char kRefusalInformative[] =
    "Tolkaro cannot function without access to Accessibility features";
inline constexpr char kRefusalButton[] = "Exit";

inline constexpr char kSetupMessage[] = "Tolkaro needs its desktop helper";
inline constexpr char kSetupAgree[] = "Switch it on";
inline constexpr char kSetupDecline[] = "Not now";

inline constexpr char kMonitorFailureMessage[] =
    "Tolkaro couldn't register Control and Option shortcuts";
inline constexpr char kMonitorFailureInformative[] =
    "To operate, Tolkaro needs to listen to Control and Option buttons keypresses. Please check "
    "whether you have an antivirus on that blocks Tolkaro.";
inline constexpr char kMonitorFailureButton[] = "Quit";
} // namespace TrustTexts

// The modal alerts of the trust monitor, behind an interface so that tests can answer them.
class TrustAlerts
{
public:
    virtual ~TrustAlerts() = default;
    // Brings Tolkaro to the front and asks for the accessibility permission; true when the
    // user chose the default button.
    virtual bool askForPermission() = 0;
    // The session needs a helper set up first (`instructions` say what and how); true when
    // the user chose to have Tolkaro do it.
    virtual bool askForSetup(const QString &) { return false; }
    // "You cannot use Tolkaro", after the user declined.
    virtual void showRefusalAlert() = 0;
    // The key monitor could not be installed although Tolkaro is trusted.
    virtual void showMonitorFailureAlert() = 0;
};

// The alerts as application-modal message boxes, kept above other windows: Tolkaro has no
// main window that could bring them forward.
class MessageBoxTrustAlerts : public TrustAlerts
{
public:
    bool askForPermission() override;
    bool askForSetup(const QString &instructions) override;
    void showRefusalAlert() override;
    void showMonitorFailureAlert() override;
};
