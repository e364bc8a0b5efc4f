#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>

class Preferences;
class QNetworkAccessManager;

// The usage events Tolkaro can report.
namespace UsageEvents {
inline constexpr char kFirstLaunchEver[] = "firstLaunchEverAnalytics";
inline constexpr char kTranslationMade[] = "translationMade";
inline constexpr char kTranslationError[] = "translationError";
inline constexpr char kTypingModeOpened[] = "typingModeOpened";
inline constexpr char kTypingModeTranslationMade[] = "typingModeTranslationMade";
inline constexpr char kTypingModeTranslationPasted[] = "typingModeTranslationPasted";
inline constexpr char kAccessibilityConsentGiven[] = "accessibilityConsentGiven";
inline constexpr char kAccessibilityConsentDeclined[] = "accessibilityConsentDeclined";
} // namespace UsageEvents

// Posts one short form-encoded event per report, fire and forget: no answer is awaited, no
// failure retried. Off unless the user turned "UsageReportingEnabled" on and
// "UsageReportingURL" names an endpoint; otherwise nothing leaves the machine. Both keys are
// read at every report. Main thread only.
class UsageReporter : public QObject
{
    Q_OBJECT

public:
    // With no preferences, the user's store.
    explicit UsageReporter(Preferences *preferences = nullptr, QObject *parent = nullptr);
    ~UsageReporter() override;

    // Sends "event=<event>&version=<ours>" and the fields as further form fields.
    void report(const QString &event, const QVariantMap &fields = {});
    bool isEnabled() const;

private:
    Preferences *m_preferences = nullptr;
    std::unique_ptr<Preferences> m_ownPreferences;
    QNetworkAccessManager *m_network = nullptr;
};
