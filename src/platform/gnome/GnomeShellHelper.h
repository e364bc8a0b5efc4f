#pragma once

#include <QObject>
#include <QPoint>
#include <QRect>
#include <QString>

#include <optional>

// Tolkaro's GNOME Shell helper, seen from Tolkaro: a small extension running inside the
// compositor (shell-helper/ beside this file), which alone sees the whole session on
// Wayland. It owns org.tolkaro.ShellHelper on the session bus and answers only the owner of
// Tolkaro's own bus name: the pointer and modifier state, the window under a point, the
// active window and activating a window on the shell's authority, a Control keystroke typed
// through a virtual keyboard, and one shell keybinding. The modifier state arrives as a
// signal, only on change and only while Tolkaro runs.
//
// Every call is a short blocking D-Bus call on the main thread with a deadline of its own (a
// shell that hangs would hang the session anyway). Main thread only.
class GnomeShellHelper : public QObject
{
    Q_OBJECT

public:
    static constexpr char kUuid[] = "tolkaro-helper@tolkaro.org";
    static constexpr char kService[] = "org.tolkaro.ShellHelper";
    // Modifier bits of the shell's masks (Clutter's, the X11 ones).
    enum ModifierBit : quint32
    {
        Shift = 1u << 0,
        Lock = 1u << 1,
        Control = 1u << 2,
        Alt = 1u << 3,
        Super = 1u << 6,
        AltGraph = 1u << 7,
    };

    explicit GnomeShellHelper(QObject *parent = nullptr);
    ~GnomeShellHelper() override = default;

    // The helper answers on the session bus now. Virtual, like pointer(), for tests.
    virtual bool isRunning() const;
    // The running helper is an older copy than this Tolkaro's (a per-user copy left from an
    // earlier version): it lacks calls that Tolkaro makes.
    bool isOutdated() const;
    // Where the helper stands, for the permission dialog.
    enum class State
    {
        Running,
        NotInstalled,
        Disabled,     // installed, switched off
        NeedsNewLogin // installed or enabled during this session: the shell loads it at login
    };
    State state() const;
    // Switches the helper on for this user (gnome-extensions enable); false when refused.
    static bool enable();
    // Copies the helper into the user's extensions folder and switches it on; the message
    // says what happened, for the console.
    static bool installForUser(QString *message);

    struct Pointer
    {
        QPoint position;
        quint32 modifiers = 0;
    };
    virtual std::optional<Pointer> pointer() const;

    struct Window
    {
        qint64 pid = 0;
        quint64 id = 0; // the shell's id, stable while the window lives
        QRect frame;  // the window as the user sees it, without shadows
        QRect buffer; // everything the client draws, shadows included
        QString wmClass;
        bool xwayland = false; // an X11 client: its accessibility speaks screen coordinates
    };
    // The topmost window under a point, never one of `ignoredPid`.
    std::optional<Window> windowAt(const QPoint &point, qint64 ignoredPid) const;
    std::optional<Window> activeWindow() const;
    // Activates the window with the shell's id; false when there is no such window.
    bool activateWindow(quint64 id) const;
    // Activates one of Tolkaro's own X11 windows, by its X id, as soon as the shell has it
    // (it may not yet, right after it was shown). Does not wait for the answer.
    void activateOwnWindow(quint64 xid) const;
    // Control and a letter ("v") through the helper's virtual keyboard.
    bool typeControlKey(QChar letter) const;
    // Binds an accelerator ("<Control><Alt>t") as a shell keybinding; false when the shell
    // refused it (taken by another binding, or not a key).
    bool bindShortcut(const QString &accelerator) const;
    void unbindShortcut(const QString &accelerator) const;

signals:
    void modifiersChanged(quint32 modifiers);
    void shortcutActivated(const QString &accelerator);

private slots:
    void onModifiersChanged(uint modifiers);
    void onShortcutActivated(const QString &accelerator);
};
