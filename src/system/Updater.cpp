#include "system/Updater.h"

#include "common/Log.h"
#include "settings/Preferences.h"
#include "updates/Appcast.h"
#include "updates/VersionComparator.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QLocale>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPushButton>
#include <QSysInfo>
#include <QThread>
#include <QUrlQuery>

namespace {

// A feed is a few kilobytes; a check that takes longer than this has failed.
constexpr int kFeedTransferTimeoutMs = 30000;

// Message boxes that do not block: the tray application goes on working while one is open.
class MessageBoxUpdatePresenter : public UpdatePresenter
{
public:
    void showUpdateFound(const UpdateCheckResult &result) override
    {
        QMessageBox *box = makeBox(
            QMessageBox::Information, QStringLiteral("A new version of Tolkaro is available!"),
            QStringLiteral("Tolkaro %1 is now available—you have %2. Download it from its page, "
                           "or update it with your package manager if it came from one.")
                .arg(result.newestVersion, result.currentVersion));
        QPushButton *download = nullptr;
        QPushButton *notes = nullptr;
        if (result.downloadURL.isValid())
            download = box->addButton(QStringLiteral("Download"), QMessageBox::AcceptRole);
        if (result.releaseNotesURL.isValid())
            notes = box->addButton(QStringLiteral("Release Notes"), QMessageBox::HelpRole);
        box->addButton(QStringLiteral("Remind Me Later"), QMessageBox::RejectRole);
        if (download)
            box->setDefaultButton(download);
        QObject::connect(box, &QMessageBox::buttonClicked, box,
                         [download, notes, result](QAbstractButton *clicked) {
                             if (download && clicked == download)
                                 QDesktopServices::openUrl(result.downloadURL);
                             else if (notes && clicked == notes)
                                 QDesktopServices::openUrl(result.releaseNotesURL);
                         });
        box->show();
    }

    void showUpToDate(const UpdateCheckResult &result) override
    {
        showMessage(QMessageBox::Information, QStringLiteral("You're up to date!"),
                    QStringLiteral("Tolkaro %1 is currently the newest version available.")
                        .arg(result.currentVersion));
    }

    void showCheckFailed(const UpdateCheckResult &) override
    {
        showMessage(QMessageBox::Warning, QStringLiteral("Update Error!"),
                    QStringLiteral("An error occurred in retrieving update information. Please try "
                                   "again later."));
    }

    void askForUpdatePermission(std::function<void(const UpdatePermission &)> answer) override
    {
        QMessageBox *box = makeBox(
            QMessageBox::Question, QStringLiteral("Check for updates automatically?"),
            QStringLiteral("Should Tolkaro look for a newer version each time it starts? You can "
                           "always check yourself with \"Check for updates...\" in its menu."));
        QPushButton *yes =
            box->addButton(QStringLiteral("Check Automatically"), QMessageBox::AcceptRole);
        box->addButton(QStringLiteral("Don't Check"), QMessageBox::RejectRole);
        box->setDefaultButton(yes);
        // Unticked unless the user chooses to share it.
        box->setCheckBox(new QCheckBox(
            QStringLiteral("Include anonymous system profile (Tolkaro and system versions, "
                           "processor, language)"),
            box));
        QObject::connect(box, &QMessageBox::finished, box, [box, yes, answer] {
            answer({box->clickedButton() == yes, box->checkBox()->isChecked()});
        });
        box->show();
    }

    void showNoFeed() override
    {
        showMessage(QMessageBox::Information,
                    QStringLiteral("Updates for Tolkaro come from your package manager."),
                    QStringLiteral("Use your distribution's software updater (or apt) to get the "
                                   "newest version."));
    }

private:
    // A message with one OK button.
    static void showMessage(QMessageBox::Icon icon, const QString &text,
                            const QString &informativeText)
    {
        QMessageBox *box = makeBox(icon, text, informativeText);
        box->setStandardButtons(QMessageBox::Ok);
        box->show();
    }

    static QMessageBox *makeBox(QMessageBox::Icon icon, const QString &text,
                                const QString &informativeText)
    {
        auto *box = new QMessageBox(icon, QStringLiteral("Software Update"), text);
        box->setInformativeText(informativeText);
        box->setAttribute(Qt::WA_DeleteOnClose);
        return box;
    }
};

// What the update feed's owner learns when the user agreed to share it: nothing that names
// the user or the machine.
QList<QPair<QString, QString>> systemProfile()
{
    return {
        {QStringLiteral("appName"), QStringLiteral("Tolkaro")},
        {QStringLiteral("appVersion"), QStringLiteral(TOLKARO_VERSION)},
        {QStringLiteral("osName"), QSysInfo::productType()},
        {QStringLiteral("osVersion"), QSysInfo::productVersion()},
        {QStringLiteral("kernelVersion"), QSysInfo::kernelVersion()},
        {QStringLiteral("cpuArchitecture"), QSysInfo::currentCpuArchitecture()},
        {QStringLiteral("ncpu"), QString::number(QThread::idealThreadCount())},
        {QStringLiteral("lang"), QLocale::system().name()},
    };
}

} // namespace

