#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QString>

#include <optional>

// A client of sway's IPC socket ($SWAYSOCK): one blocking request per call, each on its own
// connection, so no event of the compositor is ever left unread. Main thread only.
class SwayIpc
{
public:
    struct Window
    {
        qint64 id = 0; // sway's container id
        qint64 pid = 0;
        bool x11 = false;
        QString windowClass; // the X11 class or the Wayland app id
    };

    explicit SwayIpc(QString socketPath);

    bool isValid() const { return !m_socketPath.isEmpty(); }
    // The window holding the keyboard focus, whoever owns it.
    std::optional<Window> focusedWindow() const;
    // Runs a sway command (such as "[con_id=7] focus"); true when sway did.
    bool run(const QString &command) const;

    // The focused window in a reply to GET_TREE.
    static std::optional<Window> focusedWindowInTree(const QJsonDocument &tree);

private:
    std::optional<QJsonDocument> request(quint32 type, const QByteArray &payload) const;

    QString m_socketPath;
};
