#pragma once

#include "typing/TextGrowthRule.h"

#include <QTextEdit>

// The typing panel's input field: a wrapping plain-text field that wants the height of its
// text, line by line, up to 100 pixels, and reports that through its size hint; the panel
// applies it. Return does not break the line: it is the field's action (returnPressed).
// An edit starts at the user's first key or paste and ends when the field is hidden; text
// set by code outside an edit leaves the size alone. Main thread.
class TSTTextGrowth : public QTextEdit
{
    Q_OBJECT

public:
    explicit TSTTextGrowth(QWidget *parent = nullptr);

    QString stringValue() const { return toPlainText(); }
    // Selects the whole text, so that typing replaces it.
    void selectText();

    bool isEditing() const { return m_rule.isEditing(); }
    void textDidBeginEditing();
    void textDidEndEditing();

    // The intrinsic content size.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    void returnPressed();
    // A change made by the user while editing (never one made by code).
    void textDidChange();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void insertFromMimeData(const QMimeData *source) override;
    void hideEvent(QHideEvent *event) override;

private:
    void onTextChanged();

    mutable TextGrowthRule m_rule;
};
