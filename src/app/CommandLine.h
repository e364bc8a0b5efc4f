#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>

class QCoreApplication;

// What Tolkaro's command line asks for. It is read before any application object exists,
// so that the commands that need no display (--translate, --help, --version,
// --typing-mode) never open one and work on a console or over ssh.
class CommandLine
{
public:
    enum class Action
    {
        RunTray,
        Translate,
        ListServices,
        TypingMode,
        InstallGnomeHelper,
        Help,
        Version,
        Error
    };

    explicit CommandLine(const QStringList &arguments);

    Action action() const { return m_action; }
    // Why the command line was refused (Action::Error).
    QString errorText() const { return m_errorText; }
    // --verbose: log lines carry the texts themselves.
    bool verbose() const;

    // Runs every action but RunTray with a display-less application object and returns
    // the process's exit code.
    int run(QCoreApplication &application);

private:
    int translate(QCoreApplication &application);
    int listServices();

    QCommandLineParser m_parser;
    QCommandLineOption m_translateOption;
    QCommandLineOption m_toOption;
    QCommandLineOption m_quietOption;
    QCommandLineOption m_verboseOption;
    QCommandLineOption m_serviceOption;
    QCommandLineOption m_listServicesOption;
    QCommandLineOption m_typingModeOption;
    QCommandLineOption m_installGnomeHelperOption;
    QCommandLineOption m_helpOption;
    QCommandLineOption m_versionOption;
    Action m_action = Action::RunTray;
    QString m_errorText;
};

// Opens or closes the typing panel of the Tolkaro already running in this session; returns
// the exit code.
int toggleTypingModeOfRunningInstance();
