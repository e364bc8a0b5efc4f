#pragma once

#include <QString>

// Longest text the gesture sends to the translation endpoint, in UTF-16 code units.
inline constexpr qsizetype kGestureTextLimit = 1500;
// Longest text the typing mode sends.
inline constexpr qsizetype kTypingTextLimit = 300;

// The text unchanged when it fits, else its first maxUnits code units followed by "...".
QString cutText(const QString &text, qsizetype maxUnits);
