#include "CommandLine.h"

#include "platform/gnome/GnomeShellHelper.h"

#include "ApplicationBus.h"

#include "common/Log.h"
#include "languages/LanguageTable.h"
#include "settings/Preferences.h"
#include "system/SecretServiceStore.h"
#include "translation/TranslationChain.h"
#include "translation/TranslationServices.h"

#include <memory>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>

#include <cstdio>

namespace {

// Options that belong to Qt's GUI application object (it takes them out of argv itself).
// Known here only so that "tolkaro -platform xcb" still starts the tray application.
struct GuiOption
{
    const char *name;
    bool takesValue;
};
constexpr GuiOption kGuiApplicationOptions[] = {
    {"platform", true},        {"platformpluginpath", true},
    {"platformtheme", true},   {"plugin", true},
    {"qwindowgeometry", true}, {"qwindowicon", true},
    {"qwindowtitle", true},    {"session", true},
    {"display", true},         {"geometry", true},
    {"style", true},           {"stylesheet", true},
    {"reverse", false},        {"widgetcount", false},
    {"sync", false},
};

void printLine(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fprintf(stream, "%s\n", bytes.constData());
    std::fflush(stream);
}

} // namespace

CommandLine::CommandLine(const QStringList &arguments)
    : m_translateOption(QStringLiteral("translate"),
                        QStringLiteral("Translate <text>, print the translation and exit."),
                        QStringLiteral("text")),
      m_toOption(QStringLiteral("to"),
                 QStringLiteral("Destination language code for --translate (for example de, "
                                "zh-CN). Default: the language Tolkaro currently translates into."),
                 QStringLiteral("code")),
      m_quietOption({QStringLiteral("q"), QStringLiteral("quiet")},
                    QStringLiteral("With --translate: no log lines on stderr, only the error.")),
      m_verboseOption(QStringLiteral("verbose"),
                      QStringLiteral("Log the captured texts, their translations and the "
                                     "server's answers (also TOLKARO_DEBUG=1). Otherwise log "
                                     "lines name only their length.")),
      m_serviceOption(QStringLiteral("service"),
                      QStringLiteral("With --translate: ask only this service (a name as "
                                     "--list-services prints it). Default: the services in the "
                                     "order chosen, each asked when the one before refuses."),
                      QStringLiteral("name")),
      m_listServicesOption(QStringLiteral("list-services"),
                           QStringLiteral("List the translation services, first asked first, "
                                          "and whether each is configured.")),
      m_typingModeOption(QStringLiteral("typing-mode"),
                         QStringLiteral("Open or close the typing panel of the running Tolkaro.")),
      m_installGnomeHelperOption(
          QStringLiteral("install-gnome-helper"),
          QStringLiteral("Install Tolkaro's GNOME Shell helper for this user and switch it on "
                         "(GNOME on Wayland needs it; it loads at the next login).")),
      m_helpOption({QStringLiteral("h"), QStringLiteral("help")},
                   QStringLiteral("Show this help and exit.")),
      m_versionOption({QStringLiteral("v"), QStringLiteral("version")},
                      QStringLiteral("Show the version and exit."))
{
    m_parser.setApplicationDescription(
        QStringLiteral("Translates the text under the pointer. Without options, Tolkaro starts "
                       "in the system tray."));
    // "-platform xcb" is one option, not the letters p, l, a, ...
    m_parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    m_parser.addOptions({m_translateOption, m_toOption, m_quietOption, m_verboseOption,
                         m_serviceOption, m_listServicesOption, m_typingModeOption,
                         m_installGnomeHelperOption, m_helpOption, m_versionOption});
    for (const GuiOption &guiOption : kGuiApplicationOptions) {
        QCommandLineOption option(QString::fromLatin1(guiOption.name));
        if (guiOption.takesValue)
            option.setValueName(QStringLiteral("value"));
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        m_parser.addOption(option);
    }

    if (!m_parser.parse(arguments)) {
        m_action = Action::Error;
        m_errorText = m_parser.errorText();
    } else if (!m_parser.positionalArguments().isEmpty()) {
        m_action = Action::Error;
        m_errorText = QStringLiteral("Unexpected argument '%1'.")
                          .arg(m_parser.positionalArguments().constFirst());
    } else if (m_parser.isSet(m_helpOption)) {
        m_action = Action::Help;
    } else if (m_parser.isSet(m_versionOption)) {
        m_action = Action::Version;
    } else if (m_parser.isSet(m_installGnomeHelperOption)) {
        m_action = Action::InstallGnomeHelper;
    } else if (m_parser.isSet(m_translateOption) && m_parser.isSet(m_typingModeOption)) {
        m_action = Action::Error;
        m_errorText = QStringLiteral("--translate and --typing-mode cannot be combined.");
    } else if (m_parser.isSet(m_translateOption)) {
        m_action = Action::Translate;
        const QString service = m_parser.value(m_serviceOption);
        if (m_parser.isSet(m_serviceOption) && !TranslationServices::names().contains(service)) {
            m_action = Action::Error;
            m_errorText = QStringLiteral("Unknown service '%1'; the services are: %2.")
                              .arg(service, TranslationServices::names().join(QStringLiteral(", ")));
        }
    } else if (m_parser.isSet(m_listServicesOption)) {
        m_action = Action::ListServices;
    } else if (m_parser.isSet(m_typingModeOption)) {
        m_action = Action::TypingMode;
    } else if (m_parser.isSet(m_toOption) || m_parser.isSet(m_quietOption) ||
               m_parser.isSet(m_serviceOption)) {
        m_action = Action::Error;
        m_errorText = QStringLiteral("--to, --quiet and --service only go with --translate.");
    } else {
        m_action = Action::RunTray;
    }
}

