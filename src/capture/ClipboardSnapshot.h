#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// A copy of everything on the clipboard (CLIPBOARD), every format's bytes, taken before
// Tolkaro borrows the clipboard for a copy or a paste and written back afterwards. The
// bookkeeping targets of the X selection protocol and Qt's own image alias are left out:
// they describe the data rather than hold it, and Qt answers them itself once the data is
// back. The written-back data is served by this process from then on. Main thread only.
class ClipboardSnapshot
{
public:
    // Reads every format of the clipboard now (each one a round trip to its owner).
    static ClipboardSnapshot save();
    // Empties the clipboard (nobody owns it afterwards).
    static void clearContents();

    // Empties the clipboard and puts the saved formats back as one item; an empty
    // snapshot leaves it empty.
    void restore() const;

    bool isEmpty() const { return m_formats.isEmpty(); }
    QStringList formats() const;
    QByteArray data(const QString &format) const;

private:
    QList<QPair<QString, QByteArray>> m_formats;
};
