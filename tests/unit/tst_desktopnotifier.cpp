// The shortcut fallback told to the user: once per change, through a notification server on
// a real (private) session bus when one runs, else in a dialog.

#include "settings/Preferences.h"
#include "system/DesktopNotifier.h"
#include "system/ShortcutFallbackNotice.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QFile>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTest>

namespace {

// A notification server as desktops run one, recording each Notify.
class RecordingNotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList calls;

public slots:
    uint Notify(const QString &appName, uint, const QString &, const QString &summary,
                const QString &body, const QStringList &, const QVariantMap &, int)
    {
        calls << appName + " | " + summary + " | " + body;
        return uint(calls.size());
    }
};

class RecordingNotifier : public DesktopNotifier
{
public:
    explicit RecordingNotifier(QStringList &told) : m_told(told) {}
    void notify(const QString &, const QString &body) override { m_told << body; }

private:
    QStringList &m_told;
};

const QString kWhere = QStringLiteral(
    " To choose another one: Tolkaro's tray menu, My Tolkaro, Keyboard Preferences...");

} // namespace

class TestDesktopNotifier : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void toldOncePerChange_data();
    void toldOncePerChange();
    void notificationServerElseDialog_data();
    void notificationServerElseDialog();
};

void TestDesktopNotifier::initTestCase()
{
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run under dbus-run-session");
}

void TestDesktopNotifier::toldOncePerChange_data()
{
    QTest::addColumn<QList<QStringList>>("starts"); // the notes of each run of Tolkaro
    QTest::addColumn<QStringList>("told");

    const QString altSpace = QStringLiteral("Alt+Space is used by another program; Ctrl+Alt+Space "
                                            "opens the typing mode for now.");
    const QString superT = QStringLiteral("Super+T is used by another program; Ctrl+Alt+Space "
                                          "opens the typing mode for now.");
    QTest::newRow("the same fallback at every start: told once")
        << QList<QStringList>{{altSpace}, {altSpace}, {altSpace}} << QStringList{altSpace + kWhere};
    QTest::newRow("another shortcut taken: told again")
        << QList<QStringList>{{altSpace, superT}}
        << QStringList{altSpace + kWhere, superT + kWhere};
    QTest::newRow("freed, then taken again at a later start: told again")
        << QList<QStringList>{{altSpace, QString()}, {altSpace}}
        << QStringList{altSpace + kWhere, altSpace + kWhere};
    QTest::newRow("the wanted shortcut bound: nothing told")
        << QList<QStringList>{{QString()}, {QString()}} << QStringList{};
}

void TestDesktopNotifier::toldOncePerChange()
{
    QFETCH(QList<QStringList>, starts);
    QFETCH(QStringList, told);

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Tolkaro.conf"));
    QStringList toldNow;
    for (const QStringList &notes : starts) {
        Preferences preferences(path);
        ShortcutFallbackNotice notice(preferences, std::make_unique<RecordingNotifier>(toldNow));
        for (const QString &note : notes)
            notice.tell(note);
    }
    QCOMPARE(toldNow, told);
    // Nothing to tell writes nothing.
    QCOMPARE(QFile::exists(path), !told.isEmpty());
}

void TestDesktopNotifier::notificationServerElseDialog_data()
{
    QTest::addColumn<bool>("serverRuns");
    QTest::newRow("a notification server runs: one Notify, no dialog") << true;
    QTest::newRow("no notification server: a dialog") << false;
}

void TestDesktopNotifier::notificationServerElseDialog()
{
    QFETCH(bool, serverRuns);

    // The server on a connection of its own, as another process would be.
    QDBusConnection serverBus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("server"));
    RecordingNotificationServer server;
    if (serverRuns) {
        QVERIFY(serverBus.registerObject(QString::fromLatin1(FreedesktopNotifier::kPath), &server,
                                         QDBusConnection::ExportAllSlots));
        QVERIFY(serverBus.registerService(QString::fromLatin1(FreedesktopNotifier::kService)));
    }

    if (!serverRuns &&
        QDBusConnection::sessionBus().interface()->activatableServiceNames().value().contains(
            QString::fromLatin1(FreedesktopNotifier::kService)))
        QSKIP("a notification server on this machine starts on demand");
    FreedesktopNotifier notifier;
    QCOMPARE(notifier.hasNotificationServer(), serverRuns);
    notifier.notify(QStringLiteral("Summary"), QStringLiteral("Body"));

    QMessageBox *dialog = nullptr;
    const auto findDialog = [&] {
        for (QWidget *widget : QApplication::topLevelWidgets())
            if (widget->objectName() == QLatin1String("DesktopNotifierDialog") &&
                widget->isVisible())
                dialog = qobject_cast<QMessageBox *>(widget);
        return dialog != nullptr;
    };
    if (serverRuns) {
        QTRY_COMPARE_WITH_TIMEOUT(server.calls.size(), 1, 10000);
        QCOMPARE(server.calls.first(), QStringLiteral("Tolkaro | Summary | Body"));
        QVERIFY(!findDialog());
        serverBus.unregisterService(QString::fromLatin1(FreedesktopNotifier::kService));
        serverBus.unregisterObject(QString::fromLatin1(FreedesktopNotifier::kPath));
    } else {
        QVERIFY(findDialog());
        QCOMPARE(dialog->text(), QStringLiteral("Summary"));
        QCOMPARE(dialog->informativeText(), QStringLiteral("Body"));
        dialog->close();
    }
    QDBusConnection::disconnectFromBus(QStringLiteral("server"));
}

QTEST_MAIN(TestDesktopNotifier)
#include "tst_desktopnotifier.moc"
