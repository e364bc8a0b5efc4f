#pragma once

#include <QColor>
#include <QString>

class QLabel;

// A text with the one attribute the system styles: its foreground colour (an invalid
// colour keeps the field's own).
struct AttributedString
{
    QString string;
    QColor foregroundColor;
};

// The messages' and errors' colour.
QColor grayTextColor();

// Cross-fades a text field to a new text: 0.3 s out with an ease-out curve, then the text
// is set and 0.3 s back in with an ease-in curve. Works on any QLabel through a
// QGraphicsOpacityEffect, since window opacity needs a compositor. Main thread only; the
// change completes asynchronously. Fades that overlap all run; the last one to reach its
// midpoint sets the text that remains.
namespace AnimatedSetString {

inline constexpr int kFadeOutMilliseconds = 300;
inline constexpr int kFadeInMilliseconds = 300;

// No fade when the field already shows exactly this plain text.
void setAnimatedStringValue(QLabel *field, const QString &value);
// Always fades out and in, even to the same text.
void setAnimatedAttributedStringValue(QLabel *field, const AttributedString &value);

// Sets the text at once, in the field's own colour (no fade).
void setStringValue(QLabel *field, const QString &value);
void setAttributedStringValue(QLabel *field, const AttributedString &value);

} // namespace AnimatedSetString
