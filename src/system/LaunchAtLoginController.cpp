#include "system/LaunchAtLoginController.h"

#include "common/Log.h"
#include "integration/DesktopEntry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

// The name of Tolkaro's entry in the user's list of startup applications.
const QString kDisplayName = QStringLiteral("Tolkaro");
// Entry files are named tolkaro.desktop, then tolkaro-2.desktop... when that one is taken.
const QString kEntryFileStem = QStringLiteral("tolkaro");

QString canonicalExecutable(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isFile() || !info.isExecutable())
        return {};
    return info.canonicalFilePath();
}

// The executable an Exec line starts: a path as written, or a bare name found on $PATH.
QString resolveExec(const QString &exec)
{
    const std::optional<QStringList> arguments = DesktopEntry::splitExec(exec);
    if (!arguments || arguments->isEmpty())
        return {};
    const QString &program = arguments->first();
    if (program.contains(QLatin1Char('/')))
        return QDir::isAbsolutePath(program) ? canonicalExecutable(program) : QString();
    const QString found = QStandardPaths::findExecutable(program);
    return found.isEmpty() ? QString() : canonicalExecutable(found);
}

struct EntryFile
{
    LaunchAtLoginController::LoginItem item;
    bool disabled = false;
};

QList<EntryFile> readEntries(const QString &directory)
{
    QList<EntryFile> entries;
    const QFileInfoList files = QDir(directory).entryInfoList(
        {QStringLiteral("*.desktop")}, QDir::Files | QDir::Readable, QDir::Name);
    for (const QFileInfo &file : files) {
        QFile desktopFile(file.filePath());
        if (!desktopFile.open(QIODevice::ReadOnly))
            continue;
        const QMap<QString, QString> group =
            DesktopEntry::parseDesktopEntryGroup(QString::fromUtf8(desktopFile.readAll()));
        EntryFile entry;
        entry.item.filePath = file.filePath();
        entry.item.displayName = group.value(QStringLiteral("Name"));
        entry.item.resolvedPath = resolveExec(group.value(QStringLiteral("Exec")));
        entry.disabled = DesktopEntry::isDisabled(group);
        entries.append(entry);
    }
    return entries;
}

QString freeEntryPath(const QString &directory)
{
    QString path = directory + QLatin1Char('/') + kEntryFileStem + QLatin1String(".desktop");
    for (int number = 2; QFileInfo::exists(path); ++number)
        path = QStringLiteral("%1/%2-%3.desktop").arg(directory, kEntryFileStem).arg(number);
    return path;
}

bool writeEntry(const QString &path, const QString &executable)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(DesktopEntry::autostartEntryText(kDisplayName, executable).toUtf8());
    return file.commit();
}

QString describe(const std::optional<LaunchAtLoginController::LoginItem> &item)
{
    return item ? item->filePath : QStringLiteral("(null)");
}

} // namespace

LaunchAtLoginController::LaunchAtLoginController(QObject *parent) : QObject(parent)
{
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] {
        watchAutostartDirectory();
        emit launchAtLoginChanged();
    });
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, [this] {
        watchAutostartDirectory();
        emit launchAtLoginChanged();
    });
    watchAutostartDirectory();
}

bool LaunchAtLoginController::launchAtLogin() const
{
    return willLaunchAtLogin(appURL());
}

void LaunchAtLoginController::setLaunchAtLogin(bool enabled)
{
    setLaunchAtLogin(enabled, appURL());
    emit launchAtLoginChanged();
}

bool LaunchAtLoginController::willLaunchAtLogin(const QString &executablePath) const
{
    return findItemWithURL(executablePath).has_value();
}

