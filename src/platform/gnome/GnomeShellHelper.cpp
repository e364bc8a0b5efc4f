#include "platform/gnome/GnomeShellHelper.h"

#include "common/Log.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

namespace {

constexpr char kPath[] = "/org/tolkaro/ShellHelper";
constexpr char kInterface[] = "org.tolkaro.ShellHelper1";
// The shell answers from its main loop, which also draws the screen: a frame or two.
constexpr int kCallTimeoutMs = 300;

QDBusMessage helperCall(const QString &method, const QVariantList &arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(GnomeShellHelper::kService), QString::fromLatin1(kPath),
        QString::fromLatin1(kInterface), method);
    call.setArguments(arguments);
    return call;
}

QDBusMessage callHelper(const QString &method, const QVariantList &arguments = {})
{
    return QDBusConnection::sessionBus().call(helperCall(method, arguments), QDBus::Block,
                                              kCallTimeoutMs);
}

bool answered(const QDBusMessage &reply)
{
    if (reply.type() == QDBusMessage::ReplyMessage)
        return true;
    tolkaro::logLine(QStringLiteral("Shell helper: %1").arg(reply.errorMessage()));
    return false;
}

std::optional<GnomeShellHelper::Window> windowFrom(const QDBusMessage &reply)
{
    if (!answered(reply) || reply.arguments().isEmpty())
        return std::nullopt;
    const QVariantMap map = qdbus_cast<QVariantMap>(reply.arguments().constFirst());
    if (!map.contains(QStringLiteral("pid")))
        return std::nullopt;
    auto number = [&](const char *key) { return map.value(QLatin1String(key)).toInt(); };
    GnomeShellHelper::Window window;
    window.pid = map.value(QStringLiteral("pid")).toLongLong();
    window.id = map.value(QStringLiteral("id")).toULongLong();
    window.frame = QRect(number("x"), number("y"), number("width"), number("height"));
    window.buffer = QRect(number("bufferX"), number("bufferY"), number("bufferWidth"),
                          number("bufferHeight"));
    window.wmClass = map.value(QStringLiteral("wmClass")).toString();
    window.xwayland = map.value(QStringLiteral("xwayland")).toBool();
    return window;
}

// GNOME Shell's own extension service: what it knows of an extension, and switching it on.
QDBusMessage callShellExtensions(const QString &method, const QString &uuid)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.gnome.Shell"), QStringLiteral("/org/gnome/Shell"),
        QStringLiteral("org.gnome.Shell.Extensions"), method);
    call.setArguments({uuid});
    return QDBusConnection::sessionBus().call(call, QDBus::Block, 2000);
}

QString userExtensionsFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/gnome-shell/extensions/");
}

bool helperFilesExist()
{
    const QStringList roots = QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation);
    for (const QString &root : roots) {
        if (QFileInfo::exists(root + QStringLiteral("/gnome-shell/extensions/") +
                              QLatin1String(GnomeShellHelper::kUuid) +
                              QStringLiteral("/metadata.json")))
            return true;
    }
    return false;
}

} // namespace

GnomeShellHelper::GnomeShellHelper(QObject *parent) : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Signals are sent to Tolkaro's connection alone; matching on the sender keeps others out.
    bus.connect(QString::fromLatin1(kService), QString::fromLatin1(kPath),
                QString::fromLatin1(kInterface), QStringLiteral("ModifiersChanged"), this,
                SLOT(onModifiersChanged(uint)));
    bus.connect(QString::fromLatin1(kService), QString::fromLatin1(kPath),
                QString::fromLatin1(kInterface), QStringLiteral("ShortcutActivated"), this,
                SLOT(onShortcutActivated(QString)));
}

void GnomeShellHelper::onModifiersChanged(uint modifiers)
{
    emit modifiersChanged(modifiers);
}

void GnomeShellHelper::onShortcutActivated(const QString &accelerator)
{
    emit shortcutActivated(accelerator);
}

bool GnomeShellHelper::isRunning() const
{
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    return bus && bus->isServiceRegistered(QString::fromLatin1(kService)).value();
}

GnomeShellHelper::State GnomeShellHelper::state() const
{
    if (isRunning())
        return State::Running;
    const QDBusReply<QVariantMap> info =
        callShellExtensions(QStringLiteral("GetExtensionInfo"), QString::fromLatin1(kUuid));
    // The shell reads its extension folders at login: one it does not know was installed since.
    if (!info.isValid() || info.value().isEmpty())
        return helperFilesExist() ? State::NeedsNewLogin : State::NotInstalled;
    // 1: enabled (yet not running: it failed, or waits for the next login), 2: disabled,
    // 6: initialised, never enabled.
    const int shellState = int(info.value().value(QStringLiteral("state")).toDouble());
    return shellState == 1 ? State::NeedsNewLogin : State::Disabled;
}

