#pragma once

#include <QPoint>
#include <QByteArray>
#include <QString>

#include <optional>

struct xcb_connection_t;

// What capture asks the X server: which top-level window is under the pointer, which process
// owns a window, who owns the PRIMARY selection and how often it changed hands (XFixes
// notifications, the only events this connection selects), which window is active and what
// its class is, and whether modifier keys are down. Uses its own X connection; main thread only.
class X11WindowQueries
{
public:
    explicit X11WindowQueries(const QString &displayName = QString());
    ~X11WindowQueries();
    X11WindowQueries(const X11WindowQueries &) = delete;
    X11WindowQueries &operator=(const X11WindowQueries &) = delete;

    bool isValid() const { return m_connection != nullptr; }
    // The XRes extension answers, so windows without _NET_WM_PID still have an owner.
    bool hasXRes() const { return m_hasXRes; }

    struct Window
    {
        unsigned long id = 0;
        qint64 pid = 0;
        // The client window's top-left corner on the screen.
        QPoint origin;
    };

    // The topmost viewable top-level window containing the point (screen pixels) whose
    // process is not `excludedPid`, with the client window inside a window-manager frame.
    std::optional<Window> topLevelWindowAt(const QPoint &point, qint64 excludedPid);
    // _NET_WM_PID, else the process of the X client that created the window (XRes); 0 when
    // neither answers.
    qint64 processIdOfWindow(unsigned long window);
    // How many times the PRIMARY selection has changed hands (or been given up) since this
    // connection began watching it (XFixes); 0 always without XFixes.
    quint64 primarySelectionChanges();
    // PRIMARY's text as its owner converts it to UTF8_STRING; nothing when it has no owner,
    // does not answer within 0.3 s, or sends it incrementally.
    std::optional<QByteArray> primarySelectionUtf8();
    // The window is `ancestor` or lies inside it.
    bool isWindowWithin(unsigned long window, unsigned long ancestor);
    // The window owning a selection ("PRIMARY", "CLIPBOARD"), 0 when none.
    unsigned long selectionOwner(const char *selection);
    // _NET_ACTIVE_WINDOW of the window manager, 0 when none.
    unsigned long activeWindow();
    // The class part of WM_CLASS ("Gimp", "firefox"), empty when unset.
    QString windowClass(unsigned long window);
    // Any Shift, Control, Alt or Super key is down right now.
    bool modifierKeysDown();
    // The pointer in screen pixels.
    std::optional<QPoint> pointerPosition();

private:
    unsigned long clientWindowOf(unsigned long frame);
    void watchPrimarySelection();
    void countSelectionNotify(quint8 responseType);

    unsigned long internAtom(const char *name);

    xcb_connection_t *m_connection = nullptr;
    unsigned long m_root = 0;
    bool m_hasXRes = false;
    quint8 m_selectionNotifyEvent = 0;
    quint64 m_primaryChanges = 0;
    // The window PRIMARY is converted to, made at the first read.
    quint32 m_requestor = 0;
};