void LaunchAtLoginController::setLaunchAtLogin(bool enabled, const QString &executablePath)
{
    const std::optional<LoginItem> existing = findItemWithURL(executablePath);
    if (enabled && !existing) {
        const QString directory = autostartDirectory();
        if (!QDir().mkpath(directory))
            return;
        // An entry of ours that the desktop switched off is switched on again in place, so
        // the user's list of startup applications does not grow a second Tolkaro.
        const QString wanted = canonicalExecutable(executablePath);
        QString path;
        for (const EntryFile &entry : readEntries(directory)) {
            if (entry.disabled && !wanted.isEmpty() && entry.item.resolvedPath == wanted) {
                path = entry.item.filePath;
                break;
            }
        }
        writeEntry(path.isEmpty() ? freeEntryPath(directory) : path, executablePath);
        watchAutostartDirectory();
    } else if (!enabled && existing) {
        QFile::remove(existing->filePath);
    }
}

std::optional<LaunchAtLoginController::LoginItem>
LaunchAtLoginController::findItemWithURL(const QString &executablePath) const
{
    if (executablePath.isEmpty())
        return std::nullopt;
    const QString wanted = canonicalExecutable(executablePath);
    if (wanted.isEmpty())
        return std::nullopt;
    for (const LoginItem &item : snapshot()) {
        // Entries whose program is gone do not resolve and are skipped.
        if (!item.resolvedPath.isEmpty() && item.resolvedPath == wanted)
            return item;
    }
    return std::nullopt;
}

std::optional<LaunchAtLoginController::LoginItem>
LaunchAtLoginController::findItemWithDisplayName(const QString &displayName) const
{
    if (displayName.isEmpty())
        return std::nullopt;
    for (const LoginItem &item : snapshot()) {
        if (item.displayName == displayName)
            return item;
    }
    return std::nullopt;
}

void LaunchAtLoginController::removeAllItemsForDisplayName(const QString &displayName)
{
    std::optional<LoginItem> item = findItemWithDisplayName(displayName);
    tolkaro::logLine(QStringLiteral("removing old launch item %1").arg(describe(item)));
    while (item) {
        // An entry that cannot be removed would be found again for ever.
        if (!QFile::remove(item->filePath))
            break;
        item = findItemWithDisplayName(displayName);
        tolkaro::logLine(QStringLiteral("removing old launch item %1").arg(describe(item)));
    }
}

void LaunchAtLoginController::clearBrokenItems()
{
    removeAllItemsForDisplayName(QFileInfo(appURL()).completeBaseName());
}

QString LaunchAtLoginController::appURL()
{
    // Inside an AppImage this executable lives in a mount that is gone after exit.
    const QString appImage = qEnvironmentVariable("APPIMAGE");
    if (!appImage.isEmpty())
        return appImage;
    return QCoreApplication::applicationFilePath();
}

QString LaunchAtLoginController::autostartDirectory()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QLatin1String("/autostart");
}

void LaunchAtLoginController::watchAutostartDirectory()
{
    // The autostart directory may not exist yet: then its parent tells when it appears.
    const QString directory = autostartDirectory();
    QStringList paths;
    if (!QFileInfo(directory).isDir()) {
        paths << QFileInfo(directory).path();
    } else {
        paths << directory;
        for (const QFileInfo &file :
             QDir(directory).entryInfoList({QStringLiteral("*.desktop")}, QDir::Files))
            paths << file.filePath();
    }
    const QStringList watched = m_watcher.files() + m_watcher.directories();
    QStringList stale;
    for (const QString &path : watched) {
        if (!paths.contains(path))
            stale << path;
    }
    if (!stale.isEmpty())
        m_watcher.removePaths(stale);
    QStringList fresh;
    for (const QString &path : paths) {
        if (!watched.contains(path) && QFileInfo::exists(path))
            fresh << path;
    }
    if (!fresh.isEmpty())
        m_watcher.addPaths(fresh);
}

QList<LaunchAtLoginController::LoginItem> LaunchAtLoginController::snapshot() const
{
    QList<LoginItem> items;
    for (const EntryFile &entry : readEntries(autostartDirectory())) {
        // A hidden or switched-off entry starts nothing at login.
        if (!entry.disabled)
            items.append(entry.item);
    }
    return items;
}
