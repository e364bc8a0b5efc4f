#include "controller/AccessibilityTextSource.h"

#include "capture/AccessibilityManager.h"
#include "settings/Preferences.h"

AccessibilityTextSource::AccessibilityTextSource(Preferences &preferences)
    : m_preferences(preferences)
{
}

bool AccessibilityTextSource::isBooksAppActive()
{
    // The list is read at every gesture, so an edit of the settings file takes effect at once.
    return AccessibilityManager::isBooksAppActive(m_preferences.keystrokeCaptureApplications());
}

std::optional<QString> AccessibilityTextSource::getStringForBooksApp()
{
    return AccessibilityManager::getStringForBooksApp();
}

CapturedText AccessibilityTextSource::getStringForCurrentUIElement()
{
    return AccessibilityManager::getStringForCurrentUIElement();
}

void AccessibilityTextSource::pasteIntoApplicationThatContains(const UIElement &element,
                                                               const QString &text)
{
    AccessibilityManager::clickPasteMenuCommandForApplicationThatContainsAXElement(element, text);
}

void AccessibilityTextSource::pasteIntoActiveApplication(const QString &text)
{
    AccessibilityManager::clickPasteMenuCommandForApplicationAXElement(
        AccessibilityManager::getActiveApplicationElement(), text);
}
