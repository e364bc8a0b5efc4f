#pragma once

#include <QPoint>
#include <QString>

// What the translation controller needs of the popover at the pointer. The popover
// presenter (ui) implements it; tests put a fake in its place.
class TranslationPresenter
{
public:
    virtual ~TranslationPresenter() = default;
    virtual bool isPopoverShown() const = 0;
    virtual void displayPopOverWithText(const QString &text, const QPoint &position) = 0;
    virtual void hidePopOver() = 0;
    // Cross-fades to the text in the field's normal colour; no fade when it is unchanged.
    virtual void setAnimatedStringValue(const QString &text) = 0;
    // Cross-fades to the text in gray, always (messages and errors).
    virtual void setAnimatedGrayStringValue(const QString &text) = 0;
    // The pointer in global screen coordinates.
    virtual QPoint pointerPosition() const = 0;
};
