#include "updates/Appcast.h"

#include "updates/VersionComparator.h"

#include <QXmlStreamReader>

namespace Appcast {

namespace {

struct ParsedItem
{
    Item item;
    QString elementVersion;
    QString elementShortVersion;
    QString enclosureVersion;
    QString enclosureShortVersion;
    QString os;
    QUrl link;
};

bool inFeedNamespace(const QXmlStreamReader &reader)
{
    return !reader.namespaceUri().isEmpty();
}

QString feedAttribute(const QXmlStreamAttributes &attributes, const char *name)
{
    for (const QXmlStreamAttribute &attribute : attributes) {
        if (!attribute.namespaceUri().isEmpty() && attribute.name() == QLatin1String(name))
            return attribute.value().toString().trimmed();
    }
    return {};
}

ParsedItem readItem(QXmlStreamReader &reader)
{
    ParsedItem parsed;
    while (reader.readNextStartElement()) {
        const QStringView name = reader.name();
        if (inFeedNamespace(reader)) {
            if (name == QLatin1String("version"))
                parsed.elementVersion = reader.readElementText().trimmed();
            else if (name == QLatin1String("shortVersionString"))
                parsed.elementShortVersion = reader.readElementText().trimmed();
            else if (name == QLatin1String("releaseNotesLink"))
                parsed.item.releaseNotesURL = QUrl(reader.readElementText().trimmed());
            else
                reader.skipCurrentElement();
        } else if (reader.namespaceUri().isEmpty() && name == QLatin1String("title")) {
            parsed.item.title = reader.readElementText().trimmed();
        } else if (reader.namespaceUri().isEmpty() && name == QLatin1String("link")) {
            parsed.link = QUrl(reader.readElementText().trimmed());
        } else if (reader.namespaceUri().isEmpty() && name == QLatin1String("enclosure")) {
            const QXmlStreamAttributes attributes = reader.attributes();
            parsed.item.downloadURL =
                QUrl(attributes.value(QLatin1String("url")).toString().trimmed());
            parsed.enclosureVersion = feedAttribute(attributes, "version");
            parsed.enclosureShortVersion = feedAttribute(attributes, "shortVersionString");
            parsed.os = feedAttribute(attributes, "os");
            reader.skipCurrentElement();
        } else {
            reader.skipCurrentElement();
        }
    }
    // The human version is what Tolkaro itself carries; the build number only when alone.
    for (const QString &candidate : {parsed.elementShortVersion, parsed.enclosureShortVersion,
                                     parsed.elementVersion, parsed.enclosureVersion}) {
        if (!candidate.isEmpty()) {
            parsed.item.version = candidate;
            break;
        }
    }
    if (parsed.item.downloadURL.isEmpty())
        parsed.item.downloadURL = parsed.link;
    return parsed;
}

} // namespace

std::optional<Item> newestItem(const QByteArray &feed, QString *error)
{
    QXmlStreamReader reader(feed);
    std::optional<Item> newest;
    bool sawChannel = false;
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::StartElement)
            continue;
        if (reader.namespaceUri().isEmpty() && reader.name() == QLatin1String("channel")) {
            sawChannel = true;
            continue;
        }
        if (!sawChannel || !reader.namespaceUri().isEmpty() ||
            reader.name() != QLatin1String("item"))
            continue;
        const ParsedItem parsed = readItem(reader);
        if (parsed.item.version.isEmpty())
            continue;
        if (!parsed.os.isEmpty() &&
            parsed.os.compare(QLatin1String("linux"), Qt::CaseInsensitive) != 0)
            continue;
        if (!newest || VersionComparator::compareVersions(parsed.item.version, newest->version) > 0)
            newest = parsed.item;
    }
    QString why;
    if (reader.hasError())
        why = QStringLiteral("The update feed is not valid XML: %1 (line %2)")
                  .arg(reader.errorString())
                  .arg(reader.lineNumber());
    else if (!sawChannel)
        why = QStringLiteral("The update feed has no RSS channel");
    else if (!newest)
        why = QStringLiteral("The update feed lists no version for Linux");
    if (!why.isEmpty()) {
        if (error)
            *error = why;
        return std::nullopt;
    }
    return newest;
}

} // namespace Appcast
