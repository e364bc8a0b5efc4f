#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

// The update feed: an RSS 2.0 channel whose items describe releases, with the version in the
// feed's own XML namespace (an enclosure's "version"/"shortVersionString" attributes or item
// elements of the same names) and optional release-notes links. Any namespace URI is taken
// for those names, since feeds agree on the names more than on the URI. Pure parsing.
namespace Appcast {

struct Item
{
    QString title;
    QString version; // the version compared: shortVersionString, else version
    QUrl releaseNotesURL;
    QUrl downloadURL; // the enclosure, else the item's link
};

// The newest item for this platform (items whose enclosure names another "os" are skipped),
// chosen by version comparison, not by position. Nothing when the feed does not parse or
// lists no version; error then says why.
std::optional<Item> newestItem(const QByteArray &feed, QString *error = nullptr);

} // namespace Appcast
