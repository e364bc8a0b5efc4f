#include "platform/kwin/KWinScript.h"

#include "common/Log.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>
#include <QEventLoop>
#include <QTimer>
#include <QUuid>

#include <algorithm>

namespace {

constexpr char kKWinService[] = "org.kde.KWin";
constexpr char kScriptingPath[] = "/Scripting";
constexpr char kScriptingInterface[] = "org.kde.kwin.Scripting";
constexpr char kObjectPath[] = "/org/tolkaro/KWinScript";
constexpr char kInterface[] = "org.tolkaro.KWinScript";
// The name KWin knows the script by: loading it again first needs it unloaded.
constexpr char kPluginName[] = "tolkaro";
constexpr char kActivationName[] = "tolkaro-activate";
constexpr int kCallTimeoutMs = 2000;
constexpr int kFirstReportWaitMs = 1000;

QDBusMessage scriptingCall(const QString &method, const QVariantList &arguments)
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(QString::fromLatin1(kKWinService),
                                       QString::fromLatin1(kScriptingPath),
                                       QString::fromLatin1(kScriptingInterface), method);
    call.setArguments(arguments);
    return call;
}

} // namespace

KWinScript::KWinScript(const QDBusConnection &bus, QObject *parent) : QObject(parent), m_bus(bus)
{
    Q_INIT_RESOURCE(kwin);
    // The script must not outlive the bus name it calls.
    if (QCoreApplication::instance())
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this,
                &KWinScript::unload);
}

KWinScript::~KWinScript()
{
    unload();
}

bool KWinScript::kwinIsRunning() const
{
    return m_bus.isConnected() && m_bus.interface() &&
           m_bus.interface()->isServiceRegistered(QString::fromLatin1(kKWinService));
}

QString KWinScript::scriptSource(const QString &service)
{
    QFile resource(QStringLiteral(":/tolkaro/kwin/tolkaro-kwin.js"));
    if (!resource.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(resource.readAll())
        .replace(QLatin1String("@SERVICE@"), service)
        .replace(QLatin1String("@PATH@"), QLatin1String(kObjectPath))
        .replace(QLatin1String("@INTERFACE@"), QLatin1String(kInterface));
}

bool KWinScript::load()
{
    if (m_loaded)
        return true;
    if (!kwinIsRunning())
        return false;
    m_kwinOwner = m_bus.interface()->serviceOwner(QString::fromLatin1(kKWinService));
    if (!m_bus.registerObject(QString::fromLatin1(kObjectPath), this,
                              QDBusConnection::ExportScriptableSlots)) {
        tolkaro::logLine(QStringLiteral("KWin script: cannot export its object on the bus"));
        return false;
    }

    const QString directory =
        QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    m_scriptPath = QDir(directory).filePath(QStringLiteral("tolkaro-kwin.js"));
    m_activationPath = QDir(directory).filePath(QStringLiteral("tolkaro-kwin-activate.js"));
    if (!loadAndRun(QString::fromLatin1(kPluginName), m_scriptPath,
                    scriptSource(m_bus.baseService()))) {
        unload();
        return false;
    }
    m_loaded = true;
    awaitFirstReports();
    return true;
}

bool KWinScript::loadAndRun(const QString &name, const QString &path, const QString &source)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(source.toUtf8()) < 0 || !file.commit()) {
        tolkaro::logLine(QStringLiteral("KWin script: cannot write %1").arg(path));
        return false;
    }
    // A copy of the same name (left by an earlier run, or the last activation) goes first.
    m_bus.call(scriptingCall(QStringLiteral("unloadScript"), {name}), QDBus::Block,
               kCallTimeoutMs);
    const QDBusReply<int> id = m_bus.call(scriptingCall(QStringLiteral("loadScript"), {path, name}),
                                          QDBus::Block, kCallTimeoutMs);
    if (!id.isValid() || id.value() < 0) {
        tolkaro::logLine(QStringLiteral("KWin script: KWin did not load %1 (%2)")
                             .arg(name, id.isValid() ? QString::number(id.value())
                                                     : id.error().message()));
        return false;
    }
    // KWin 5.27 answers on /N; Plasma 6 on /Scripting/ScriptN.
    const QString interface = QStringLiteral("org.kde.kwin.Script");
    const QString paths[] = {QStringLiteral("/%1").arg(id.value()),
                             QStringLiteral("/Scripting/Script%1").arg(id.value())};
    for (const QString &objectPath : paths) {
        const QDBusMessage reply = m_bus.call(
            QDBusMessage::createMethodCall(QString::fromLatin1(kKWinService), objectPath,
                                           interface, QStringLiteral("run")),
            QDBus::Block, kCallTimeoutMs);
        if (reply.type() == QDBusMessage::ReplyMessage)
            return true;
    }
    tolkaro::logLine(QStringLiteral("KWin script: KWin loaded %1 but did not run it").arg(name));
    m_bus.call(scriptingCall(QStringLiteral("unloadScript"), {name}), QDBus::Block,
               kCallTimeoutMs);
    return false;
}

