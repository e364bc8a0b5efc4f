#pragma once

#include "settings/Preferences.h"
#include "typing/EditTimers.h"

#include <QObject>
#include <QPointer>

#include <functional>

class QLabel;
class QPropertyAnimation;
class Platform;
class QToolButton;
class SpotlightWindow;
class TSTTextGrowth;

// The typing panel's controller: opens and closes the panel, sizes it to its fields, and
// tells its coordinator what the user did by signals: editingFinished half a second after
// the last edit or on Return with nothing translated yet, enterPressed on Return with a
// translation shown, shortcutPressed when the typing-mode shortcut is pressed while the
// panel holds the keyboard. It knows nothing of translation: the coordinator hands it the
// text to show (expandWithDetailsText). Main thread.
class SpotlightWindowController : public QObject
{
    Q_OBJECT

public:
    // The panel's width and where it first appears (the user may drag it elsewhere).
    static constexpr int kPanelWidth = 560;
    static constexpr qreal kCornerRadius = 8.0;

    explicit SpotlightWindowController(Platform &platform, QObject *parent = nullptr);
    ~SpotlightWindowController() override;

    SpotlightWindow *window() const { return m_window; }
    TSTTextGrowth *inputTextField() const { return m_inputTextField; }
    QLabel *detailsTextField() const { return m_detailsTextField; }
    bool isExpanded() const { return m_isExpanded; }
    bool isVisible() const;

    // Lets the panel recognise the shortcut while it holds the keyboard, to close on it.
    void setShortcutSource(std::function<StoredShortcut()> source);

public slots:
    // Shows the panel when hidden (old text selected, details collapsed), else closes it.
    void toggle();
    void close();
    void expandWithDetailsText(const QString &text);
    // Small gray text under the translation naming the service that gave it; none when
    // empty.
    void setServiceNote(const QString &note);
    void shrinkDetails();
    // Height from the fields, keeping the top edge where it is.
    void updateViewSize();
    void toggleButton();
    void searchTextFieldEnterPressed();
    void controlTextDidChange();
    void controlTextDidEndEditing() {}
    void cancelOperation();
    void windowDidResignKey();
    // After a close: if the panel had to take the focus, give it back to the window that was
    // active before, so that a paste goes there.
    void returnActivation();

signals:
    void editingFinished(const QString &text);
    void enterPressed(const QString &translation);
    // The typing-mode shortcut while the panel holds the keyboard (the desktop-wide binding
    // does not fire then): the coordinator closes the panel the way it opens it.
    void shortcutPressed();

private:
    void windowDidLoad();
    void layoutFields();
    void postEditingFinished();
    void closeWindow();

    SpotlightWindow *m_window = nullptr;
    TSTTextGrowth *m_inputTextField = nullptr;
    QLabel *m_detailsTextField = nullptr;
    QLabel *m_serviceNoteField = nullptr;
    QToolButton *m_toggleButton = nullptr;
    bool m_isExpanded = false;
    EditTimers m_timers;
    QPropertyAnimation *m_resizeAnimation = nullptr;
};
