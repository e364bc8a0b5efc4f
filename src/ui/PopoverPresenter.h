#pragma once

#include "presentation/TranslationPresenter.h"

#include <QObject>

class Platform;
class PopOverViewController;
class TranslationPopover;

// Presents the translation popover at the pointer for the translation controller (and the
// D-Bus test commands): owns its long-lived content, makes its window once and keeps it,
// and knows whether it is on screen. The pointer comes from the platform's locator. Main
// thread only.
class PopoverPresenter : public QObject, public TranslationPresenter
{
    Q_OBJECT
public:
    explicit PopoverPresenter(Platform &platform, QObject *parent = nullptr);
    ~PopoverPresenter() override;

    // Creates the content, then (from the event loop, out of the start-up's way) the window,
    // so that the first gesture is as quick as the others.
    void prepare();

    bool isPopoverShown() const override { return m_popover != nullptr; }
    void displayPopOverWithText(const QString &text, const QPoint &position) override;
    void hidePopOver() override;
    void setAnimatedStringValue(const QString &text) override;
    void setAnimatedGrayStringValue(const QString &text) override;
    QPoint pointerPosition() const override;
    // The service that answered, in small gray text under the translation; empty: none.
    void setServiceNote(const QString &note);

    PopOverViewController *popOverViewController() const { return m_popOverViewController; }
    // The popover window while it is displayed, else null. A click elsewhere hides the
    // window but leaves this set until hidePopOver().
    TranslationPopover *popover() const { return m_popover; }

private:
    TranslationPopover *popoverWindow();

    Platform &m_platform;
    PopOverViewController *m_popOverViewController = nullptr;
    TranslationPopover *m_popoverWindow = nullptr;
    TranslationPopover *m_popover = nullptr;
};
