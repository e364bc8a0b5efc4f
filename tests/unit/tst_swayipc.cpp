#include "platform/sway/SwayIpc.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

// Sway's IPC over a socket of our own: the request framed as sway reads it, a reply that
// arrives in pieces read back whole, and the focused window found wherever it lies.
class TestSwayIpc : public QObject
{
    Q_OBJECT

private slots:
    void focusedWindow_data()
    {
        QTest::addColumn<QByteArray>("focused"); // which node: workspace, native or x11
        QTest::addColumn<QString>("expected");   // "pid x11 class", empty for none
        QTest::newRow("a native window") << QByteArray("native") << "10 0 org.gnome.gedit";
        QTest::newRow("a floating X11 window") << QByteArray("x11") << "20 1 Firefox";
        QTest::newRow("an empty workspace") << QByteArray("workspace") << QString();
    }
    void focusedWindow()
    {
        QFETCH(QByteArray, focused);
        QFETCH(QString, expected);
        const QByteArray tree =
            QByteArray(R"({"id":1,"nodes":[{"id":2,"type":"workspace","focused":workspace,"nodes":[
                 {"id":3,"pid":10,"shell":"xdg_shell","app_id":"org.gnome.gedit","focused":native}],
               "floating_nodes":[{"id":4,"pid":20,"shell":"xwayland","focused":x11,
                 "window_properties":{"class":"Firefox"}}]}]})")
                .replace(":" + focused, ":true")
                .replace(":workspace", ":false")
                .replace(":native", ":false")
                .replace(":x11", ":false");
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("sway.sock"));
        QByteArray request;
        QSemaphore listening;
        std::unique_ptr<QThread> server(QThread::create([&] {
            QLocalServer server;
            server.listen(path);
            listening.release();
            if (!server.waitForNewConnection(2000))
                return;
            QLocalSocket *peer = server.nextPendingConnection();
            while (request.size() < 14 && peer->waitForReadyRead(2000))
                request += peer->readAll();
            const quint32 header[] = {quint32(tree.size()), 4};
            const QByteArray reply =
                QByteArray("i3-ipc").append(reinterpret_cast<const char *>(header), 8).append(tree);
            for (const QByteArray &piece : {reply.left(10), reply.mid(10)}) {
                peer->write(piece);
                peer->waitForBytesWritten(2000);
            }
            peer->waitForDisconnected(2000);
        }));
        server->start();
        listening.acquire();
        const std::optional<SwayIpc::Window> window = SwayIpc(path).focusedWindow();
        server->wait();
        const quint32 getTree[] = {0, 4};
        QCOMPARE(request, QByteArray("i3-ipc").append(reinterpret_cast<const char *>(getTree), 8));
        QCOMPARE(window ? QStringLiteral("%1 %2 %3")
                              .arg(window->pid)
                              .arg(window->x11)
                              .arg(window->windowClass)
                        : QString(),
                 expected);
    }
};

QTEST_GUILESS_MAIN(TestSwayIpc)
#include "tst_swayipc.moc"
