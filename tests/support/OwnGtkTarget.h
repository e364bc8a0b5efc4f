#pragma once

#include <QPoint>
#include <QProcess>

#include <csignal>

// A GTK target window of a test's own, beside the desktop's shared ones, for faults that
// must not spoil those: stopped, killed, or started on an accessibility bus that came back.
class OwnGtkTarget
{
public:
    // A point on its label (the window stands at 620,40; the label at its top).
    static constexpr QPoint kLabelPoint{700, 100};

    explicit OwnGtkTarget(const QString &label)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("GDK_BACKEND"), QStringLiteral("x11"));
        m_process.setProcessEnvironment(environment);
        m_process.start(QStringLiteral("/usr/bin/python3"),
                        {qEnvironmentVariable("TOLKARO_GTK_TARGET"), QStringLiteral("--title"),
                         QStringLiteral("Own target"), QStringLiteral("--label"), label,
                         QStringLiteral("--geometry"), QStringLiteral("620,40,500,300")});
    }
    ~OwnGtkTarget()
    {
        ::kill(pid(), SIGCONT);
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    pid_t pid() const { return pid_t(m_process.processId()); }

private:
    QProcess m_process;
};
