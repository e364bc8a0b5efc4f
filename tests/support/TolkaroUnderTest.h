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
#include <QRect>
#include <QSettings>
#include <QTest>

namespace TolkaroUnderTest {

inline QDBusInterface testInterface()
{
    return QDBusInterface(QStringLiteral("org.tolkaro.Tolkaro"),
                          QStringLiteral("/org/tolkaro/Tolkaro/Test"),
                          QStringLiteral("org.tolkaro.Tolkaro.Test"));
}

// A method of the test object; a default T when tolkaro does not answer.
template <typename T, typename... Arguments>
T call(const QString &method, const Arguments &...arguments)
{
    QDBusInterface test = testInterface();
    const QDBusReply<T> reply = test.call(method, arguments...);
    return reply.isValid() ? reply.value() : T();
}

inline QVariantMap popOverState()
{
    return call<QVariantMap>(QStringLiteral("PopOverState"));
}
inline bool popoverShown()
{
    return popOverState().value(QStringLiteral("windowVisible")).toBool();
}
inline QString popoverText()
{
    return popOverState().value(QStringLiteral("text")).toString();
}

// The x, y, width and height of a state (the popover's body, the tray icon) as a rectangle.
inline QRect rectOf(const QVariantMap &state)
{
    return QRect(state.value(QStringLiteral("x")).toInt(), state.value(QStringLiteral("y")).toInt(),
                 state.value(QStringLiteral("width")).toInt(),
                 state.value(QStringLiteral("height")).toInt());
}

// How far the popover's body stands from the pointer, above or below it: negative when it
// covers the pointer or stands beside it. At the pointer is within its arrow's length (48).
inline int popoverGapFromPointer(const QPoint &pointer)
{
    const QVariantMap state = popOverState();
    const QRect body = rectOf(state);
    if (pointer.x() < body.left() || pointer.x() > body.right())
        return -1;
    return state.value(QStringLiteral("abovePointer")).toBool() ? pointer.y() - body.bottom()
                                                                : body.top() - pointer.y();
}

// The attached status menu's items, with their titles, checks and submenus.
inline QJsonArray menuLayout()
{
    return QJsonDocument::fromJson(call<QString>(QStringLiteral("MenuLayout")).toUtf8()).array();
}

// Items of the attached status menu: 2 for the short menu of an untrusted process, more for
// the full one; 0 when tolkaro does not answer.
inline int statusMenuItemCount()
{
    return int(menuLayout().size());
}

// Starts `binary` on the settings in `configHome` with the test object on, as they are.
inline bool launch(QProcess &process, const QString &binary, const QString &configHome,
                   const QString &translateUrl = QString())
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), configHome);
    environment.insert(QStringLiteral("TOLKARO_TEST_HOOKS"), QStringLiteral("1"));
    if (!translateUrl.isEmpty())
        environment.insert(QStringLiteral("TOLKARO_TRANSLATE_URL"), translateUrl);
    process.setProcessEnvironment(environment);
    process.setProgram(binary);
    process.start();
    return process.waitForStarted(15000);
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
    return launch(process, binary, configHome, translateUrl) &&
           QTest::qWaitFor([] { return statusMenuItemCount() > 2; }, 15000);
}

// SIGTERM, as a session end does, then SIGKILL if it lingers. Answers the exit code, -1 for
// a process that had to be killed or crashed.
inline int stop(QProcess &process)
{
    if (process.state() != QProcess::NotRunning) {
        process.terminate();
        if (!process.waitForFinished(10000)) {
            process.kill();
            process.waitForFinished(5000);
            return -1;
        }
    }
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

} // namespace TolkaroUnderTest
