#include "ui/PopOverViewController.h"

#include "ui/PopoverTextField.h"

#include <QLabel>
#include <QVBoxLayout>
#include <QWidget>

namespace {
// Room around the text inside the popover's rounded body.
constexpr int kHorizontalPadding = 14;
constexpr int kVerticalPadding = 10;
// A popover line of text never gets wider than this (logical pixels): wide enough for a
// sentence, narrow enough to read at a glance.
constexpr int kMaximumTextWidth = 440;
constexpr qreal kFontScale = 1.2;
constexpr qreal kMinimumPointSize = 11.0;
} // namespace

PopOverViewController::PopOverViewController(QObject *parent) : QObject(parent) {}

PopOverViewController::~PopOverViewController()
{
    // The view may be parented into the popover window by now; whoever holds it deletes it.
    if (m_view && !m_view->parent())
        delete m_view;
}

void PopOverViewController::loadView()
{
    if (m_view)
        return;
    m_view = new QWidget;
    m_view->setObjectName(QStringLiteral("PopOverViewController"));
    auto *layout = new QVBoxLayout(m_view);
    layout->setContentsMargins(kHorizontalPadding, kVerticalPadding, kHorizontalPadding,
                               kVerticalPadding);
    m_textField = new PopoverTextField(m_view);
    m_textField->setObjectName(QStringLiteral("textField"));
    QFont font = m_textField->font();
    if (font.pointSizeF() > 0)
        font.setPointSizeF(qMax(kMinimumPointSize, font.pointSizeF() * kFontScale));
    m_textField->setFont(font);
    m_textField->setMaximumTextWidth(kMaximumTextWidth);
    layout->addWidget(m_textField);
    m_serviceNote = new QLabel(m_view);
    m_serviceNote->setObjectName(QStringLiteral("serviceNote"));
    m_serviceNote->setStyleSheet(QStringLiteral("color: gray; font-size: small;"));
    m_serviceNote->hide();
    layout->addWidget(m_serviceNote);
}

void PopOverViewController::setServiceNote(const QString &note)
{
    if (!m_serviceNote)
        return;
    m_serviceNote->setText(note);
    m_serviceNote->setVisible(!note.isEmpty());
}
