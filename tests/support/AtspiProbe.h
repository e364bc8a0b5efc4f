#pragma once

#include <QList>
#include <QRect>
#include <QString>

struct _AtspiAccessible;

// One element of another application's accessibility tree, as the desktop tests read it:
// what a screen reader sees. A null element answers with empty values. Every read goes to the
// application (no cache), so a test sees the element's state at the moment it asks.
//
// libatspi is not thread-safe: use elements on the main thread only. Never hold an element of
// this process's own tree: a blocking call to oneself waits for the D-Bus timeout.
class AtspiElement
{
public:
    AtspiElement() = default;
    // Takes over one reference to `accessible`.
    explicit AtspiElement(_AtspiAccessible *accessible);
    AtspiElement(const AtspiElement &other);
    AtspiElement &operator=(const AtspiElement &other);
    ~AtspiElement();

    bool isNull() const { return m_accessible == nullptr; }
    _AtspiAccessible *accessible() const { return m_accessible; }

    QString name() const;
    // The AT-SPI role name: "entry", "text", "label", "frame", "menu item"...
    QString roleName() const;
    qint64 processId() const;

    QList<AtspiElement> children() const;
    // The first element below this one (depth first, this one included) with the name, and
    // the role name when one is given; null when there is none.
    AtspiElement find(const QString &name, const QString &roleName = QString()) const;

    // The Text interface: the whole text ("" without the interface), the selection.
    QString text() const;
    QString selectedText() const;
    // Selects characters [start, end) (in characters, not bytes or UTF-16 units).
    bool selectText(int start, int end) const;
    // The EditableText interface: replaces the whole text.
    bool setText(const QString &text) const;

    bool isFocused() const;
    // The Component interface: give the element the keyboard focus; where it is on screen.
    bool grabFocus() const;
    QRect screenRect() const;

    // The Action interface: does the action of that name.
    bool doAction(const QString &actionName) const;

private:
    _AtspiAccessible *m_accessible = nullptr;
};

// Finds other applications on the AT-SPI desktop. Main thread only (see AtspiElement).
namespace AtspiProbe {

// Connects to the accessibility bus; false when there is none to connect to.
bool init();

// The applications on the desktop, this process left out.
QList<AtspiElement> applications();
AtspiElement applicationByPid(qint64 pid);
// The test desktop's "GTK" or "QT" target application.
AtspiElement targetApplication(const QString &which);
// The top-level window of the application with this title; null when it has none (yet).
AtspiElement window(const AtspiElement &application, const QString &title);

// Sets the accessibility bus's IsEnabled as another program would (a settings panel, a
// screen reader); false when the bus did not take it.
bool setAccessibilityEnabled(bool enabled);

} // namespace AtspiProbe