bool CommandLine::verbose() const
{
    return m_action != Action::Error && m_parser.isSet(m_verboseOption);
}

int CommandLine::run(QCoreApplication &application)
{
    switch (m_action) {
    case Action::Help:
        std::fputs(qPrintable(m_parser.helpText()), stdout);
        std::fflush(stdout);
        return 0;
    case Action::Version:
        printLine(stdout, QStringLiteral("%1 %2").arg(QCoreApplication::applicationName(),
                                                      QCoreApplication::applicationVersion()));
        return 0;
    case Action::Error:
        printLine(stderr, QStringLiteral("tolkaro: %1").arg(m_errorText));
        printLine(stderr, QStringLiteral("Try 'tolkaro --help' for more information."));
        return 1;
    case Action::TypingMode:
        return toggleTypingModeOfRunningInstance();
    case Action::Translate:
        return translate(application);
    case Action::ListServices:
        return listServices();
    case Action::InstallGnomeHelper: {
        QString message;
        const bool installed = GnomeShellHelper::installForUser(&message);
        printLine(installed ? stdout : stderr, message);
        return installed ? 0 : 1;
    }
    case Action::RunTray:
        break;
    }
    return 1;
}

int CommandLine::translate(QCoreApplication &application)
{
    if (m_parser.isSet(m_quietOption))
        tolkaro::setLogSink([](const QString &) {});

    Preferences preferences;
    preferences.setSecretStore(std::make_shared<SecretServiceStore>());
    QString targetLanguage = m_parser.value(m_toOption);
    if (!m_parser.isSet(m_toOption)) {
        const LanguageSelection selection(preferences);
        targetLanguage =
            selection.getPreviouslyUsedLanguage(LanguageSelection::systemPreferredLanguages()).code;
    }

    // The completion may run before translateText() returns (a URL that cannot be formed),
    // so the event loop only runs when the answer is still to come.
    bool finished = false;
    int exitCode = 1;
    const ServiceSettings settings =
        TranslationServices::readSettings(preferences, m_parser.isSet(m_serviceOption));
    std::unique_ptr<Translator> client(
        m_parser.isSet(m_serviceOption)
            ? TranslationServices::create(m_parser.value(m_serviceOption), settings)
            : TranslationServices::createChain(settings));
    client->translateText(m_parser.value(m_translateOption), targetLanguage,
                         [&](bool success, const QString &translatedText, const QString &,
                             const QString &errorMessage) {
                             if (success)
                                 printLine(stdout, translatedText);
                             else
                                 printLine(stderr, errorMessage);
                             exitCode = success ? 0 : 1;
                             finished = true;
                             application.exit(exitCode);
                         });
    if (!finished)
        application.exec();
    return exitCode;
}

int CommandLine::listServices()
{
    Preferences preferences;
    preferences.setSecretStore(std::make_shared<SecretServiceStore>());
    const ServiceSettings settings = TranslationServices::readSettings(preferences, true);
    for (const QString &name : TranslationServices::allInOrder(settings.order)) {
        const std::unique_ptr<Translator> service(TranslationServices::create(name, settings));
        printLine(stdout, QStringLiteral("%1: %2%3")
                              .arg(name,
                                   service->isConfigured() ? QStringLiteral("configured")
                                                           : QStringLiteral("not configured"),
                                   settings.order.contains(name) ? QString()
                                                                 : QStringLiteral(", not asked")));
    }
    return 0;
}

int toggleTypingModeOfRunningInstance()
{
    // For desktops where a global grab does not work: bind this command to a key instead.
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        printLine(stderr, QStringLiteral("tolkaro: Tolkaro is not running (no D-Bus session bus: %1).")
                              .arg(bus.lastError().message()));
        return 1;
    }
    const QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(ApplicationBus::kServiceName),
        QString::fromLatin1(ApplicationBus::kObjectPath),
        QString::fromLatin1(ApplicationBus::kInterface), QStringLiteral("ToggleTypingMode"));
    const QDBusMessage reply = bus.call(call, QDBus::Block, 2000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        printLine(stderr, QStringLiteral("tolkaro: Tolkaro is not running (%1).")
                              .arg(reply.errorMessage()));
        return 1;
    }
    return 0;
}
