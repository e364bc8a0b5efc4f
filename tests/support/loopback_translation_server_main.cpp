// tolkaro-test-server: the loopback translation endpoint as a process, for shell scripts,
// desktop tests and benchmarks. Prints its port on the first line of stdout, then serves
// until terminated.

#include "LoopbackTranslationServer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QTextStream>

#include <cstdio>

namespace {

const QList<QPair<QString, LoopbackTranslationServer::Behaviour>> kBehaviourNames = {
    {QStringLiteral("echo"), LoopbackTranslationServer::Behaviour::Echo},
    {QStringLiteral("well"), LoopbackTranslationServer::Behaviour::Well},
    {QStringLiteral("slowly"), LoopbackTranslationServer::Behaviour::Slowly},
    {QStringLiteral("trickle"), LoopbackTranslationServer::Behaviour::TrickleForever},
    {QStringLiteral("garbage"), LoopbackTranslationServer::Behaviour::Garbage},
    {QStringLiteral("html403"), LoopbackTranslationServer::Behaviour::HtmlForbidden},
    {QStringLiteral("non-utf8"), LoopbackTranslationServer::Behaviour::NonUtf8},
    {QStringLiteral("reset"), LoopbackTranslationServer::Behaviour::ResetMidBody},
    {QStringLiteral("redirect-loop"), LoopbackTranslationServer::Behaviour::RedirectLoop},
    {QStringLiteral("silent"), LoopbackTranslationServer::Behaviour::Silent},
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tolkaro-test-server"));

    QStringList behaviourNames;
    for (const auto &[name, behaviour] : kBehaviourNames)
        behaviourNames.append(name);

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A loopback HTTP server standing in for the translation endpoint."));
    parser.addHelpOption();
    const QCommandLineOption portOption(
        QStringLiteral("port"), QStringLiteral("Port to listen on (default: any free one)."),
        QStringLiteral("port"), QStringLiteral("0"));
    const QCommandLineOption answerOption(
        QStringLiteral("answer"),
        QStringLiteral("How to answer every request: %1 (default: echo).")
            .arg(behaviourNames.join(QStringLiteral(", "))),
        QStringLiteral("behaviour"), QStringLiteral("echo"));
    const QCommandLineOption bodyOption(QStringLiteral("body-file"),
                                        QStringLiteral("Body for the well and slowly answers."),
                                        QStringLiteral("file"));
    const QCommandLineOption delayOption(QStringLiteral("delay-ms"),
                                         QStringLiteral("Delay of the slowly answer."),
                                         QStringLiteral("ms"), QStringLiteral("5000"));
    const QCommandLineOption logOption(QStringLiteral("log-requests"),
                                       QStringLiteral("Print each request line on stderr."));
    parser.addOptions({portOption, answerOption, bodyOption, delayOption, logOption});
    parser.process(app);

    LoopbackTranslationServer::Answer answer;
    bool known = false;
    for (const auto &[name, behaviour] : kBehaviourNames) {
        if (name == parser.value(answerOption)) {
            answer.behaviour = behaviour;
            known = true;
        }
    }
    if (!known) {
        std::fprintf(stderr, "tolkaro-test-server: unknown answer \"%s\"\n",
                     qPrintable(parser.value(answerOption)));
        return 2;
    }
    if (parser.isSet(bodyOption)) {
        QFile file(parser.value(bodyOption));
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "tolkaro-test-server: cannot read %s\n",
                         qPrintable(file.fileName()));
            return 2;
        }
        answer.body = file.readAll();
    }
    answer.delayMs = parser.value(delayOption).toInt();

    LoopbackTranslationServer server(quint16(parser.value(portOption).toUInt()));
    if (!server.isListening()) {
        std::fprintf(stderr, "tolkaro-test-server: cannot listen\n");
        return 1;
    }
    server.setDefaultAnswer(answer);
    if (parser.isSet(logOption)) {
        server.setRequestObserver([](const LoopbackTranslationServer::RecordedRequest &request) {
            std::fprintf(stderr, "%s\n", request.requestLine.constData());
            std::fflush(stderr);
        });
    }

    std::printf("%u\n", unsigned(server.port()));
    std::fflush(stdout);
    return app.exec();
}