Updater::Updater(Preferences *preferences, UpdatePresenter *presenter, QObject *parent)
    : QObject(parent), m_preferences(preferences), m_presenter(presenter),
      m_network(new QNetworkAccessManager(this))
{
    if (!m_preferences) {
        m_ownPreferences = std::make_unique<Preferences>();
        m_preferences = m_ownPreferences.get();
    }
    if (!m_presenter) {
        m_ownPresenter = std::make_unique<MessageBoxUpdatePresenter>();
        m_presenter = m_ownPresenter.get();
    }
}

Updater::~Updater()
{
    if (m_reply)
        m_reply->abort();
}

void Updater::checkForUpdates()
{
    startCheck(true);
}

void Updater::checkForUpdatesInBackground()
{
    const std::optional<bool> allowed = m_preferences->checkForUpdatesAutomatically();
    if (!hasFeed() || allowed.value_or(false)) {
        startCheck(false);
        return;
    }
    if (allowed || m_asking)
        return;
    m_asking = true;
    QPointer<Updater> self(this);
    m_presenter->askForUpdatePermission([self](const UpdatePermission &permission) {
        if (!self)
            return;
        self->m_asking = false;
        self->m_preferences->setCheckForUpdatesAutomatically(permission.checkAutomatically);
        self->setSendsSystemProfile(permission.sendSystemProfile);
        self->m_preferences->synchronize();
        if (permission.checkAutomatically)
            self->startCheck(false);
    });
}

void Updater::setSendsSystemProfile(bool sendsSystemProfile)
{
    m_preferences->setSendSystemProfileWithUpdateChecks(sendsSystemProfile);
}

bool Updater::sendsSystemProfile() const
{
    return m_preferences->sendSystemProfileWithUpdateChecks();
}

bool Updater::hasFeed() const
{
    return feedURL().isValid();
}

QUrl Updater::feedURL() const
{
    const QUrl url(m_preferences->updateFeedURL().trimmed(), QUrl::StrictMode);
    if (url.isEmpty() || !url.isValid() || url.isRelative())
        return {};
    return url;
}

void Updater::startCheck(bool userInitiated)
{
    // A check already under way answers both: the user's request only makes it speak up.
    m_userInitiated = m_userInitiated || userInitiated;
    if (m_reply)
        return;

    const QUrl feed = feedURL();
    if (!feed.isValid()) {
        UpdateCheckResult result;
        result.outcome = UpdateCheckResult::Outcome::NoFeed;
        result.currentVersion = QStringLiteral(TOLKARO_VERSION);
        if (m_userInitiated)
            m_presenter->showNoFeed();
        m_userInitiated = false;
        emit updateCheckFinished(result);
        return;
    }

    QUrl url = feed;
    if (sendsSystemProfile()) {
        QUrlQuery query(url);
        for (const auto &[key, value] : systemProfile())
            query.addQueryItem(key, QString::fromUtf8(QUrl::toPercentEncoding(value)));
        url.setQuery(query);
    }
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QStringLiteral("Tolkaro/%1").arg(QStringLiteral(TOLKARO_VERSION)));
    request.setTransferTimeout(kFeedTransferTimeoutMs);
    m_reply = m_network->get(request);
    QNetworkReply *reply = m_reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { finishCheck(reply); });
}

void Updater::finishCheck(QNetworkReply *reply)
{
    reply->deleteLater();
    m_reply = nullptr;
    const bool userInitiated = m_userInitiated;
    m_userInitiated = false;

    UpdateCheckResult result;
    result.currentVersion = QStringLiteral(TOLKARO_VERSION);
    if (reply->error() != QNetworkReply::NoError) {
        result.outcome = UpdateCheckResult::Outcome::Failed;
        result.error = reply->errorString();
    } else {
        QString error;
        const std::optional<Appcast::Item> newest = Appcast::newestItem(reply->readAll(), &error);
        if (!newest) {
            result.outcome = UpdateCheckResult::Outcome::Failed;
            result.error = error;
        } else {
            result.newestVersion = newest->version;
            result.title = newest->title;
            result.releaseNotesURL = newest->releaseNotesURL;
            result.downloadURL = newest->downloadURL;
            result.outcome =
                VersionComparator::compareVersions(newest->version, result.currentVersion) > 0
                    ? UpdateCheckResult::Outcome::UpdateFound
                    : UpdateCheckResult::Outcome::UpToDate;
        }
    }

    switch (result.outcome) {
    case UpdateCheckResult::Outcome::UpdateFound:
        m_presenter->showUpdateFound(result);
        break;
    case UpdateCheckResult::Outcome::UpToDate:
        if (userInitiated)
            m_presenter->showUpToDate(result);
        break;
    case UpdateCheckResult::Outcome::Failed:
        tolkaro::logLine(QStringLiteral("Update check failed: %1").arg(result.error));
        if (userInitiated)
            m_presenter->showCheckFailed(result);
        break;
    case UpdateCheckResult::Outcome::NoFeed:
        break;
    }
    emit updateCheckFinished(result);
}