QString KWinScript::activationSource(const QString &id, quint64 x11Window)
{
    QFile resource(QStringLiteral(":/tolkaro/kwin/tolkaro-kwin-activate.js"));
    if (!resource.open(QIODevice::ReadOnly))
        return {};
    // KWin's ids are UUIDs: nothing in them needs quoting, and anything else is refused.
    const QString safeId = QUuid::fromString(id).isNull() ? QString() : id;
    return QString::fromUtf8(resource.readAll())
        .replace(QLatin1String("@WINDOW@"), safeId)
        .replace(QLatin1String("@X11WINDOW@"), QString::number(x11Window));
}

bool KWinScript::activate(const QString &id, quint64 x11Window)
{
    if (!m_loaded)
        return false;
    const QString source = activationSource(id, x11Window);
    if (source.isEmpty() || (QUuid::fromString(id).isNull() && x11Window == 0))
        return false;
    // The run is asynchronous: the script stays loaded until the next activation or the
    // unload, so that it may still find a window being mapped.
    return loadAndRun(QString::fromLatin1(kActivationName), m_activationPath, source);
}

std::optional<KWinScript::Window> KWinScript::activeWindow() const
{
    for (const Window &window : m_windows) {
        if (window.active)
            return window;
    }
    return std::nullopt;
}

void KWinScript::awaitFirstReports()
{
    // The script reports at once; a capture right after start-up needs its answer.
    if (!QCoreApplication::instance())
        return;
    QEventLoop loop;
    QTimer::singleShot(kFirstReportWaitMs, &loop, &QEventLoop::quit);
    m_firstReports = [&loop] { loop.quit(); };
    if (!m_pointer || !m_windowsReported)
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    m_firstReports = nullptr;
}

void KWinScript::unload()
{
    if (m_scriptPath.isEmpty())
        return;
    for (const char *name : {kPluginName, kActivationName}) {
        if (m_bus.isConnected())
            m_bus.call(scriptingCall(QStringLiteral("unloadScript"), {QString::fromLatin1(name)}),
                       QDBus::Block, kCallTimeoutMs);
    }
    m_bus.unregisterObject(QString::fromLatin1(kObjectPath));
    QFile::remove(m_scriptPath);
    QFile::remove(m_activationPath);
    m_scriptPath.clear();
    m_loaded = false;
    m_pointer.reset();
    m_windows.clear();
    m_windowsReported = false;
}

bool KWinScript::fromKWin() const
{
    return calledFromDBus() && !m_kwinOwner.isEmpty() && message().service() == m_kwinOwner;
}

void KWinScript::pointer(const QString &json)
{
    if (!fromKWin())
        return;
    const QJsonArray at = QJsonDocument::fromJson(json.toUtf8()).array();
    if (at.size() == 2 && at[0].isDouble() && at[1].isDouble())
        m_pointer = QPoint(qRound(at[0].toDouble()), qRound(at[1].toDouble()));
    if (m_firstReports && m_windowsReported)
        m_firstReports();
}

void KWinScript::windows(const QString &json)
{
    if (!fromKWin())
        return;
    if (std::optional<QList<Window>> windows = parseWindows(json)) {
        m_windows = std::move(*windows);
        m_windowsReported = true;
        for (const Window &window : std::as_const(m_windows)) {
            if (window.active)
                m_othersActive = window.pid == QCoreApplication::applicationPid()
                                     ? m_othersActive
                                     : std::optional<Window>(window);
        }
    }
    if (m_firstReports && m_pointer)
        m_firstReports();
}

std::optional<QList<KWinScript::Window>> KWinScript::parseWindows(const QString &json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    QList<Window> windows;
    for (const QJsonValue &value : document.array()) {
        const QJsonObject object = value.toObject();
        const QRect frame(qRound(object[u"x"].toDouble()), qRound(object[u"y"].toDouble()),
                          qRound(object[u"width"].toDouble()),
                          qRound(object[u"height"].toDouble()));
        if (frame.isEmpty())
            continue;
        const QPoint surface(qRound(object[u"bufferX"].toDouble(frame.x())),
                             qRound(object[u"bufferY"].toDouble(frame.y())));
        windows.append({qint64(object[u"pid"].toDouble()), object[u"id"].toString(), frame, surface,
                         object[u"stacking"].toInt(), object[u"active"].toBool(),
                         object[u"x11"].toBool(), object[u"resourceClass"].toString()});
    }
    return windows;
}

std::optional<KWinScript::Window> KWinScript::topmostAt(const QList<Window> &windows,
                                                        const QPoint &point, qint64 skippedPid)
{
    std::optional<Window> top;
    for (const Window &window : windows) {
        if (window.pid == skippedPid || !window.frame.contains(point))
            continue;
        if (!top || window.stacking > top->stacking)
            top = window;
    }
    return top;
}
