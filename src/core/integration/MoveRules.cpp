#include "integration/MoveRules.h"

#include "text/StringHelpers.h"

namespace MoveRules {

QStringList applicationsDirectories(const QString &homePath)
{
    QStringList directories;
    if (!homePath.isEmpty()) {
        directories << homePath + QLatin1String("/Applications")
                    << homePath + QLatin1String("/.local/bin");
    }
    directories << QStringLiteral("/opt") << QStringLiteral("/usr/bin")
                << QStringLiteral("/usr/local/bin");
    return directories;
}

QString applicationsDestination(const QString &homePath)
{
    if (homePath.isEmpty())
        return {};
    return homePath + QLatin1String("/Applications");
}

MoveOffer decideMoveOffer(const QString &selfPath, const QStringList &applicationsDirectories,
                          bool suppressed)
{
    if (suppressed)
        return MoveOffer::Suppressed;
    for (const QString &directory : applicationsDirectories) {
        if (selfPath.startsWith(directory))
            return MoveOffer::AlreadyInApplications;
        if (StringHelpers::hasCaseInsensitiveSubstring(selfPath, QStringLiteral("build")))
            return MoveOffer::DevelopmentBuild;
    }
    return MoveOffer::Offer;
}

} // namespace MoveRules
