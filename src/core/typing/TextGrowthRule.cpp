#include "typing/TextGrowthRule.h"

QSizeF TextGrowthRule::intrinsicSize(QSizeF inheritedSize, qreal usedTextHeight)
{
    if (answersStoredSize())
        return m_lastIntrinsicSize;
    qreal height = inheritedSize.height();
    if (usedTextHeight >= 0.0)
        height = usedTextHeight + kEditorHeightMargin;
    if (height > kMaximumHeight)
        return m_lastIntrinsicSize;
    m_lastIntrinsicSize = QSizeF(inheritedSize.width(), height);
    m_hasLastIntrinsicSize = true;
    return m_lastIntrinsicSize;
}
