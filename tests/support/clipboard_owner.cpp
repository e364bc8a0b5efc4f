// Another application's clipboard for the capture tests: puts each FILE's bytes on the
// clipboard under its FORMAT, prints "OWNING" and serves them until it loses the clipboard
// or is terminated.
//
//   tolkaro-clipboard-owner FORMAT=FILE...

#include <QClipboard>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QTextStream>

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    auto *data = new QMimeData;
    for (const QString &pair : app.arguments().mid(1)) {
        const qsizetype equals = pair.indexOf(u'=');
        QFile file(pair.mid(equals + 1));
        if (equals <= 0 || !file.open(QIODevice::ReadOnly))
            return 2;
        data->setData(pair.left(equals), file.readAll());
    }
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->setMimeData(data, QClipboard::Clipboard);
    QObject::connect(clipboard, &QClipboard::dataChanged, &app, [clipboard, &app] {
        if (!clipboard->ownsClipboard())
            app.quit();
    });
    QTextStream(stdout) << "OWNING" << Qt::endl;
    return app.exec();
}
