#pragma once

// The real tolkaro executable driven from a desktop test or benchmark: started for a user
// past the welcome alert, with its own settings and the translation endpoint given, and
// read through its test object on the session bus (TOLKARO_TEST_HOOKS=1). Header only:
// users link Qt6::DBus.

#include <QDBusInterface>
#include <QDBusReply>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSettings>
#include <QTest>

namespace TolkaroUnderTest {

inline QDBusInterface testInterface()
{
    return QDBusInterface(QStringLiteral("org.tolkaro.Tolkaro"),
                          QStringLiteral("/org/tolkaro/Tolkaro/Test"),
                          QStringLiteral("org.tolkaro.Tolkaro.Test"));
}

inline QVariantMap popOverState()
{
    QDBusInterface test = testInterface();
    const QDBusReply<QVariantMap> reply = test.call(QStringLiteral("PopOverState"));
    return reply.isValid() ? reply.value() : QVariantMap();
}

// Items of the attached status menu: 2 for the short menu of an untrusted process, more for
// the full one; -1 when tolkaro does not answer.
inline int statusMenuItemCount()
{
    QDBusInterface test = testInterface();
    const QDBusReply<QString> reply = test.call(QStringLiteral("MenuLayout"));
    return reply.isValid() ? QJsonDocument::fromJson(reply.value().toUtf8()).array().size() : -1;
}

// Starts `binary` on the settings in `configHome`, seeded for a user who has seen the welcome
// alert and reads `languageCode`, with nothing reported and no update looked for, translating
// at `translateUrl`. Returns once the full menu is attached: trusted, the key monitor in.
inline bool start(QProcess &process, const QString &binary, const QString &configHome,
                  const QString &translateUrl, const QString &languageCode)
{
    {
        QSettings settings(configHome + QStringLiteral("/Tolkaro/Tolkaro.conf"),
                           QSettings::IniFormat);
        settings.setValue(QStringLiteral("HasBeenLaunchedBefore"), true);
        settings.setValue(QStringLiteral("previouslyUsedLanguageCode"), languageCode);
        settings.setValue(QStringLiteral("UsageReportingEnabled"), false);
        settings.setValue(QStringLiteral("UpdateFeedURL"), translateUrl + QStringLiteral("/feed"));
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome);
    environment.insert(QStringLiteral("TOLKARO_TEST_HOOKS"), QStringLiteral("1"));
    environment.insert(QStringLiteral("TOLKARO_TRANSLATE_URL"), translateUrl);
    process.setProcessEnvironment(environment);
    process.setProgram(binary);
    process.start();
    return process.waitForStarted(15000) &&
           QTest::qWaitFor([] { return statusMenuItemCount() > 2; }, 15000);
}

// SIGTERM, then SIGKILL if it lingers.
inline void stop(QProcess &process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(5000);
    }
}

} // namespace TolkaroUnderTest
