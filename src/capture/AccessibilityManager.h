#pragma once

#include "capture/CapturedText.h"
#include "platform/atspi/UIElement.h"

#include <QString>
#include <QStringList>

#include <optional>

// Reads and writes text in other applications: the text under the pointer, the selection
// through the application's own Copy command, and the paste of a text into it, with the
// user's clipboard left as it was found. Class methods only: a capture returns the element
// its text came from, and the caller hands it to the paste that follows. The one state kept
// across captures is when PRIMARY last changed hands (see PrimarySelectionRule).
//
// Main thread. Capture and paste block it while they work, except for the 0.15 s settles
// after a menu press or keystroke, which run the event loop re-entrantly (callers must
// tolerate being re-entered then). AT-SPI calls run on the AT-SPI thread with short
// timeouts: an application that stops answering makes the capture fail after about one
// method-call timeout (0.2 s) instead of freezing Tolkaro.
//
// The application's selection is looked for in this order: the AT-SPI text selection of
// the element under the pointer, then of the application's focused element; the PRIMARY
// selection when the application owns it and it is fresh; then its Copy menu command
// (never a synthetic Ctrl+C, which would interrupt a program in a terminal). When the focused element speaks
// AT-SPI Text, its answer is final: an empty selection there means no selection, and both
// PRIMARY (which may hold a dropped selection) and Copy (0.15 s to find nothing) are
// skipped. Copy is pressed only for a reported focused element without Text. A program
// without accessibility gives its PRIMARY selection when the window under the pointer owns it.
class AccessibilityManager
{
public:
    // The text under the pointer: the application's selection; else, of a text of several
    // paragraphs, the paragraph under the pointer; else the longest of the element's
    // attribute texts that has a letter (its text counting whole when it is one paragraph;
    // none when nothing was found). With it the element under the pointer (or the active
    // window), where a paste of it goes.
    static CapturedText getStringForCurrentUIElement();
    // The application of the active window, or null.
    static UIElement getActiveApplicationElement();

    // Presses the Copy command (Ctrl+C, enabled) of the element's application and returns
    // what it put on the clipboard; the clipboard is restored afterwards.
    static std::optional<QString> clickCopyMenuCommandForApplicationThatContainsAXElement(
        const UIElement &element);
    // Pastes into the application of the element (a capture's target); nothing for null.
    static void clickPasteMenuCommandForApplicationThatContainsAXElement(const UIElement &element,
                                                                        const QString &text);
    // Pastes into an application: its Paste command (Ctrl+V), else EditableText on its
    // focused element (verified by reading back), else a synthetic Ctrl+V once the user's
    // modifier keys are up. The clipboard is restored afterwards.
    static void clickPasteMenuCommandForApplicationAXElement(const UIElement &applicationElement,
                                                             const QString &text);

    // The active window belongs to one of the applications (window classes) whose selection
    // is read by keystrokes.
    static bool isBooksAppActive(const QStringList &keystrokeCaptureApplications);
    // Their selection: Ctrl+C to the active window, read from the clipboard (restored
    // afterwards), cleaned up as a copied passage.
    static std::optional<QString> getStringForBooksApp();

    // The wait after a menu press or keystroke, spent in a nested event loop.
    static void settle();
};
