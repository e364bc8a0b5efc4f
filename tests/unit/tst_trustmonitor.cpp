// The accessibility trust monitor against a real accessibility bus launcher (started on the
// private session bus of dbus-run-session) and a key source that can be made uninstallable:
// the trust question follows IsEnabled as another program sets it, and the monitor's checks
// drive the status menu, the key monitor, the permission dialog (once), the refusal and the
// fatal alert in the right order. The check period is shortened; the tests wait for checks
// to happen, they never time them. On the same private bus, the shortcut fallback told to the
// user: once per change, through a notification server when one runs, else in a dialog.

#include "DataRows.h"

#include "common/Log.h"
#include "platform/ModifierKeyMonitor.h"
#include "settings/Preferences.h"
#include "system/AccessibilityTrust.h"
#include "system/DesktopNotifier.h"
#include "system/ShortcutFallbackNotice.h"
#include "system/TrustAlerts.h"
#include "system/TrustMonitor.h"
#include "system/UsageReporter.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr std::chrono::milliseconds kShortCheckPeriod{30};

// A key source that installs where the session allows it.
class FakeKeySource : public ModifierKeyMonitor
{
public:
    explicit FakeKeySource(bool installable) : m_installable(installable) {}
    bool install() override { return m_installed = m_installable; }
    void remove() override { m_installed = false; }
    bool isInstalled() const override { return m_installed; }
    bool canInstall() const override { return m_installable; }

private:
    bool m_installable;
    bool m_installed = false;
};

// Alerts answered from a list, each one written to the journal.
class ScriptedAlerts : public TrustAlerts
{
public:
    ScriptedAlerts(QStringList &journal, QList<bool> answers)
        : m_journal(journal), m_answers(answers)
    {
    }
    bool askForPermission() override
    {
        m_journal << QStringLiteral("ask");
        return m_answers.isEmpty() ? false : m_answers.takeFirst();
    }
    void showRefusalAlert() override { m_journal << QStringLiteral("refusal alert"); }
    void showMonitorFailureAlert() override { m_journal << QStringLiteral("failure alert"); }

private:
    QStringList &m_journal;
    QList<bool> m_answers;
};

using Actions = QMap<int, QString>; // after check N: "revoke", "grant" or "menu item"

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

