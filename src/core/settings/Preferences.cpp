#include "settings/Preferences.h"

#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QtGlobal>

#include <functional>

using namespace PreferenceKeys;

Preferences::Preferences()
    : m_settings(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                             QStringLiteral("Tolkaro"), QStringLiteral("Tolkaro")))
{
    guardWrites();
}

Preferences::Preferences(const QString &iniPath)
    : m_settings(std::make_unique<QSettings>(iniPath, QSettings::IniFormat))
{
    guardWrites();
}

Preferences::~Preferences()
{
    synchronize();
}

QSettings &Preferences::settings()
{
    return *m_settings;
}

namespace {
// Sees QSettings' own request to write its changes before QSettings acts on it.
class WriteRequestFilter : public QObject
{
public:
    explicit WriteRequestFilter(std::function<void()> beforeWrite)
        : m_beforeWrite(std::move(beforeWrite))
    {
    }
    bool eventFilter(QObject *, QEvent *event) override
    {
        if (event->type() == QEvent::UpdateRequest)
            m_beforeWrite();
        return false;
    }

private:
    std::function<void()> m_beforeWrite;
};
} // namespace

void Preferences::guardWrites()
{
    keepFilePrivate(false);
    // Values set straight on settings() reach the disk through this event when an event
    // loop runs; the file is made private just before.
    m_writeGuard = std::make_unique<WriteRequestFilter>([this] { keepFilePrivate(true); });
    m_settings->installEventFilter(m_writeGuard.get());
}

void Preferences::write(const char *key, const QVariant &value)
{
    keepFilePrivate(true);
    m_settings->setValue(QLatin1String(key), value);
}

void Preferences::keepFilePrivate(bool aboutToWrite)
{
    const QString path = m_settings->fileName();
    QFile file(path);
    if (file.exists()) {
        // permissions() adds this user's own bits (ReadUser...) to the owner's.
        const QFileDevice::Permissions userBits =
            QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser;
        if ((file.permissions() & ~userBits) != kFilePermissions)
            file.setPermissions(kFilePermissions);
        return;
    }
    if (!aboutToWrite)
        return;
    // QSettings replaces the file atomically and keeps the permissions of the one it
    // replaces, so an empty private file made now keeps every later write private.
    QDir().mkpath(QFileInfo(path).absolutePath());
    if (file.open(QIODevice::WriteOnly | QIODevice::NewOnly, kFilePermissions))
        file.close();
}

bool Preferences::hasBeenLaunchedBefore() const
{
    return m_settings->value(kHasBeenLaunchedBefore, false).toBool();
}

void Preferences::setHasBeenLaunchedBefore(bool value)
{
    write(kHasBeenLaunchedBefore, value);
}

bool Preferences::hasBeenLaunchedAtLeastOnce() const
{
    return m_settings->value(kHasBeenLaunchedAtLeastOnce, false).toBool();
}

void Preferences::setHasBeenLaunchedAtLeastOnce(bool value)
{
    write(kHasBeenLaunchedAtLeastOnce, value);
}

qint64 Preferences::totalTranslationsMadeCounter() const
{
    return m_settings->value(kTotalTranslationsMadeCounter, 0).toLongLong();
}

void Preferences::setTotalTranslationsMadeCounter(qint64 value)
{
    write(kTotalTranslationsMadeCounter, value);
}

std::optional<QString> Preferences::previouslyUsedLanguageCode() const
{
    if (!m_settings->contains(kPreviouslyUsedLanguageCode))
        return std::nullopt;
    return m_settings->value(kPreviouslyUsedLanguageCode).toString();
}

void Preferences::setPreviouslyUsedLanguageCode(const QString &code)
{
    write(kPreviouslyUsedLanguageCode, code);
}

void Preferences::setPreviouslyUsedLanguageCode2(const QString &code)
{
    write(kPreviouslyUsedLanguageCode2, code);
}

std::optional<StoredShortcut> Preferences::typingModeKeyboardShortcut() const
{
    // Stored as "keysym,modifiers" in decimal so that it reads back exactly as written.
    if (!m_settings->contains(kTypingModeKeyboardShortcut))
        return std::nullopt;
    // QSettings quotes the value when writing it; written by hand without quotes, the
    // comma makes the INI reader hand back a list instead of a string.
    const QVariant stored = m_settings->value(kTypingModeKeyboardShortcut);
    const QString text = stored.typeId() == QMetaType::QStringList
                             ? stored.toStringList().join(QLatin1Char(','))
                             : stored.toString();
    const QStringList parts = text.split(QLatin1Char(','));
    bool keyOk = false;
    bool modifiersOk = false;
    if (parts.size() != 2)
        return std::nullopt;
    StoredShortcut shortcut{parts[0].toUInt(&keyOk), parts[1].toUInt(&modifiersOk)};
    if (!keyOk || !modifiersOk || shortcut.keySym == 0)
        return std::nullopt;
    return shortcut;
}

