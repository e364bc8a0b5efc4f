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

    // The topmost window containing a point, skipping those of one process.
    static std::optional<Window> topmostAt(const QList<Window> &windows, const QPoint &point,
                                           qint64 skippedPid);
    // A "windows" report; nothing when it is not one (the old list stays then).
    static std::optional<QList<Window>> parseWindows(const QString &json);
    // The script as loaded, with the bus name and object it calls back filled in.
    static QString scriptSource(const QString &service);

public slots:
    // Called by the script.
    Q_SCRIPTABLE void pointer(const QString &json);
    Q_SCRIPTABLE void windows(const QString &json);

private:
    bool fromKWin() const;
    void awaitFirstReports();

    QDBusConnection m_bus;
    QString m_kwinOwner;
    QString m_scriptPath;
    bool m_loaded = false;
    std::optional<QPoint> m_pointer;
    QList<Window> m_windows;
    bool m_windowsReported = false;
    std::optional<Window> m_othersActive;
    std::function<void()> m_firstReports;
};