class TestTrustMonitor : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run under dbus-run-session");
        // The first call starts the launcher, which on a busy machine may outlast one call.
        QTRY_VERIFY_WITH_TIMEOUT(m_otherProgram.setAccessibilityEnabled(true), 30000);
    }

    void cleanup()
    {
        tolkaro::setLogSink({});
        QVERIFY(m_otherProgram.setAccessibilityEnabled(true));
    }

    void checksDriveMenusMonitorAndAlerts_data()
    {
        DataRows::addColumns<bool, bool, QList<bool>, Actions, int, QStringList>(
            "enabledAtStart", "monitorInstallable", "answers", "actions", "checks", "expected");

        const QString notTrusted = QStringLiteral("log: Checking... Tolkaro is not trusted");
        const QString trustedMenu = QStringLiteral("menu: trusted");
        const QString untrustedMenu = QStringLiteral("menu: not trusted");
        const QString listening = QStringLiteral("checked: trusted, monitor installed");
        const QString waiting = QStringLiteral("checked: not trusted, no monitor");
        const QString agreed = QStringLiteral("usage: ") +
                               QString::fromLatin1(UsageEvents::kAccessibilityConsentGiven);
        const QString declined = QStringLiteral("usage: ") +
                                 QString::fromLatin1(UsageEvents::kAccessibilityConsentDeclined);

        QTest::newRow("trusted at start: no dialog, monitor kept, menu set every time")
            << true << true << QList<bool>{} << Actions{} << 3
            << QStringList{trustedMenu, listening, trustedMenu, listening, trustedMenu, listening};
        QTest::newRow("not trusted at start, the user agrees: accessibility switched on")
            << false << true << QList<bool>{true} << Actions{} << 2
            << QStringList{notTrusted, untrustedMenu, "ask",    agreed,
                           waiting,    trustedMenu,   listening};
        QTest::newRow("not trusted at start, the user declines: refusal and the end")
            << false << true << QList<bool>{false} << Actions{} << 0
            << QStringList{notTrusted, untrustedMenu,   "ask",
                           declined,   "refusal alert", "terminate"};
        QTest::newRow("revoked and granted again: monitor removed and back, no second dialog")
            << false << true << QList<bool>{true} << Actions{{2, "revoke"}, {4, "grant"}} << 5
            << QStringList{notTrusted,  untrustedMenu, "ask",      agreed,        waiting,
                           trustedMenu, listening,     notTrusted, untrustedMenu, waiting,
                           notTrusted,  untrustedMenu, waiting,    trustedMenu,   listening};
        QTest::newRow("the menu item switches accessibility on")
            << false << true << QList<bool>{true} << Actions{{2, "revoke"}, {3, "menu item"}} << 4
            << QStringList{notTrusted,    untrustedMenu, "ask",       agreed,
                           waiting,       trustedMenu,   listening,   notTrusted,
                           untrustedMenu, waiting,       trustedMenu, listening};
        // No key monitor in this session: no permission can help, so no dialog and no menu,
        // whether trusted or not.
        QTest::newRow("not trusted and no key monitor can be installed: fatal alert, never asked")
            << false << false << QList<bool>{} << Actions{} << 0
            << QStringList{"failure alert", "terminate"};
    }

    void checksDriveMenusMonitorAndAlerts()
    {
        auto [enabledAtStart, monitorInstallable, answers, actions, checks, expected] =
            DataRows::fetch<bool, bool, QList<bool>, Actions, int, QStringList>(
                "enabledAtStart", "monitorInstallable", "answers", "actions", "checks", "expected");

        QStringList journal;
        tolkaro::setLogSink(
            [&](const QString &line) { journal << QStringLiteral("log: ") + line; });
        QVERIFY(m_otherProgram.setAccessibilityEnabled(enabledAtStart));

        FakeKeySource monitor(monitorInstallable);
        AccessibilityTrust trust([&] { return monitor.canInstall(); });
        ScriptedAlerts alerts(journal, answers);
        TrustMonitor::Hooks hooks;
        hooks.showStatusMenu = [&](bool trusted) {
            journal << QStringLiteral("menu: ") + (trusted ? "trusted" : "not trusted");
        };
        hooks.reportUsageEvent = [&](const QString &event) { journal << "usage: " + event; };
        hooks.terminate = [&] { journal << QStringLiteral("terminate"); };
        auto trustMonitor =
            std::make_unique<TrustMonitor>(trust, monitor, alerts, hooks, kShortCheckPeriod);

        int checksDone = 0;
        connect(trustMonitor.get(), &TrustMonitor::checked, this, [&](bool trusted) {
            journal << QStringLiteral("checked: %1, %2")
                           .arg(trusted ? "trusted" : "not trusted",
                                monitor.isInstalled() ? "monitor installed" : "no monitor");
            ++checksDone;
            const QString action = actions.value(checksDone);
            if (action == QLatin1String("revoke") || action == QLatin1String("grant"))
                QVERIFY(m_otherProgram.setAccessibilityEnabled(action == QLatin1String("grant")));
            else if (action == QLatin1String("menu item"))
                trustMonitor->makeTrustedMenuItem();
        });

        trustMonitor->startRegularlyCheckingIfProcessIsTrusted();
        if (checks > 0) {
            QVERIFY(QTest::qWaitFor([&] { return checksDone >= checks; }, 20000));
            QVERIFY(!journal.contains(QStringLiteral("terminate")));
        } else {
            // The process would be gone: no check may follow, however long one waits.
            QTest::qWait(int(kShortCheckPeriod.count()) * 5);
            QCOMPARE(checksDone, 0);
        }
        QCOMPARE(trustMonitor->hasShownPermissionDialog(), !answers.isEmpty());
        trustMonitor.reset(); // no further checks
        QCOMPARE(journal.mid(0, expected.size()), expected);
        if (checks == 0)
            QCOMPARE(journal.size(), expected.size());
    }

    void toldOncePerChange_data()
    {
        // starts: the notes of each run of Tolkaro
        DataRows::addColumns<QList<QStringList>, QStringList>("starts", "told");

        const QString altSpace =
            QStringLiteral("Alt+Space is used by another program; Ctrl+Alt+Space "
                           "opens the typing mode for now.");
        const QString superT = QStringLiteral("Super+T is used by another program; Ctrl+Alt+Space "
                                              "opens the typing mode for now.");
        QTest::newRow("the same fallback at every start: told once")
            << QList<QStringList>{{altSpace}, {altSpace}, {altSpace}}
            << QStringList{altSpace + kWhere};
        QTest::newRow("another shortcut taken: told again")
            << QList<QStringList>{{altSpace, superT}}
            << QStringList{altSpace + kWhere, superT + kWhere};
        QTest::newRow("freed, then taken again at a later start: told again")
            << QList<QStringList>{{altSpace, QString()}, {altSpace}}
            << QStringList{altSpace + kWhere, altSpace + kWhere};
        QTest::newRow("the wanted shortcut bound: nothing told")
            << QList<QStringList>{{QString()}, {QString()}} << QStringList{};
    }

    void toldOncePerChange()
    {
        auto [starts, told] = DataRows::fetch<QList<QStringList>, QStringList>("starts", "told");

        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Tolkaro.conf"));
        QStringList toldNow;
        for (const QStringList &notes : starts) {
            Preferences preferences(path);
            ShortcutFallbackNotice notice(preferences,
                                          std::make_unique<RecordingNotifier>(toldNow));
            for (const QString &note : notes)
                notice.tell(note);
        }
        QCOMPARE(toldNow, told);
        // Nothing to tell writes nothing.
        QCOMPARE(QFile::exists(path), !told.isEmpty());
    }

    void notificationServerElseDialog_data()
    {
        QTest::addColumn<bool>("serverRuns");
        QTest::newRow("a notification server runs: one Notify, no dialog") << true;
        QTest::newRow("no notification server: a dialog") << false;
    }

    void notificationServerElseDialog()
    {
        QFETCH(bool, serverRuns);

        // The server on a connection of its own, as another process would be.
        QDBusConnection serverBus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("server"));
        RecordingNotificationServer server;
        if (serverRuns) {
            QVERIFY(serverBus.registerObject(QString::fromLatin1(FreedesktopNotifier::kPath),
                                             &server, QDBusConnection::ExportAllSlots));
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

private:
    // A settings panel or a screen reader setting IsEnabled.
    AccessibilityTrust m_otherProgram{{}};
};

QTEST_MAIN(TestTrustMonitor)
#include "tst_trustmonitor.moc"
