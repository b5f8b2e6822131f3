// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QFile>
#include <QString>

#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

/// Has a folder locked by a process that has ended: nobody can tell what it has in memory.
class HiddenLock
{
public:
    explicit HiddenLock(const QString &folder)
        : m_descriptor(open(QFile::encodeName(folder).constData(), O_RDONLY | O_CLOEXEC))
    {
        const pid_t locker = fork();
        if (locker == 0)
            std::_Exit(flock(m_descriptor, LOCK_EX));
        int status = -1;
        m_isHeld = waitpid(locker, &status, 0) == locker && status == 0;
    }
    ~HiddenLock() { close(m_descriptor); }

    bool isHeld() const { return m_isHeld; }

private:
    Q_DISABLE_COPY(HiddenLock)
    const int m_descriptor;
    bool m_isHeld = false;
};
