#pragma once

#include "settings/SecretStore.h"

#include <memory>

// API keys in the desktop's Secret Service (GNOME Keyring, KWallet's bridge, KeePassXC),
// through QtKeychain, under the service name "Tolkaro". Each call waits for its answer in
// a local event loop. Main thread.
class SecretServiceStore : public SecretStore
{
public:
    // A store when a Secret Service runs on the session bus (or can be started by it),
    // else null: the keys then stay in the settings file.
    static std::unique_ptr<SecretStore> createIfRunning();

    std::optional<QString> readSecret(const QString &key) override;
    bool writeSecret(const QString &key, const QString &value) override;
};
