#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>

#include <optional>

// Keeps Tolkaro in the user's login session by an XDG Autostart entry: a .desktop file in
// $XDG_CONFIG_HOME/autostart whose Exec starts the program the user runs (the AppImage when
// started from one). An entry "resolves" when its Exec names an existing executable; its
// display name is its Name. The entries on disk are the truth: every question reads them
// afresh, so a fresh controller per question or change is fine. Main thread only.
class LaunchAtLoginController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(
        bool launchAtLogin READ launchAtLogin WRITE setLaunchAtLogin NOTIFY launchAtLoginChanged)

public:
    // One autostart entry as found on disk.
    struct LoginItem
    {
        QString filePath;     // the .desktop file
        QString displayName;  // its Name
        QString resolvedPath; // canonical path of the executable its Exec names; empty if none
    };

    explicit LaunchAtLoginController(QObject *parent = nullptr);

    // Whether an entry starts this program.
    bool launchAtLogin() const;
    void setLaunchAtLogin(bool enabled);

    bool willLaunchAtLogin(const QString &executablePath) const;
    // Adds an entry for the executable when there is none, or removes the first entry that
    // starts it; duplicates of the same executable stay.
    void setLaunchAtLogin(bool enabled, const QString &executablePath);

    std::optional<LoginItem> findItemWithURL(const QString &executablePath) const;
    std::optional<LoginItem> findItemWithDisplayName(const QString &displayName) const;
    void removeAllItemsForDisplayName(const QString &displayName);
    // Removes every entry named after this program's file (without its extension).
    void clearBrokenItems();

    // The program the user runs: $APPIMAGE when started from an AppImage, else this executable.
    static QString appURL();
    // $XDG_CONFIG_HOME/autostart
    static QString autostartDirectory();

signals:
    // The autostart entries changed, here or by another program: re-read launchAtLogin().
    void launchAtLoginChanged();

private:
    void watchAutostartDirectory();
    QList<LoginItem> snapshot() const;

    QFileSystemWatcher m_watcher;
};
