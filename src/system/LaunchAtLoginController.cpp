#include "system/LaunchAtLoginController.h"

#include <QCoreApplication>

LaunchAtLoginController::LaunchAtLoginController(QObject *parent) : QObject(parent) {}
bool LaunchAtLoginController::launchAtLogin() const { return willLaunchAtLogin(appURL()); }
void LaunchAtLoginController::setLaunchAtLogin(bool enabled) { setLaunchAtLogin(enabled, appURL()); }
bool LaunchAtLoginController::willLaunchAtLogin(const QString &) const { return false; }
void LaunchAtLoginController::setLaunchAtLogin(bool, const QString &) { emit launchAtLoginChanged(); }
std::optional<LaunchAtLoginController::LoginItem> LaunchAtLoginController::findItemWithURL(const QString &) const { return std::nullopt; }
std::optional<LaunchAtLoginController::LoginItem> LaunchAtLoginController::findItemWithDisplayName(const QString &) const { return std::nullopt; }
void LaunchAtLoginController::removeAllItemsForDisplayName(const QString &) {}
void LaunchAtLoginController::clearBrokenItems() {}
QString LaunchAtLoginController::appURL() { return QCoreApplication::applicationFilePath(); }
QString LaunchAtLoginController::autostartDirectory() { return {}; }
void LaunchAtLoginController::watchAutostartDirectory() {}
QList<LaunchAtLoginController::LoginItem> LaunchAtLoginController::snapshot() const { return {}; }
