#include "typing/TSTTextGrowth.h"

#include <QAbstractTextDocumentLayout>
#include <QKeyEvent>

#include <cmath>

TSTTextGrowth::TSTTextGrowth(QWidget *parent) : QTextEdit(parent)
{
    setAcceptRichText(false);
    setFrameShape(QFrame::NoFrame);
    setLineWrapMode(QTextEdit::WidgetWidth);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setTabChangesFocus(true);
    document()->setDocumentMargin(2);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    connect(this, &QTextEdit::textChanged, this, &TSTTextGrowth::onTextChanged);
}

void TSTTextGrowth::selectText()
{
    selectAll();
}

void TSTTextGrowth::textDidBeginEditing()
{
    m_rule.setEditing(true);
}

void TSTTextGrowth::textDidEndEditing()
{
    m_rule.setEditing(false);
}

QSize TSTTextGrowth::sizeHint() const
{
    if (m_rule.answersStoredSize())
        return m_rule.lastIntrinsicSize().toSize();
    const QSize inherited = QTextEdit::sizeHint();
    // The laid-out text's height, as the field shows it, plus the frame around it.
    const qreal usedTextHeight =
        document()->documentLayout()->documentSize().height() + 2 * frameWidth();
    const QSizeF size = m_rule.intrinsicSize(QSizeF(inherited), std::ceil(usedTextHeight));
    return QSize(int(size.width()), int(size.height()));
}

QSize TSTTextGrowth::minimumSizeHint() const
{
    return QSize(0, sizeHint().height());
}

void TSTTextGrowth::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        emit returnPressed();
        return;
    }
    if (!event->text().isEmpty() || event->matches(QKeySequence::Paste) ||
        event->key() == Qt::Key_Backspace || event->key() == Qt::Key_Delete)
        textDidBeginEditing();
    QTextEdit::keyPressEvent(event);
}

void TSTTextGrowth::insertFromMimeData(const QMimeData *source)
{
    textDidBeginEditing();
    QTextEdit::insertFromMimeData(source);
}

void TSTTextGrowth::hideEvent(QHideEvent *event)
{
    textDidEndEditing();
    QTextEdit::hideEvent(event);
}

void TSTTextGrowth::onTextChanged()
{
    if (!isEditing())
        return;
    updateGeometry();
    emit textDidChange();
}
