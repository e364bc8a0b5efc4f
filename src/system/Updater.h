#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class Preferences;
class QNetworkAccessManager;
class QNetworkReply;

// What an update check found.
struct UpdateCheckResult
{
    enum class Outcome
    {
        NoFeed,      // no feed configured: updates come from the package manager
        UpdateFound, // the feed's newest item is newer than this version
        UpToDate,    // same or older
        Failed,      // unreachable, HTTP error, or a feed that does not parse
    };
    Outcome outcome = Outcome::Failed;
    QString currentVersion;
    QString newestVersion; // when the feed had a usable item
    QString title;         // the item's title
    QUrl releaseNotesURL;
    QUrl downloadURL;
    QString error; // on failure
};

// The answers to the first update question.
struct UpdatePermission
{
    bool checkAutomatically = false;
    bool sendSystemProfile = false; // the question's check box
};

// What the user sees of an update check, behind an interface so that tests can answer it.
class UpdatePresenter
{
public:
    virtual ~UpdatePresenter() = default;
    // Before the first background check: may Tolkaro check by itself, and may the system
    // profile go with the checks. The answer may come later; `answer` is called once.
    virtual void askForUpdatePermission(std::function<void(const UpdatePermission &)> answer) = 0;
    // A newer version: offers its release notes and its download page. Never installs.
    virtual void showUpdateFound(const UpdateCheckResult &result) = 0;
    // Answers to a check the user asked for.
    virtual void showUpToDate(const UpdateCheckResult &result) = 0;
    virtual void showCheckFailed(const UpdateCheckResult &result) = 0;
    virtual void showNoFeed() = 0;
};

// Checks an update feed (RSS appcast) for a newer Tolkaro. The feed is the settings key
// "UpdateFeedURL", else the one built in (TOLKARO_UPDATE_FEED_URL); with neither, updates
// come from the package manager and nothing is fetched. Nothing is installed: a newer
// version is announced with its release notes and download links. Background checks start
// only after the user allowed them in the first update question, and the system profile
// goes with a check only when the user ticked its box there. Main thread only.
class Updater : public QObject
{
    Q_OBJECT

public:
    // With no preferences, the user's store; with no presenter, message boxes.
    explicit Updater(Preferences *preferences = nullptr, UpdatePresenter *presenter = nullptr,
                     QObject *parent = nullptr);
    ~Updater() override;

    // The user asked: every outcome is shown.
    void checkForUpdates();
    // Start-up check: only a newer version is shown. The first one with a feed asks the
    // user first; a "no" is kept and no background check follows.
    void checkForUpdatesInBackground();
    // Whether the system profile (application and OS versions, CPU, language) joins the feed
    // query: the user's answer, stored in the preferences.
    void setSendsSystemProfile(bool sendsSystemProfile);
    bool sendsSystemProfile() const;
    bool hasFeed() const;
    QUrl feedURL() const;

signals:
    void updateCheckFinished(const UpdateCheckResult &result);

private:
    void startCheck(bool userInitiated);
    void finishCheck(QNetworkReply *reply);

    Preferences *m_preferences = nullptr;
    std::unique_ptr<Preferences> m_ownPreferences;
    UpdatePresenter *m_presenter = nullptr;
    std::unique_ptr<UpdatePresenter> m_ownPresenter;
    QNetworkAccessManager *m_network = nullptr;
    QPointer<QNetworkReply> m_reply;
    bool m_userInitiated = false;
    bool m_asking = false;
};
