#include "updates/VersionComparator.h"

#include <QList>

namespace VersionComparator {

namespace {

struct Part
{
    bool isNumber = false;
    QString text; // digits without leading zeros, or a word in lower case
};

QList<Part> splitVersion(QString version)
{
    version = version.trimmed();
    const qsizetype plus = version.indexOf(QLatin1Char('+'));
    if (plus >= 0)
        version.truncate(plus);
    if (version.startsWith(QLatin1Char('v'), Qt::CaseInsensitive) && version.size() > 1 &&
        version.at(1).isDigit())
        version.remove(0, 1);

    QList<Part> parts;
    for (qsizetype i = 0; i < version.size();) {
        const QChar c = version.at(i);
        if (c.isDigit()) {
            qsizetype end = i;
            while (end < version.size() && version.at(end).isDigit())
                ++end;
            QString digits = version.mid(i, end - i);
            while (digits.size() > 1 && digits.startsWith(QLatin1Char('0')))
                digits.remove(0, 1);
            parts.append({true, digits});
            i = end;
        } else if (c.isLetter()) {
            qsizetype end = i;
            while (end < version.size() && version.at(end).isLetter())
                ++end;
            parts.append({false, version.mid(i, end - i).toLower()});
            i = end;
        } else {
            ++i; // separators: . - _ space and anything else
        }
    }
    return parts;
}

int compareNumbers(const QString &a, const QString &b)
{
    // Compared as digit strings, so no number is too long.
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

// The order of what is left of the longer version against nothing: a word there marks a
// pre-release (older), a number other than zero a later release (newer).
int compareTail(const QList<Part> &parts, qsizetype from)
{
    for (qsizetype i = from; i < parts.size(); ++i) {
        if (!parts[i].isNumber)
            return -1;
        if (parts[i].text != QLatin1String("0"))
            return 1;
    }
    return 0;
}

int sign(int value)
{
    return (value > 0) - (value < 0);
}

} // namespace

int compareVersions(const QString &a, const QString &b)
{
    const QList<Part> left = splitVersion(a);
    const QList<Part> right = splitVersion(b);
    const qsizetype common = qMin(left.size(), right.size());
    for (qsizetype i = 0; i < common; ++i) {
        const Part &l = left[i];
        const Part &r = right[i];
        if (l.isNumber != r.isNumber)
            return l.isNumber ? 1 : -1;
        const int order = l.isNumber ? compareNumbers(l.text, r.text) : l.text.compare(r.text);
        if (order != 0)
            return sign(order);
    }
    if (left.size() > common)
        return compareTail(left, common);
    if (right.size() > common)
        return -compareTail(right, common);
    return 0;
}

} // namespace VersionComparator
