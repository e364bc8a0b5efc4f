#pragma once

#include "controller/TranslationController.h"

class Preferences;

// The controller's view of other applications, read and written through accessibility:
// the text under the pointer with the element it came from, the selection of
// keystroke-captured applications, and the paste into the application of an element.
class AccessibilityTextSource : public TextSource
{
public:
    explicit AccessibilityTextSource(Preferences &preferences);

    bool isBooksAppActive() override;
    std::optional<QString> getStringForBooksApp() override;
    CapturedText getStringForCurrentUIElement() override;
    void pasteIntoApplicationThatContains(const UIElement &element, const QString &text) override;

    // Pastes into the application that is active now (the typing mode's paste).
    static void pasteIntoActiveApplication(const QString &text);

private:
    Preferences &m_preferences;
};
