// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFile>
#include <QProcess>

#include <csignal>

#include <sys/prctl.h>

/// A process that ends with the one that has started it, however that ends.
class Child : public QProcess
{
public:
    void signal(int number) const
    {
        if (processId() > 0)
            ::kill(static_cast<pid_t>(processId()), number);
    }
    /// By a signal; or it has ended.
    bool isStopped() const
    {
        QFile file(QStringLiteral("/proc/%1/stat").arg(processId()));
        if (!file.open(QIODevice::ReadOnly))
            return true;
        const QByteArray text = file.readAll();
        return text.mid(text.lastIndexOf(')') + 2, 1) == "T";
    }
    /// Ends it at once, also one that is stopped.
    void end()
    {
        if (state() == NotRunning)
            return;
        kill();
        waitForFinished(10000);
    }

protected:
    void setupChildProcess() override { prctl(PR_SET_PDEATHSIG, SIGKILL); }
};
