#include "system/Updater.h"

#include "settings/Preferences.h"

Updater::Updater(Preferences *preferences, UpdatePresenter *presenter, QObject *parent)
    : QObject(parent), m_preferences(preferences), m_presenter(presenter)
{
}
Updater::~Updater() = default;
void Updater::checkForUpdates() {}
void Updater::checkForUpdatesInBackground() {}
void Updater::setSendsSystemProfile(bool sendsSystemProfile) { m_sendsSystemProfile = sendsSystemProfile; }
bool Updater::hasFeed() const { return false; }
QUrl Updater::feedURL() const { return {}; }
void Updater::startCheck(bool) {}
void Updater::finishCheck(QNetworkReply *) {}
