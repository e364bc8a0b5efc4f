#pragma once

#include <QSizeF>

// The size rule of the growing input field: while the user edits, the field wants the
// height of its text, up to kMaximumHeight; above the cap it keeps the last height it
// accepted; outside editing it answers the stored size without measuring anything.
// Pure state, owned by the field widget (main thread).
class TextGrowthRule
{
public:
    static constexpr qreal kMaximumHeight = 100.0;
    // Added to the measured text height; kept as its own term so it can be tuned.
    static constexpr qreal kEditorHeightMargin = 0.0;

    void setEditing(bool editing) { m_isEditing = editing; }
    bool isEditing() const { return m_isEditing; }
    bool hasLastIntrinsicSize() const { return m_hasLastIntrinsicSize; }
    QSizeF lastIntrinsicSize() const { return m_lastIntrinsicSize; }

    // True when intrinsicSize() would answer the stored size without a measurement.
    bool answersStoredSize() const { return !m_isEditing && m_hasLastIntrinsicSize; }

    // The size to answer. inheritedSize is the widget's own idea of its size;
    // usedTextHeight, when >= 0, is the height of the laid-out text that replaces it.
    // Not consulted at all when answersStoredSize().
    QSizeF intrinsicSize(QSizeF inheritedSize, qreal usedTextHeight);

private:
    bool m_hasLastIntrinsicSize = false;
    bool m_isEditing = false;
    QSizeF m_lastIntrinsicSize{0.0, 0.0};
};
