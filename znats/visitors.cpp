// SPDX-License-Identifier: Apache-2.0
#include "visitors.h"

#include <QFile>
#include <QMutexLocker>
#include <QThread>

#include <iterator>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int PauseMs = 1;
constexpr int UnknownMs = 100; // where the system does not tell

/// Whether the thread waits for something, and so has left; or has ended.
bool isWaiting(int thread)
{
    QFile file(QStringLiteral("/proc/self/task/%1/syscall").arg(thread));
    if (!file.open(QIODevice::ReadOnly)) {
        if (QFile::exists(QStringLiteral("/proc/self/task/%1").arg(thread)) ||
            !QFile::exists(QStringLiteral("/proc/self")))
            QThread::msleep(UnknownMs);
        return true;
    }
    const QByteArray call = file.readAll(); // "running", -1 where it is stopped otherwise, or the system call's number
    return !call.isEmpty() && call.at(0) >= '0' && call.at(0) <= '9';
}

} // namespace

void Visitors::note()
{
    const QMutexLocker locker(&m_mutex);
    m_threads.insert(static_cast<int>(syscall(SYS_gettid)));
}

bool Visitors::waitGone(const QDeadlineTimer &deadline)
{
    const QMutexLocker locker(&m_mutex);
    for (;;) {
        for (auto thread = m_threads.begin(); thread != m_threads.end();)
            thread = isWaiting(*thread) ? m_threads.erase(thread) : std::next(thread);
        if (m_threads.isEmpty() || deadline.hasExpired())
            return m_threads.isEmpty();
        QThread::msleep(PauseMs);
    }
}