bool GnomeShellHelper::enable()
{
    const QDBusReply<bool> enabled =
        callShellExtensions(QStringLiteral("EnableExtension"), QString::fromLatin1(kUuid));
    if (enabled.isValid() && enabled.value())
        return true;
    // The shell does not know it yet (installed during this session): the enable is kept in
    // the settings for the next login.
    return QProcess::execute(QStringLiteral("gnome-extensions"),
                             {QStringLiteral("enable"), QString::fromLatin1(kUuid)}) == 0;
}

bool GnomeShellHelper::installForUser(QString *message)
{
    QStringList sources;
    for (const QString &root :
         QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
        sources << root + QStringLiteral("/gnome-shell/extensions/") + QLatin1String(kUuid);
    // Installed under another prefix (/opt/tolkaro/bin/tolkaro: /opt/tolkaro/share).
    sources << QCoreApplication::applicationDirPath() +
                   QStringLiteral("/../share/gnome-shell/extensions/") + QLatin1String(kUuid);
    const QString target = userExtensionsFolder() + QLatin1String(kUuid);
    QString source;
    for (const QString &candidate : sources) {
        if (QFileInfo::exists(candidate + QStringLiteral("/extension.js")) &&
            QFileInfo(candidate).canonicalFilePath() != QFileInfo(target).canonicalFilePath()) {
            source = candidate;
            break;
        }
    }
    if (source.isEmpty() && !QFileInfo::exists(target + QStringLiteral("/extension.js"))) {
        *message = QStringLiteral("The GNOME Shell helper's files were not found; reinstall Tolkaro.");
        return false;
    }
    if (!source.isEmpty()) {
        QDir().mkpath(target);
        for (const QString &file : {QStringLiteral("metadata.json"), QStringLiteral("extension.js")}) {
            QFile::remove(target + u'/' + file);
            if (!QFile::copy(source + u'/' + file, target + u'/' + file)) {
                *message = QStringLiteral("Could not write %1.").arg(target);
                return false;
            }
        }
    }
    const bool enabled = enable();
    *message = QStringLiteral("The GNOME Shell helper is installed in %1%2")
                   .arg(target, enabled ? QStringLiteral(" and switched on. If Tolkaro does not "
                                                         "see it yet, log out and in again.")
                                        : QStringLiteral("; switch it on with: gnome-extensions "
                                                         "enable %1").arg(QLatin1String(kUuid)));
    return true;
}

std::optional<GnomeShellHelper::Pointer> GnomeShellHelper::pointer() const
{
    const QDBusMessage reply = callHelper(QStringLiteral("GetPointer"));
    if (!answered(reply) || reply.arguments().size() != 3)
        return std::nullopt;
    const QVariantList values = reply.arguments();
    return Pointer{QPoint(values[0].toInt(), values[1].toInt()), values[2].toUInt()};
}

std::optional<GnomeShellHelper::Window> GnomeShellHelper::windowAt(const QPoint &point,
                                                                   qint64 ignoredPid) const
{
    return windowFrom(callHelper(QStringLiteral("WindowAt"),
                                 {point.x(), point.y(), QVariant::fromValue(ignoredPid)}));
}

std::optional<GnomeShellHelper::Window> GnomeShellHelper::activeWindow() const
{
    return windowFrom(callHelper(QStringLiteral("ActiveWindow")));
}

bool GnomeShellHelper::activateWindow(quint64 id) const
{
    const QDBusReply<bool> reply =
        callHelper(QStringLiteral("ActivateWindow"), {QVariant::fromValue(qulonglong(id))});
    return reply.isValid() && reply.value();
}

void GnomeShellHelper::activateOwnWindow(quint64 xid) const
{
    // The helper answers once the window has reached the shell, or after a second; the
    // window reaches it only after our event loop has flushed the map, so no waiting here.
    auto *watcher = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(
            helperCall(QStringLiteral("ActivateOwnWindow"), {QVariant::fromValue(qulonglong(xid))}),
            3000),
        const_cast<GnomeShellHelper *>(this));
    connect(watcher, &QDBusPendingCallWatcher::finished, watcher, [](QDBusPendingCallWatcher *call) {
        const QDBusPendingReply<bool> reply = *call;
        if (reply.isError() || !reply.value())
            tolkaro::logLine(QStringLiteral("Shell helper: Tolkaro's window was not activated %1")
                                 .arg(reply.error().message()));
        call->deleteLater();
    });
}

bool GnomeShellHelper::typeControlKey(QChar letter) const
{
    const QDBusReply<bool> reply =
        callHelper(QStringLiteral("TypeControlKey"), {QString(letter.toLower())});
    return reply.isValid() && reply.value();
}

bool GnomeShellHelper::bindShortcut(const QString &accelerator) const
{
    const QDBusReply<bool> reply = callHelper(QStringLiteral("BindShortcut"), {accelerator});
    return reply.isValid() && reply.value();
}

void GnomeShellHelper::unbindShortcut(const QString &accelerator) const
{
    callHelper(QStringLiteral("UnbindShortcut"), {accelerator});
}
