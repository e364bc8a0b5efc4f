#pragma once

#include <QString>

// Some e-book readers copy a selection as the passage in quotation marks, a blank line and
// an attribution. This returns the passage alone: the part before the last blank line,
// trimmed, without its first and last character. Text without a blank line comes back
// exactly as copied. Applied only to the text of the applications read by keystrokes.
QString cleanUpCopiedPassage(const QString &copied);
