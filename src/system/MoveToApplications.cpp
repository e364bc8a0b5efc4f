#include "system/MoveToApplications.h"

#include "common/Log.h"
#include "integration/MoveRules.h"
#include "settings/Preferences.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QMetaObject>
#include <QProcess>
#include <QPushButton>

namespace {

const char kQuestionMessage[] = "Move to Applications folder?";
const char kQuestionInformativeText[] =
    "I can move myself to the Applications folder in your home folder if you'd like. "
    "This will keep your Downloads folder uncluttered.";
const char kMoveButton[] = "Move to Applications Folder";
const char kDoNotMoveButton[] = "Do Not Move";
const char kSuppressionCheckBox[] = "Do not show this message again";
const char kFailureMessage[] = "Could not move to Applications folder";

QString text(const char *source)
{
    return QCoreApplication::translate("MoveToApplications", source);
}

class MessageBoxMoveAlerts : public MoveAlerts
{
public:
    Answer askToMove() override
    {
        QMessageBox box;
        box.setIcon(QMessageBox::Question);
        box.setWindowTitle(QStringLiteral("Tolkaro"));
        box.setText(text(kQuestionMessage));
        box.setInformativeText(text(kQuestionInformativeText));
        QPushButton *move = box.addButton(text(kMoveButton), QMessageBox::AcceptRole);
        box.addButton(text(kDoNotMoveButton), QMessageBox::RejectRole);
        box.setDefaultButton(move);
        auto *suppress = new QCheckBox(text(kSuppressionCheckBox));
        QFont small = suppress->font();
        small.setPointSizeF(small.pointSizeF() * 0.85);
        suppress->setFont(small);
        box.setCheckBox(suppress);
        box.exec();
        return {box.clickedButton() == move, suppress->isChecked()};
    }

    void showFailureAlert() override
    {
        QMessageBox box;
        box.setIcon(QMessageBox::Warning);
        box.setWindowTitle(QStringLiteral("Tolkaro"));
        box.setText(text(kFailureMessage));
        box.exec();
    }
};

void fail(const MoveEnvironment &environment, const QString &logLine)
{
    tolkaro::logLine(logLine);
    environment.alerts->showFailureAlert();
}

} // namespace

bool relaunchAfterExit(const QString &program, qint64 processId)
{
    // Started while this process still holds Tolkaro's single-instance name, the new copy
    // would find Tolkaro running and leave. So a shell waits for this process to end first;
    // the bound keeps a process that lingers (a zombie nobody reaps) from holding it back.
    static const QString waitThenStart = QStringLiteral(
        "n=0; while kill -0 \"$1\" 2>/dev/null && [ $n -lt 100 ]; do sleep 0.1; n=$((n+1)); done; "
        "exec \"$0\"");
    const QFileInfo file(program);
    if (!file.isFile() || !file.isExecutable())
        return false;
    return QProcess::startDetached(
        QStringLiteral("/bin/sh"),
        {QStringLiteral("-c"), waitThenStart, program, QString::number(processId)});
}

MoveEnvironment currentMoveEnvironment(Preferences *preferences, MoveAlerts *alerts)
{
    MoveEnvironment environment;
    // An AppImage runs from a mount that disappears at exit; the file to move is $APPIMAGE.
    const QString appImage = qEnvironmentVariable("APPIMAGE");
    environment.selfPath = appImage.isEmpty() ? QCoreApplication::applicationFilePath() : appImage;
    environment.applicationsDirectories = MoveRules::applicationsDirectories(QDir::homePath());
    environment.destinationDirectory = MoveRules::applicationsDestination(QDir::homePath());
    environment.preferences = preferences;
    environment.alerts = alerts;
    environment.relaunch = [](const QString &program) {
        return relaunchAfterExit(program, QCoreApplication::applicationPid());
    };
    return environment;
}

bool moveToApplicationsFolderIfNecessary(const MoveEnvironment &environment)
{
    const MoveRules::MoveOffer offer = MoveRules::decideMoveOffer(
        environment.selfPath, environment.applicationsDirectories,
        environment.preferences->moveToApplicationsFolderAlertSuppress());
    if (offer != MoveRules::MoveOffer::Offer)
        return false;

    const QString applications = environment.destinationDirectory;
    if (applications.isEmpty()) {
        fail(environment, QStringLiteral("ERROR -- Could not find the Applications directory"));
        return false;
    }
    const QString name = QFileInfo(environment.selfPath).fileName();

    const MoveAlerts::Answer answer = environment.alerts->askToMove();
    if (!answer.move) {
        if (answer.suppress) {
            environment.preferences->setMoveToApplicationsFolderAlertSuppress(true);
            environment.preferences->synchronize();
        }
        return false;
    }

    tolkaro::logLine(QStringLiteral("Moving myself to the Applications folder"));
    const QString destination = QDir(applications).filePath(name);

    // exists() follows links: a dangling link left at the destination is in the way too.
    const QFileInfo existing(destination);
    if (existing.exists() || existing.isSymLink()) {
        if (!QFile::moveToTrash(destination)) {
            fail(environment, QStringLiteral("ERROR -- Could not trash '%1'").arg(destination));
            return false;
        }
    }

    // ~/Applications is not a standard directory and often does not exist yet.
    QFile source(environment.selfPath);
    if (!QDir().mkpath(applications)) {
        fail(environment, QStringLiteral("ERROR -- Could not copy myself to ~/Applications (%1)")
                              .arg(QStringLiteral("cannot create %1").arg(applications)));
        return false;
    }
    if (!source.copy(destination)) {
        fail(environment, QStringLiteral("ERROR -- Could not copy myself to ~/Applications (%1)")
                              .arg(source.errorString()));
        return false;
    }

    if (!QFile::moveToTrash(environment.selfPath)) {
        fail(environment,
             QStringLiteral("ERROR -- Could not trash '%1'").arg(environment.selfPath));
        return false;
    }

    if (!environment.relaunch || !environment.relaunch(destination)) {
        // The copy is in place and the old one in the trash: the user can start it by hand.
        fail(environment, QStringLiteral("ERROR -- Could not start '%1'").arg(destination));
        return false;
    }
    return true;
}

bool PFMoveToApplicationsFolderIfNecessary()
{
    Preferences preferences;
    MessageBoxMoveAlerts alerts;
    const bool relaunched =
        moveToApplicationsFolderIfNecessary(currentMoveEnvironment(&preferences, &alerts));
    if (relaunched) {
        // The caller may still be in start-up, before the event loop runs: quit once it does.
        QMetaObject::invokeMethod(QCoreApplication::instance(), &QCoreApplication::quit,
                                  Qt::QueuedConnection);
    }
    return relaunched;
}
