#include "settings/Preferences.h"

#include <QFile>
#include <QtGlobal>

using namespace PreferenceKeys;

Preferences::Preferences()
    : m_settings(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope,
                                             QStringLiteral("Tolkaro"), QStringLiteral("Tolkaro")))
{
}

Preferences::Preferences(const QString &iniPath)
    : m_settings(std::make_unique<QSettings>(iniPath, QSettings::IniFormat))
{
}

bool Preferences::hasBeenLaunchedBefore() const
{
    return m_settings->value(kHasBeenLaunchedBefore, false).toBool();
}

void Preferences::setHasBeenLaunchedBefore(bool value)
{
    m_settings->setValue(kHasBeenLaunchedBefore, value);
}

bool Preferences::hasBeenLaunchedAtLeastOnce() const
{
    return m_settings->value(kHasBeenLaunchedAtLeastOnce, false).toBool();
}

void Preferences::setHasBeenLaunchedAtLeastOnce(bool value)
{
    m_settings->setValue(kHasBeenLaunchedAtLeastOnce, value);
}

qint64 Preferences::totalTranslationsMadeCounter() const
{
    return m_settings->value(kTotalTranslationsMadeCounter, 0).toLongLong();
}

void Preferences::setTotalTranslationsMadeCounter(qint64 value)
{
    m_settings->setValue(kTotalTranslationsMadeCounter, value);
}

std::optional<QString> Preferences::previouslyUsedLanguageCode() const
{
    if (!m_settings->contains(kPreviouslyUsedLanguageCode))
        return std::nullopt;
    return m_settings->value(kPreviouslyUsedLanguageCode).toString();
}

void Preferences::setPreviouslyUsedLanguageCode(const QString &code)
{
    m_settings->setValue(kPreviouslyUsedLanguageCode, code);
}

void Preferences::setPreviouslyUsedLanguageCode2(const QString &code)
{
    m_settings->setValue(kPreviouslyUsedLanguageCode2, code);
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
    m_settings->setValue(kTypingModeKeyboardShortcut,
                         QStringLiteral("%1,%2").arg(shortcut.keySym).arg(shortcut.modifiers));
}

bool Preferences::moveToApplicationsFolderAlertSuppress() const
{
    return m_settings->value(kMoveToApplicationsFolderAlertSuppress, false).toBool();
}

void Preferences::setMoveToApplicationsFolderAlertSuppress(bool value)
{
    m_settings->setValue(kMoveToApplicationsFolderAlertSuppress, value);
}

QString Preferences::translationServiceURL() const
{
    const QString fromEnvironment = qEnvironmentVariable(kTranslationUrlEnvironmentVariable);
    if (!fromEnvironment.isEmpty())
        return fromEnvironment;
    return m_settings->value(kTranslationServiceURL, QString::fromLatin1(kDefaultTranslationServiceURL))
        .toString();
}

QStringList Preferences::translationServices() const
{
    return m_settings->value(kTranslationServices).toStringList();
}

void Preferences::setTranslationServices(const QStringList &names)
{
    m_settings->setValue(kTranslationServices, names);
}

void Preferences::setOrRemove(const char *key, const QString &value)
{
    if (value.trimmed().isEmpty()) {
        m_settings->remove(QLatin1String(key));
        return;
    }
    m_settings->setValue(QLatin1String(key), value.trimmed());
    // API keys are kept here: the file is the user's alone.
    m_settings->sync();
    QFile::setPermissions(m_settings->fileName(), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
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
}
