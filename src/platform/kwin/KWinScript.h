#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QList>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QString>

#include <functional>
#include <optional>

// The script Tolkaro runs inside KWin, and what it reports. In a Wayland session no client
// may ask where the pointer is or which window lies under it; a KWin script may, and calls
// back over D-Bus to this object (on Tolkaro's own unique bus name) when the pointer moves
// or the windows change. load() unloads a copy left by an earlier run first; unload() runs
// when the application quits. Main thread; the reports are delivered by the main event
// loop, and only KWin's are believed.
class KWinScript : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.tolkaro.KWinScript")

public:
    struct Window
    {
        qint64 pid = 0;
        QString id; // KWin's own, for activate()
        QRect frame;
        QPoint surfaceOrigin; // where the window's own content starts (no decoration)
        int stacking = 0; // higher is nearer the top
        bool active = false;
        bool x11 = false; // an XWayland window, which knows its screen position
        QString resourceClass;
    };

    explicit KWinScript(const QDBusConnection &bus = QDBusConnection::sessionBus(),
                        QObject *parent = nullptr);
    ~KWinScript() override;

    // KWin answers on this bus (its scripting interface exists).
    bool kwinIsRunning() const;
    bool load();
    void unload();
    bool isLoaded() const { return m_loaded; }

    // The last reports; nothing before the first.
    std::optional<QPoint> pointerPosition() const { return m_pointer; }
    const QList<Window> &windows() const { return m_windows; }
    // The active window, or while one of Tolkaro's own is active (the typing panel) the
    // window active before it.
    std::optional<Window> activeWindowOfOthers() const { return m_othersActive; }

    // The window KWin has made active, Tolkaro's own included.
    std::optional<Window> activeWindow() const;
    // Asks KWin to activate a window named by its id or, for one of Tolkaro's own X11
    // windows, by its X11 id (also one about to be mapped). KWin does it a moment later;
    // false when it could not be asked.
    bool activate(const QString &id, quint64 x11Window = 0);

    // The topmost window containing a point, skipping those of one process.
    static std::optional<Window> topmostAt(const QList<Window> &windows, const QPoint &point,
                                           qint64 skippedPid);
    // A "windows" report; nothing when it is not one (the old list stays then).
    static std::optional<QList<Window>> parseWindows(const QString &json);
    // The script as loaded, with the bus name and object it calls back filled in.
    static QString scriptSource(const QString &service);
    // The one-shot script that activates a window.
    static QString activationSource(const QString &id, quint64 x11Window);

public slots:
    // Called by the script.
    Q_SCRIPTABLE void pointer(const QString &json);
    Q_SCRIPTABLE void windows(const QString &json);

private:
    bool fromKWin() const;
    bool loadAndRun(const QString &name, const QString &path, const QString &source);
    void awaitFirstReports();

    QDBusConnection m_bus;
    QString m_kwinOwner;
    QString m_scriptPath;
    QString m_activationPath;
    bool m_loaded = false;
    std::optional<QPoint> m_pointer;
    QList<Window> m_windows;
    bool m_windowsReported = false;
    std::optional<Window> m_othersActive;
    std::function<void()> m_firstReports;
};
