#include "text/CopiedPassage.h"

QString cleanUpCopiedPassage(const QString &copied)
{
    const qsizetype blankLine = copied.lastIndexOf(QLatin1String("\n\n"));
    if (blankLine < 0)
        return copied;
    const QString quoted = copied.left(blankLine).trimmed();
    // Fewer than two characters cannot hold both quotation marks: nothing is inside them.
    if (quoted.size() < 2)
        return QStringLiteral("");
    return quoted.mid(1, quoted.size() - 2);
}
