#include "platform/sway/SwayIpc.h"

#include <QLocalServer>
#include <QSemaphore>
#include <QLocalSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cstring>

// Sway's IPC over a socket of our own: requests framed as sway reads them, replies read
// back whole, and the focused window found in the tree wherever it lies.
class TestSwayIpc : public QObject
{
    Q_OBJECT

private slots:
    void focusedWindow_data()
    {
        QTest::addColumn<QByteArray>("tree");
        QTest::addColumn<qint64>("expectedPid"); // 0: none
        QTest::addColumn<bool>("expectedX11");
        QTest::addColumn<QString>("expectedClass");
        const QByteArray workspace =
            R"({"id":1,"nodes":[{"id":2,"type":"workspace","focused":%W,"nodes":[
                 {"id":3,"pid":10,"shell":"xdg_shell","app_id":"org.gnome.gedit","focused":%N}],
               "floating_nodes":[{"id":4,"pid":20,"shell":"xwayland","focused":%X,
                 "window_properties":{"class":"Firefox"}}]}]})";
        auto tree = [&](const char *w, const char *n, const char *x) {
            return QByteArray(workspace).replace("%W", w).replace("%N", n).replace("%X", x);
        };
        QTest::newRow("a native window") << tree("false", "true", "false") << qint64(10) << false
                                         << QStringLiteral("org.gnome.gedit");
        QTest::newRow("a floating X11 window") << tree("false", "false", "true") << qint64(20)
                                               << true << QStringLiteral("Firefox");
        QTest::newRow("an empty workspace") << tree("true", "false", "false") << qint64(0) << false
                                            << QString();
    }
    void focusedWindow()
    {
        QFETCH(QByteArray, tree);
        QFETCH(qint64, expectedPid);
        QFETCH(bool, expectedX11);
        QFETCH(QString, expectedClass);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("sway.sock"));
        // The server answers from its own thread: the client blocks on the socket.
        QByteArray request;
        QSemaphore listening;
        std::unique_ptr<QThread> thread(QThread::create([&] {
            QLocalServer server;
            server.listen(path);
            listening.release();
            if (!server.waitForNewConnection(2000))
                return;
            QLocalSocket *peer = server.nextPendingConnection();
            while (request.size() < 14 && peer->waitForReadyRead(2000))
                request += peer->readAll();
            QByteArray reply("i3-ipc");
            const quint32 header[] = {quint32(tree.size()), 4};
            reply.append(reinterpret_cast<const char *>(header), sizeof header).append(tree);
            // In two pieces, as a large tree arrives.
            peer->write(reply.left(10));
            peer->waitForBytesWritten(2000);
            peer->write(reply.mid(10));
            peer->waitForBytesWritten(2000);
            peer->waitForDisconnected(2000);
        }));
        thread->start();
        listening.acquire();
        const std::optional<SwayIpc::Window> window = SwayIpc(path).focusedWindow();
        thread->wait();
        quint32 type = 0;
        std::memcpy(&type, request.constData() + 10, sizeof type);
        QCOMPARE(request.left(6), QByteArray("i3-ipc"));
        QCOMPARE(type, quint32(4));
        QCOMPARE(window ? window->pid : 0, expectedPid);
        if (window) {
            QCOMPARE(window->x11, expectedX11);
            QCOMPARE(window->windowClass, expectedClass);
        }
    }
};

QTEST_GUILESS_MAIN(TestSwayIpc)
#include "tst_swayipc.moc"
