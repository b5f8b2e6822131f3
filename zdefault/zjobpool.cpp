// SPDX-License-Identifier: Apache-2.0
#include "zjobpool.h"

#include <QMutexLocker>

ZJob::ZJob(Counter first, Counter second) : m_first(std::move(first)), m_second(std::move(second)) {}

ZJob::~ZJob() = default;

ZJobPool::ZJobPool(int maxThreads, int expiryTimeout) : m_stop(ZJob::Counter::create(0))
{
    if (maxThreads > 0)
        m_threads.setMaxThreadCount(maxThreads);
    if (expiryTimeout > 0)
        m_threads.setExpiryTimeout(expiryTimeout);
}

ZJobPool::~ZJobPool() = default;

void ZJobPool::start(QSharedPointer<ZJob> job, bool force, int priority)
{
    if (!force) {
        m_threads.start(job.data(), priority);
        return;
    }
    if (!job) // the loop below would never end
        return;
    const QMutexLocker locker(&m_startLock);
    while (!m_threads.tryStart(job.data()))
        m_threads.setMaxThreadCount(m_threads.maxThreadCount() + 1);
}

bool ZJobPool::tryStart(QSharedPointer<ZJob> job) { return m_threads.tryStart(job.data()); }

void ZJobPool::cancel(QSharedPointer<ZJob> job)
{
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED // its successor does not tell whether the job was queued a second time
        m_threads.cancel(job.data());
    QT_WARNING_POP
}

void ZJobPool::clear() { m_threads.clear(); }

bool ZJobPool::waitAll(int msecs, bool stop)
{
    if (stop) {
        const QMutexLocker locker(&m_startLock);
        m_stop->ref();
    }
    return m_threads.waitForDone(msecs);
}

ZJob::Counter ZJobPool::stopCounter() const { return m_stop; }

ZJobPool::operator unsigned long() const { return static_cast<unsigned long>(m_threads.activeThreadCount()); }
