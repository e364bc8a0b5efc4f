#include "system/SecretServiceStore.h"

#include "common/Log.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>
#include <QEventLoop>

#include <qt6keychain/keychain.h>

namespace {

constexpr char kSecretServiceName[] = "org.freedesktop.secrets";
const QString kKeychainService = QStringLiteral("Tolkaro");

// Runs a keychain job to its end; whether it ended without error.
bool runToEnd(QKeychain::Job &job, const QString &key)
{
    job.setAutoDelete(false);
    // Never the plain-text file QtKeychain would fall back to: that is the settings' job.
    job.setInsecureFallback(false);
    job.setKey(key);
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec();
    return job.error() == QKeychain::NoError;
}

} // namespace

bool SecretServiceStore::isRunning()
{
    if (m_running)
        return *m_running;
    m_running = false;
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    const QString name = QString::fromLatin1(kSecretServiceName);
    bool available = bus.interface()->isServiceRegistered(name);
    if (!available) {
        const QDBusReply<QStringList> activatable =
            bus.interface()->call(QStringLiteral("ListActivatableNames"));
        available = activatable.isValid() && activatable.value().contains(name);
    }
    m_running = available;
    return available;
}

std::optional<QString> SecretServiceStore::readSecret(const QString &key)
{
    if (!isRunning())
        return std::nullopt;
    QKeychain::ReadPasswordJob job(kKeychainService);
    if (!runToEnd(job, key))
        return std::nullopt;
    return job.textData();
}

bool SecretServiceStore::writeSecret(const QString &key, const QString &value)
{
    if (!isRunning())
        return false;
    if (value.trimmed().isEmpty()) {
        QKeychain::DeletePasswordJob job(kKeychainService);
        // Nothing to delete is as good as deleted.
        return runToEnd(job, key) || job.error() == QKeychain::EntryNotFound;
    }
    QKeychain::WritePasswordJob job(kKeychainService);
    job.setTextData(value.trimmed());
    if (runToEnd(job, key))
        return true;
    // The key itself is never logged, only that it could not be stored.
    tolkaro::logLine(QStringLiteral("The Secret Service did not store %1: %2; it is kept in the "
                                    "settings file")
                         .arg(key, job.errorString()));
    return false;
}
