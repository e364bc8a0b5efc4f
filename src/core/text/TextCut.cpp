#include "text/TextCut.h"

QString cutText(const QString &text, qsizetype maxUnits)
{
    if (text.size() <= maxUnits)
        return text;
    return text.left(maxUnits) + QStringLiteral("...");
}
