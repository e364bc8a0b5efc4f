#include "capture/ClipboardSnapshot.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

namespace {

bool isBookkeepingFormat(const QString &format)
{
    static const QStringList skipped{QStringLiteral("TARGETS"), QStringLiteral("MULTIPLE"),
                                     QStringLiteral("TIMESTAMP"), QStringLiteral("SAVE_TARGETS"),
                                     QStringLiteral("application/x-qt-image")};
    return format.isEmpty() || skipped.contains(format);
}

} // namespace

ClipboardSnapshot ClipboardSnapshot::save()
{
    ClipboardSnapshot snapshot;
    const QMimeData *current = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (!current)
        return snapshot;
    for (const QString &format : current->formats()) {
        if (isBookkeepingFormat(format))
            continue;
        const QByteArray bytes = current->data(format);
        // A format the owner offers and then cannot deliver is left out.
        if (bytes.isNull())
            continue;
        snapshot.m_formats.append({format, QByteArray(bytes.constData(), bytes.size())});
    }
    return snapshot;
}

void ClipboardSnapshot::clearContents()
{
    QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
}

void ClipboardSnapshot::restore() const
{
    clearContents();
    if (m_formats.isEmpty())
        return;
    auto *item = new QMimeData;
    for (const auto &[format, bytes] : m_formats)
        item->setData(format, bytes);
    QGuiApplication::clipboard()->setMimeData(item, QClipboard::Clipboard);
}

QStringList ClipboardSnapshot::formats() const
{
    QStringList names;
    for (const auto &entry : m_formats)
        names.append(entry.first);
    return names;
}

QByteArray ClipboardSnapshot::data(const QString &format) const
{
    for (const auto &[name, bytes] : m_formats) {
        if (name == format)
            return bytes;
    }
    return {};
}
