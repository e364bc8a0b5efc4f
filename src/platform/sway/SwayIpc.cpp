#include "platform/sway/SwayIpc.h"

#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QLocalSocket>

#include <cstring>

namespace {

constexpr char kMagic[] = "i3-ipc";
constexpr int kMagicSize = 6;
constexpr int kHeaderSize = kMagicSize + 8;
constexpr quint32 kRunCommand = 0;
constexpr quint32 kGetTree = 4;
// Sway answers at once; a compositor that does not must not freeze the panel.
constexpr int kReplyWaitMs = 500;

std::optional<SwayIpc::Window> findFocused(const QJsonObject &node)
{
    if (node.value(QLatin1String("focused")).toBool()) {
        if (!node.contains(QLatin1String("pid")))
            return std::nullopt; // a workspace or an output: no window has the focus
        SwayIpc::Window window;
        window.id = node.value(QLatin1String("id")).toInteger();
        window.pid = node.value(QLatin1String("pid")).toInteger();
        window.x11 = node.value(QLatin1String("shell")).toString() == u"xwayland";
        window.windowClass = window.x11 ? node.value(QLatin1String("window_properties"))
                                              .toObject()
                                              .value(QLatin1String("class"))
                                              .toString()
                                        : node.value(QLatin1String("app_id")).toString();
        return window;
    }
    for (const char *children : {"nodes", "floating_nodes"}) {
        for (const QJsonValue &child : node.value(QLatin1String(children)).toArray()) {
            if (auto window = findFocused(child.toObject()))
                return window;
        }
    }
    return std::nullopt;
}

} // namespace

SwayIpc::SwayIpc(QString socketPath) : m_socketPath(std::move(socketPath)) {}

std::optional<QJsonDocument> SwayIpc::request(quint32 type, const QByteArray &payload) const
{
    if (m_socketPath.isEmpty())
        return std::nullopt;
    QLocalSocket socket;
    socket.connectToServer(m_socketPath);
    if (!socket.waitForConnected(kReplyWaitMs))
        return std::nullopt;
    // The header's numbers are in the machine's own byte order.
    QByteArray message(kMagic, kMagicSize);
    const quint32 numbers[] = {quint32(payload.size()), type};
    message.append(reinterpret_cast<const char *>(numbers), sizeof numbers);
    message.append(payload);
    socket.write(message);
    const QDeadlineTimer deadline(kReplyWaitMs);
    QByteArray reply;
    qsizetype expected = kHeaderSize;
    while (reply.size() < expected) {
        if (!socket.bytesAvailable() && !socket.waitForReadyRead(int(deadline.remainingTime())))
            return std::nullopt;
        reply.append(socket.readAll());
        if (expected == kHeaderSize && reply.size() >= kHeaderSize) {
            if (!reply.startsWith(kMagic))
                return std::nullopt;
            quint32 length = 0;
            std::memcpy(&length, reply.constData() + kMagicSize, sizeof length);
            expected = kHeaderSize + qsizetype(length);
        }
    }
    return QJsonDocument::fromJson(reply.mid(kHeaderSize, expected - kHeaderSize));
}

std::optional<SwayIpc::Window> SwayIpc::focusedWindowInTree(const QJsonDocument &tree)
{
    return findFocused(tree.object());
}

std::optional<SwayIpc::Window> SwayIpc::focusedWindow() const
{
    const std::optional<QJsonDocument> tree = request(kGetTree, {});
    return tree ? focusedWindowInTree(*tree) : std::nullopt;
}

bool SwayIpc::run(const QString &command) const
{
    const std::optional<QJsonDocument> reply = request(kRunCommand, command.toUtf8());
    if (!reply || !reply->isArray() || reply->array().isEmpty())
        return false;
    for (const QJsonValue &result : reply->array()) {
        if (!result.toObject().value(QLatin1String("success")).toBool())
            return false;
    }
    return true;
}
