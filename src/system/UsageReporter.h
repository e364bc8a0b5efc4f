#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include "common/UsageEvents.h"

#include <memory>

class Preferences;
class QNetworkAccessManager;


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
