#include "system/UsageReporter.h"

#include "settings/Preferences.h"

UsageReporter::UsageReporter(Preferences *preferences, QObject *parent)
    : QObject(parent), m_preferences(preferences)
{
}
UsageReporter::~UsageReporter() = default;
void UsageReporter::report(const QString &, const QVariantMap &) {}
bool UsageReporter::isEnabled() const { return false; }
