// SPDX-License-Identifier: Apache-2.0
#pragma once

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
