#pragma once

#include <QString>

#include <optional>

// Where the desktop keeps secrets (a Secret Service), as the preferences see it: API keys
// go there when one runs, else into the settings file. Calls block until answered.
class SecretStore
{
public:
    virtual ~SecretStore() = default;
    // The secret under key; nothing when none is kept or the store cannot be read.
    virtual std::optional<QString> readSecret(const QString &key) = 0;
    // Whether the store now holds value under key (an empty value removes it).
    virtual bool writeSecret(const QString &key, const QString &value) = 0;
};
