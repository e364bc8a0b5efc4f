#include "system/UsageReporter.h"

#include "settings/Preferences.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>
#include <QUrlQuery>

namespace {

// An event that cannot be delivered quickly is dropped: nobody waits for it.
constexpr int kReportTransferTimeoutMs = 15000;

QUrl reportingEndpoint(const Preferences &preferences)
{
    const QUrl url(preferences.usageReportingURL().trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.isRelative() ||
        (url.scheme() != QLatin1String("https") && url.scheme() != QLatin1String("http")))
        return {};
    return url;
}

QByteArray formEncode(const QString &event, const QVariantMap &fields)
{
    QList<QPair<QString, QString>> pairs{
        {QStringLiteral("event"), event},
        {QStringLiteral("version"), QStringLiteral(TOLKARO_VERSION)}};
    for (auto field = fields.cbegin(); field != fields.cend(); ++field)
        pairs.append({field.key(), field.value().toString()});
    QByteArray body;
    for (const auto &[key, value] : pairs) {
        if (!body.isEmpty())
            body += '&';
        // Form encoding: spaces as '+', everything but unreserved characters escaped.
        body += QUrl::toPercentEncoding(key, " ").replace(' ', '+') + '=' +
                QUrl::toPercentEncoding(value, " ").replace(' ', '+');
    }
    return body;
}

} // namespace

UsageReporter::UsageReporter(Preferences *preferences, QObject *parent)
    : QObject(parent), m_preferences(preferences), m_network(new QNetworkAccessManager(this))
{
    if (!m_preferences) {
        m_ownPreferences = std::make_unique<Preferences>();
        m_preferences = m_ownPreferences.get();
    }
}

UsageReporter::~UsageReporter() = default;

bool UsageReporter::isEnabled() const
{
    return m_preferences->usageReportingEnabled() && reportingEndpoint(*m_preferences).isValid();
}

void UsageReporter::report(const QString &event, const QVariantMap &fields)
{
    if (!isEnabled())
        return;
    QNetworkRequest request(reportingEndpoint(*m_preferences));
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      QStringLiteral("Tolkaro/%1").arg(QStringLiteral(TOLKARO_VERSION)));
    request.setTransferTimeout(kReportTransferTimeoutMs);
    QNetworkReply *reply = m_network->post(request, formEncode(event, fields));
    // Fire and forget: the answer is read by nobody, failures are not retried.
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
}
