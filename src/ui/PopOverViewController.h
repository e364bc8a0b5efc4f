#pragma once

#include <QObject>
#include <QPointer>

class PopoverTextField;
class QLabel;
class QWidget;

// The content of the translation popover: one view holding one text field. Created once
// at start-up and kept for the life of the process; each display of the popover shows
// this same view, so the field keeps the last text between gestures.
class PopOverViewController : public QObject
{
    Q_OBJECT
public:
    explicit PopOverViewController(QObject *parent = nullptr);
    ~PopOverViewController() override;

    // Builds the view and its field; later calls do nothing.
    void loadView();
    bool isViewLoaded() const { return m_view != nullptr; }

    QWidget *view() const { return m_view; }
    PopoverTextField *textField() const { return m_textField; }
    // Small gray text under the translation naming the service that gave it; hidden when
    // empty.
    void setServiceNote(const QString &note);
    QLabel *serviceNote() const { return m_serviceNote; }

private:
    QPointer<QWidget> m_view;
    QPointer<PopoverTextField> m_textField;
    QPointer<QLabel> m_serviceNote;
};
