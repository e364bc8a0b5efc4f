#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class AppDelegate;

// Tolkaro's name and object on the session bus. Owning the name makes this process the
// one instance of the user's session; a second start finds the owner here, tells it and
// leaves. Commands for a running instance (the tray menu, the typing mode) come in here
// too, for desktops where a global shortcut or the tray is out of reach.
namespace ApplicationBus {
inline constexpr char kServiceName[] = "org.tolkaro.Tolkaro";
inline constexpr char kObjectPath[] = "/org/tolkaro/Tolkaro";
inline constexpr char kInterface[] = "org.tolkaro.Tolkaro";
// Debug and test aid, exported only when TOLKARO_TEST_HOOKS=1 in the environment.
inline constexpr char kTestObjectPath[] = "/org/tolkaro/Tolkaro/Test";
inline constexpr char kTestInterface[] = "org.tolkaro.Tolkaro.Test";
inline constexpr char kTestHooksVariable[] = "TOLKARO_TEST_HOOKS";

enum class Claim
{
    Owner,          // this process owns the name now
    AlreadyRunning, // another process owns it and has been told
    NoBus,          // no session bus: run without the single-instance guard
};

// Claims the name; when another instance holds it, calls its AnotherInstanceStarted.
Claim claimSingleInstance(const QStringList &arguments);
// Gives the name back (before this process starts itself again).
void releaseSingleInstance();
} // namespace ApplicationBus

// The object at kObjectPath.
class ApplicationBusObject : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.tolkaro.Tolkaro")
public:
    explicit ApplicationBusObject(AppDelegate &delegate, QObject *parent = nullptr);

    // Exports this object (and, when enabled, the test object) on the session bus.
    bool exportOnSessionBus();

public slots:
    // A second `tolkaro` was started: nothing changes here but a log line.
    Q_SCRIPTABLE void AnotherInstanceStarted(const QStringList &arguments);
    // Opens the status menu at the pointer.
    Q_SCRIPTABLE void ShowMenu();
    // Opens or closes the typing mode, as its shortcut does.
    Q_SCRIPTABLE void ToggleTypingMode();

private:
    AppDelegate &m_delegate;
};

// The object at kTestObjectPath: drives the popover and reads the menus the status item
// really has attached, for desktop tests and debugging.
class ApplicationTestBusObject : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.tolkaro.Tolkaro.Test")
public:
    explicit ApplicationTestBusObject(AppDelegate &delegate, QObject *parent = nullptr);

public slots:
    Q_SCRIPTABLE void DisplayPopOver(const QString &text, int x, int y);
    // Cross-fades the popover's text; gray: as a message or an error.
    Q_SCRIPTABLE void SetPopOverText(const QString &text, bool gray);
    Q_SCRIPTABLE void HidePopOver();
    // The popover at x, y showing text, then the translation of text, as after a gesture
    // that captured it (benchmarks drive many translations without the keyboard).
    Q_SCRIPTABLE void TranslateText(const QString &text, int x, int y);
    // shown, windowVisible, text, color, x, y, width, height (the body), abovePointer.
    Q_SCRIPTABLE QVariantMap PopOverState();
    // The typing panel: visible, active (holding the focus), text, translation.
    Q_SCRIPTABLE QVariantMap TypingPanelState();
    // The attached menu as JSON: [{"title", "checkable", "checked", "separator",
    // "enabled", "submenu": [...]}].
    Q_SCRIPTABLE QString MenuLayout();
    // systemTrayAvailable, visible, hasIcon, and where the icon is: x, y, width, height.
    Q_SCRIPTABLE QVariantMap StatusItemState();
    // Where the item at the path of titles is on screen in the open menu (x, y, width,
    // height; empty when that menu is not open), so a test can point and click at it.
    Q_SCRIPTABLE QVariantList MenuItemGeometry(const QStringList &titles);

private:
    AppDelegate &m_delegate;
};
