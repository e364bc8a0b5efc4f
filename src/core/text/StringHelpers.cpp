#include "text/StringHelpers.h"

#include <QList>
#include <QStringView>

namespace StringHelpers {

bool containsLetters(const QString &text)
{
    // Walk code points, not code units: letters outside the BMP arrive as surrogate
    // pairs, and each half alone has no letter category.
    for (const uint codePoint : QStringView(text).toUcs4()) {
        switch (QChar::category(codePoint)) {
        case QChar::Letter_Uppercase:
        case QChar::Letter_Lowercase:
        case QChar::Letter_Titlecase:
        case QChar::Letter_Modifier:
        case QChar::Letter_Other:
        case QChar::Mark_NonSpacing:
        case QChar::Mark_SpacingCombining:
        case QChar::Mark_Enclosing:
            return true;
        default:
            break;
        }
    }
    return false;
}

bool hasCaseInsensitiveSubstring(const QString &text, const QString &substring)
{
    // QString::contains finds an empty needle everywhere; here it counts as absent.
    if (substring.isEmpty())
        return false;
    return text.contains(substring, Qt::CaseInsensitive);
}

} // namespace StringHelpers
