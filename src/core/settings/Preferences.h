#pragma once

#include <QFileDevice>
#include <QSettings>
#include <QString>
#include <QStringList>

#include "settings/SecretStore.h"

#include <memory>
#include <optional>

// Every preference Tolkaro reads or writes, under its exact key, with its type and its
// value when absent. Backed by QSettings (an INI file under $XDG_CONFIG_HOME/Tolkaro/).
// Main thread only. Absence is meaningful for some keys, so those read as std::optional.
// The file may hold service keys and what the user translates into: it is readable and
// writable by the user alone (0600), made so before the first write and healed when found
// otherwise. Reading never creates it.
namespace PreferenceKeys {
inline constexpr char kHasBeenLaunchedBefore[] = "HasBeenLaunchedBefore";
inline constexpr char kHasBeenLaunchedAtLeastOnce[] = "HasBeenLaunchedAtLeastOnce";
inline constexpr char kTotalTranslationsMadeCounter[] = "totalTranslationsMadeCounter";
inline constexpr char kPreviouslyUsedLanguageCode[] = "previouslyUsedLanguageCode";
inline constexpr char kPreviouslyUsedLanguageCode2[] = "previouslyUsedLanguageCode2";
inline constexpr char kTypingModeKeyboardShortcut[] = "TypingModeKeyboardShortcut";
inline constexpr char kMoveToApplicationsFolderAlertSuppress[] =
    "moveToApplicationsFolderAlertSuppress";
// Linux-only keys.
inline constexpr char kTranslationServiceURL[] = "TranslationServiceURL";
inline constexpr char kKeystrokeCaptureApplications[] = "KeystrokeCaptureApplications";
inline constexpr char kFnStandInKey[] = "FnStandInKey";
inline constexpr char kUpdateFeedURL[] = "UpdateFeedURL";
inline constexpr char kUsageReportingEnabled[] = "UsageReportingEnabled";
inline constexpr char kUsageReportingURL[] = "UsageReportingURL";
// The answers to the first update question; absent until it was asked.
inline constexpr char kCheckForUpdatesAutomatically[] = "CheckForUpdatesAutomatically";
inline constexpr char kSendSystemProfileWithUpdateChecks[] = "SendSystemProfileWithUpdateChecks";
// The last note told about the typing-mode shortcut being owned by another program.
inline constexpr char kTypingModeShortcutNoticeTold[] = "TypingModeShortcutNoticeTold";
// The translation services, first asked first, and what each needs.
inline constexpr char kTranslationServices[] = "TranslationServices";
inline constexpr char kDeepLAPIKey[] = "DeepLAPIKey";
inline constexpr char kLibreTranslateURL[] = "LibreTranslateURL";
inline constexpr char kLibreTranslateAPIKey[] = "LibreTranslateAPIKey";
inline constexpr char kApertiumURL[] = "ApertiumURL";
} // namespace PreferenceKeys

// The translation endpoint's scheme, host and port when nothing else is configured.
inline constexpr char kDefaultTranslationServiceURL[] = "https://translate.googleapis.com";
// Overrides "TranslationServiceURL" (tests point it at a loopback server).
inline constexpr char kTranslationUrlEnvironmentVariable[] = "TOLKARO_TRANSLATE_URL";
// The key standing in for fn on PC keyboards, by X keysym name.
inline constexpr char kDefaultFnStandInKey[] = "Super_L";

// A stored typing-mode shortcut: an X key symbol and Qt keyboard modifiers.
struct StoredShortcut
{
    quint32 keySym = 0;
    quint32 modifiers = 0;
    bool operator==(const StoredShortcut &) const = default;
};

class Preferences
{
public:
    // The user's store: organisation and application "Tolkaro", native (INI) format.
    Preferences();
    // A store at an explicit path (tests).
    explicit Preferences(const QString &iniPath);
    ~Preferences();
    Preferences(const Preferences &) = delete;
    Preferences &operator=(const Preferences &) = delete;

    bool hasBeenLaunchedBefore() const;
    void setHasBeenLaunchedBefore(bool value);
    bool hasBeenLaunchedAtLeastOnce() const;
    void setHasBeenLaunchedAtLeastOnce(bool value);

    qint64 totalTranslationsMadeCounter() const;
    void setTotalTranslationsMadeCounter(qint64 value);

    std::optional<QString> previouslyUsedLanguageCode() const;
    void setPreviouslyUsedLanguageCode(const QString &code);
    void setPreviouslyUsedLanguageCode2(const QString &code);

    std::optional<StoredShortcut> typingModeKeyboardShortcut() const;
    void setTypingModeKeyboardShortcut(const StoredShortcut &shortcut);

    bool moveToApplicationsFolderAlertSuppress() const;
    void setMoveToApplicationsFolderAlertSuppress(bool value);

    // The endpoint base: $TOLKARO_TRANSLATE_URL, else "TranslationServiceURL", else the default.
    QString translationServiceURL() const;
    // Window classes (WM_CLASS) of applications whose selection is read by keystrokes.
    QStringList keystrokeCaptureApplications() const;
    QString fnStandInKey() const;
    QString updateFeedURL() const;
    std::optional<bool> checkForUpdatesAutomatically() const;
    void setCheckForUpdatesAutomatically(bool value);
    bool sendSystemProfileWithUpdateChecks() const;
    void setSendSystemProfileWithUpdateChecks(bool value);
    QString typingModeShortcutNoticeTold() const;
    void setTypingModeShortcutNoticeTold(const QString &note);
    bool usageReportingEnabled() const;
    QString usageReportingURL() const;

    // The services in the user's order; empty when never chosen (the default applies).
    QStringList translationServices() const;
    void setTranslationServices(const QStringList &names);
    // Each service's key or address; empty when not set. Setting an empty value removes
    // the key, so that nothing the user did not set is written. The API keys go to the
    // secret store when there is one, else to this file.
    QString deepLAPIKey() const;
    void setDeepLAPIKey(const QString &key);
    QString libreTranslateURL() const;
    void setLibreTranslateURL(const QString &url);
    QString libreTranslateAPIKey() const;
    void setLibreTranslateAPIKey(const QString &key);
    QString apertiumURL() const;
    void setApertiumURL(const QString &url);

    // Writes pending changes to disk.
    void synchronize();

    // Where API keys are kept from now on; null: in the settings file.
    void setSecretStore(std::shared_ptr<SecretStore> store) { m_secrets = std::move(store); }

    // The store itself, for keys without an accessor.
    QSettings &settings();

private:
    static constexpr QFileDevice::Permissions kFilePermissions =
        QFileDevice::ReadOwner | QFileDevice::WriteOwner;

    // Every write goes through here, so the file is private before it holds anything.
    void write(const char *key, const QVariant &value);
    // Makes an existing file 0600; with aboutToWrite, creates a missing one as 0600.
    void keepFilePrivate(bool aboutToWrite);
    void guardWrites();
    void setOrRemove(const char *key, const QString &value);
    QString secret(const char *key) const;
    void setSecret(const char *key, const QString &value);

    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<QObject> m_writeGuard;
    std::shared_ptr<SecretStore> m_secrets;
};
