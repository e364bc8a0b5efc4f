#pragma once

#include <QString>

// Small tests on strings that the capture and the move-to-applications check share.
namespace StringHelpers {

// True when the text holds at least one letter or combining mark (Unicode general
// categories L and M). A null or empty string has none.
bool containsLetters(const QString &text);

// True when substring occurs anywhere in text, ignoring letter case. An empty substring
// is never found.
bool hasCaseInsensitiveSubstring(const QString &text, const QString &substring);

} // namespace StringHelpers
