#include "ui/PopoverPresenter.h"

#include "platform/Platform.h"
#include "platform/PointerLocator.h"
#include "ui/AnimatedSetString.h"
#include "ui/PopOverViewController.h"
#include "ui/PopoverTextField.h"
#include "ui/TranslationPopover.h"

#include <QCursor>
#include <QTimer>

PopoverPresenter::PopoverPresenter(Platform &platform, QObject *parent)
    : QObject(parent), m_platform(platform)
{
}

PopoverPresenter::~PopoverPresenter()
{
    delete m_popoverWindow;
}

void PopoverPresenter::prepare()
{
    if (!m_popOverViewController) {
        m_popOverViewController = new PopOverViewController(this);
        m_popOverViewController->loadView();
    }
    QTimer::singleShot(0, this, [this] {
        if (TranslationPopover *window = popoverWindow())
            window->prepare();
    });
}

TranslationPopover *PopoverPresenter::popoverWindow()
{
    if (!m_popoverWindow && m_popOverViewController) {
        m_popOverViewController->loadView();
        m_popoverWindow = new TranslationPopover(m_popOverViewController->view(), m_platform);
    }
    return m_popoverWindow;
}

void PopoverPresenter::displayPopOverWithText(const QString &text, const QPoint &position)
{
    TranslationPopover *window = popoverWindow();
    if (!window)
        return;
    AnimatedSetString::setStringValue(m_popOverViewController->textField(), text);
    window->showAtPoint(position);
    m_popover = window;
}

void PopoverPresenter::hidePopOver()
{
    if (m_popover)
        m_popover->closePopover();
    m_popover = nullptr;
}

void PopoverPresenter::setAnimatedStringValue(const QString &text)
{
    if (m_popOverViewController)
        AnimatedSetString::setAnimatedStringValue(m_popOverViewController->textField(), text);
}

void PopoverPresenter::setAnimatedGrayStringValue(const QString &text)
{
    if (m_popOverViewController)
        AnimatedSetString::setAnimatedAttributedStringValue(m_popOverViewController->textField(),
                                                            {text, grayTextColor()});
}

QPoint PopoverPresenter::pointerPosition() const
{
    // A session whose locator cannot tell falls back on what the toolkit knows.
    return m_platform.pointerLocator().pointerPosition().value_or(QCursor::pos());
}

void PopoverPresenter::setServiceNote(const QString &note)
{
    if (m_popOverViewController)
        m_popOverViewController->setServiceNote(note);
}
