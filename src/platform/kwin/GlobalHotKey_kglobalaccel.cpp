#include "platform/kwin/GlobalHotKey_kglobalaccel.h"

#include "common/Log.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QStringList>

namespace {

constexpr char kService[] = "org.kde.kglobalaccel";
constexpr char kComponent[] = "tolkaro";
constexpr char kAction[] = "typing-mode";
// The service's flags: take these keys now, not the ones it remembers from an earlier run.
constexpr uint kSetPresent = 2;
constexpr uint kNoAutoloading = 4;
constexpr int kCallTimeoutMs = 2000;

QStringList actionId()
{
    return {QString::fromLatin1(kComponent), QString::fromLatin1(kAction),
            QStringLiteral("Tolkaro"), QStringLiteral("Open or close the typing panel")};
}

QDBusMessage serviceCall(const QString &method, const QVariantList &arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(kService), QStringLiteral("/kglobalaccel"),
        QStringLiteral("org.kde.KGlobalAccel"), method);
    call.setArguments(arguments);
    return call;
}

} // namespace

GlobalHotKeyKGlobalAccel::GlobalHotKeyKGlobalAccel(const QDBusConnection &bus, QObject *parent)
    : GlobalHotKey(parent), m_bus(bus)
{
    qDBusRegisterMetaType<QList<int>>();
}

GlobalHotKeyKGlobalAccel::~GlobalHotKeyKGlobalAccel()
{
    unbind();
}

bool GlobalHotKeyKGlobalAccel::isValid() const
{
    return m_bus.isConnected() && m_bus.interface() &&
           m_bus.interface()->isServiceRegistered(QString::fromLatin1(kService));
}

int GlobalHotKeyKGlobalAccel::qtKeyCode(const StoredShortcut &shortcut)
{
    const quint32 sym = shortcut.keySym;
    int key = 0;
    if ((sym >= '0' && sym <= '9') || sym == ' ')
        key = int(sym);
    else if (sym >= 'a' && sym <= 'z')
        key = int(sym - 'a' + 'A');
    else if (sym >= 'A' && sym <= 'Z')
        key = int(sym);
    else if (sym >= 0xffbe && sym <= 0xffe0) // F1 to F35
        key = Qt::Key_F1 + int(sym - 0xffbe);
    else if (sym == 0xff1b)
        key = Qt::Key_Escape;
    else if (sym == 0xff09)
        key = Qt::Key_Tab;
    else if (sym == 0xff0d)
        key = Qt::Key_Return;
    if (key == 0)
        return 0;
    const quint32 allowed = Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier |
                            Qt::MetaModifier;
    return key | int(shortcut.modifiers & allowed);
}

GlobalHotKey::BindResult GlobalHotKeyKGlobalAccel::bind(const StoredShortcut &shortcut)
{
    if (!isValid())
        return BindResult::Unavailable;
    const int keyCode = qtKeyCode(shortcut);
    if (keyCode == 0)
        return BindResult::NoSuchKey;
    m_bus.call(serviceCall(QStringLiteral("doRegister"), {actionId()}), QDBus::Block,
               kCallTimeoutMs);
    const QDBusReply<QList<int>> given = m_bus.call(
        serviceCall(QStringLiteral("setShortcut"),
                    {actionId(), QVariant::fromValue(QList<int>{keyCode}),
                     kSetPresent | kNoAutoloading}),
        QDBus::Block, kCallTimeoutMs);
    if (!given.isValid()) {
        tolkaro::logLine(QStringLiteral("Global shortcut service: %1").arg(given.error().message()));
        return BindResult::Unavailable;
    }
    if (!given.value().contains(keyCode))
        return BindResult::TakenByAnotherProgram;
    if (!m_connected) {
        const QDBusReply<QDBusObjectPath> component = m_bus.call(
            serviceCall(QStringLiteral("getComponent"), {QString::fromLatin1(kComponent)}),
            QDBus::Block, kCallTimeoutMs);
        m_connected = component.isValid() &&
                      m_bus.connect(QString::fromLatin1(kService), component.value().path(),
                                    QStringLiteral("org.kde.kglobalaccel.Component"),
                                    QStringLiteral("globalShortcutPressed"), this,
                                    SLOT(shortcutPressed(QString, QString, qlonglong)));
    }
    m_shortcut = shortcut;
    return BindResult::Bound;
}

void GlobalHotKeyKGlobalAccel::unbind()
{
    if (m_shortcut.keySym == 0)
        return;
    m_shortcut = {};
    // The action stays registered (the settings keep showing it) with no key.
    if (isValid())
        m_bus.call(serviceCall(QStringLiteral("setShortcut"),
                               {actionId(), QVariant::fromValue(QList<int>{}),
                                kSetPresent | kNoAutoloading}),
                   QDBus::Block, kCallTimeoutMs);
}

void GlobalHotKeyKGlobalAccel::shortcutPressed(const QString &component, const QString &action,
                                               qlonglong)
{
    if (m_shortcut.keySym != 0 && component == QLatin1String(kComponent) &&
        action == QLatin1String(kAction))
        emit activated();
}
