#pragma once

#include "platform/atspi/UIElement.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// What capture tests do to the target applications, through the same AT-SPI thread as the
// code under test.
namespace CaptureTestHelpers {

// The element's text.
QString valueText(const UIElement &element);

// Sets a text element's whole text and waits until it reports it.
bool setText(const UIElement &element, const QString &text);

// Selects length units from start in a text element and waits until it reports that
// selection (length 0: any empty selection).
bool select(const UIElement &element, int start, int length);

// Clicks the element's middle, as a user would to give it the keyboard, and waits until it
// reports the focus.
bool clickToFocus(const UIElement &element);

// The fixtures' windows of one --mode each, which print "POINT <x> <y> <paragraph>" once
// their chosen paragraph is shown: a GTK 3 notebook of text views, GTK 3 and Qt 6 long
// documents scrolled to their end, VTE terminals in a notebook, a Qt 6 text view under a
// hidden bar. Paths from the test desktop's environment.
struct PointedWindow
{
    QString name;
    QString program;
    QStringList arguments;
};
QList<PointedWindow> pointedWindows();

// Starts one of them as an X11 client with its accessibility on.
void startPointedWindow(QProcess &process, const PointedWindow &window);

// Clipboard contents: (format, bytes) in the order offered.
using ClipboardFormats = QList<QPair<QString, QByteArray>>;

// Another application's clipboard: tolkaro-clipboard-owner (at `probePath`) owning the
// formats until it loses the clipboard or is stopped.
class ClipboardOwner
{
public:
    explicit ClipboardOwner(const QString &probePath) : m_probePath(probePath) {}
    ~ClipboardOwner() { stop(); }

    // True once another application reads the formats (the owner announces itself before
    // its ownership has reached the X server: until then the previous owner answers).
    bool own(const ClipboardFormats &formats);
    void stop();

    // How the clipboard as other applications read it now differs from what was owned (a
    // format's bytes, the list of formats); empty when it is the same.
    QString changes() const;

private:
    QString m_probePath;
    QTemporaryDir m_files;
    QProcess m_process;
    ClipboardFormats m_formats;
    QStringList m_targets;
};

} // namespace CaptureTestHelpers
