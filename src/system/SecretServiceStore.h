#pragma once

#include "settings/SecretStore.h"

#include <memory>

// API keys in the desktop's Secret Service (GNOME Keyring, KWallet's bridge, KeePassXC),
// through QtKeychain, under the service name "Tolkaro". Each call waits for its answer in
// a local event loop. Main thread. Whether a Secret Service runs is asked on the first key
// read or written, not at start-up: most users set no key, and they pay nothing for it.
// Without one, reads find nothing and writes fail, so the keys stay in the settings file.
class SecretServiceStore : public SecretStore
{
public:
    std::optional<QString> readSecret(const QString &key) override;
    bool writeSecret(const QString &key, const QString &value) override;

private:
    // A Secret Service runs on the session bus, or the bus can start one.
    bool isRunning();

    std::optional<bool> m_running;
};
