#include "system/TrustAlerts.h"

#include <QMessageBox>
#include <QPushButton>

namespace {

// Runs one alert; answers whether the first (default) button was chosen.
bool runAlert(const char *message, const char *informative, const char *defaultButton,
              const char *otherButton = nullptr)
{
    QMessageBox box;
    box.setWindowTitle(QStringLiteral("Tolkaro"));
    box.setIcon(QMessageBox::Warning);
    box.setText(QString::fromUtf8(message));
    box.setInformativeText(QString::fromUtf8(informative));
    QPushButton *first = box.addButton(QString::fromUtf8(defaultButton), QMessageBox::AcceptRole);
    if (otherButton)
        box.addButton(QString::fromUtf8(otherButton), QMessageBox::RejectRole);
    box.setDefaultButton(first);
    box.setWindowFlag(Qt::WindowStaysOnTopHint);
    box.show();
    box.raise();
    box.activateWindow();
    box.exec();
    return box.clickedButton() == first;
}

} // namespace

bool MessageBoxTrustAlerts::askForPermission()
{
    return runAlert(TrustTexts::kPermissionMessage, TrustTexts::kPermissionInformative,
                    TrustTexts::kPermissionAgree, TrustTexts::kPermissionDecline);
}

bool MessageBoxTrustAlerts::askForSetup(const QString &instructions)
{
    return runAlert(TrustTexts::kSetupMessage, instructions.toUtf8().constData(),
                    TrustTexts::kSetupAgree,
                    TrustTexts::kSetupDecline);
}

void MessageBoxTrustAlerts::showRefusalAlert()
{
    runAlert(TrustTexts::kRefusalMessage, TrustTexts::kRefusalInformative,
             TrustTexts::kRefusalButton);
}

void MessageBoxTrustAlerts::showMonitorFailureAlert()
{
    runAlert(TrustTexts::kMonitorFailureMessage, TrustTexts::kMonitorFailureInformative,
             TrustTexts::kMonitorFailureButton);
}