void Preferences::setTypingModeKeyboardShortcut(const StoredShortcut &shortcut)
{
    write(kTypingModeKeyboardShortcut,
          QStringLiteral("%1,%2").arg(shortcut.keySym).arg(shortcut.modifiers));
}

bool Preferences::moveToApplicationsFolderAlertSuppress() const
{
    return m_settings->value(kMoveToApplicationsFolderAlertSuppress, false).toBool();
}

void Preferences::setMoveToApplicationsFolderAlertSuppress(bool value)
{
    write(kMoveToApplicationsFolderAlertSuppress, value);
}

QString Preferences::translationServiceURL() const
{
    const QString fromEnvironment = qEnvironmentVariable(kTranslationUrlEnvironmentVariable);
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    return m_settings
        ->value(kTranslationServiceURL, QString::fromLatin1(kDefaultTranslationServiceURL))
        .toString();
}

QStringList Preferences::translationServices() const
{
    return m_settings->value(kTranslationServices).toStringList();
}

void Preferences::setTranslationServices(const QStringList &names)
{
    write(kTranslationServices, names);
}

void Preferences::setOrRemove(const char *key, const QString &value)
{
    if (value.trimmed().isEmpty()) {
        m_settings->remove(QLatin1String(key));
        return;
    }
    write(key, value.trimmed());
}

QString Preferences::secret(const char *key) const
{
    if (m_secrets) {
        if (const std::optional<QString> kept = m_secrets->readSecret(QLatin1String(key)))
            return *kept;
    }
    return m_settings->value(QLatin1String(key)).toString();
}

void Preferences::setSecret(const char *key, const QString &value)
{
    if (m_secrets && m_secrets->writeSecret(QLatin1String(key), value)) {
        m_settings->remove(QLatin1String(key));
        return;
    }
    setOrRemove(key, value);
}

QString Preferences::deepLAPIKey() const
{
    return secret(kDeepLAPIKey);
}

void Preferences::setDeepLAPIKey(const QString &key)
{
    setSecret(kDeepLAPIKey, key);
}

QString Preferences::libreTranslateURL() const
{
    return m_settings->value(kLibreTranslateURL).toString();
}

void Preferences::setLibreTranslateURL(const QString &url)
{
    setOrRemove(kLibreTranslateURL, url);
}

QString Preferences::libreTranslateAPIKey() const
{
    return secret(kLibreTranslateAPIKey);
}

void Preferences::setLibreTranslateAPIKey(const QString &key)
{
    setSecret(kLibreTranslateAPIKey, key);
}

QString Preferences::apertiumURL() const
{
    return m_settings->value(kApertiumURL).toString();
}

void Preferences::setApertiumURL(const QString &url)
{
    setOrRemove(kApertiumURL, url);
}

QStringList Preferences::keystrokeCaptureApplications() const
{
    return m_settings->value(kKeystrokeCaptureApplications).toStringList();
}

QString Preferences::fnStandInKey() const
{
    return m_settings->value(kFnStandInKey, QString::fromLatin1(kDefaultFnStandInKey)).toString();
}

QString Preferences::updateFeedURL() const
{
#ifdef TOLKARO_UPDATE_FEED_URL
    const QString builtIn = QStringLiteral(TOLKARO_UPDATE_FEED_URL);
#else
    const QString builtIn;
#endif
    return m_settings->value(kUpdateFeedURL, builtIn).toString();
}

std::optional<bool> Preferences::checkForUpdatesAutomatically() const
{
    if (!m_settings->contains(kCheckForUpdatesAutomatically))
        return std::nullopt;
    return m_settings->value(kCheckForUpdatesAutomatically).toBool();
}

void Preferences::setCheckForUpdatesAutomatically(bool value)
{
    write(kCheckForUpdatesAutomatically, value);
}

bool Preferences::sendSystemProfileWithUpdateChecks() const
{
    return m_settings->value(kSendSystemProfileWithUpdateChecks, false).toBool();
}

void Preferences::setSendSystemProfileWithUpdateChecks(bool value)
{
    write(kSendSystemProfileWithUpdateChecks, value);
}

QString Preferences::typingModeShortcutNoticeTold() const
{
    return m_settings->value(kTypingModeShortcutNoticeTold).toString();
}

void Preferences::setTypingModeShortcutNoticeTold(const QString &note)
{
    if (note.isEmpty())
        m_settings->remove(QLatin1String(kTypingModeShortcutNoticeTold));
    else
        write(kTypingModeShortcutNoticeTold, note);
}

bool Preferences::usageReportingEnabled() const
{
    return m_settings->value(kUsageReportingEnabled, false).toBool();
}

QString Preferences::usageReportingURL() const
{
    return m_settings->value(kUsageReportingURL).toString();
}

void Preferences::synchronize()
{
    m_settings->sync();
    // Without an event loop, a value set straight on settings() before the file existed was
    // just written by QSettings with the default permissions.
    keepFilePrivate(false);
}
