// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"
#include "zjob.h"

#include <QAtomicInteger>
#include <QMutex>
#include <QSharedPointer>
#include <QThreadPool>

/**
 * A pool for short jobs, with threads of its own.
 *
 * Ownership: owns no job: see `ZJob`. The destructor waits for the jobs that run.
 * Thread:    any.
 * Failure:   false.
 */
class ZDEFAULT_EXPORT ZJobPool
{
public:
    /// `maxThreads` and `expiryTimeout` (milliseconds) of 0 or less mean Qt's defaults.
    ZJobPool(int maxThreads, int expiryTimeout);
    ~ZJobPool();

    /// Runs `job` as soon as a thread is free; jobs of higher `priority` come first. With `force` the job starts at
    /// once: if all threads are busy, the pool's maximum grows by one, and stays so. Jobs that are queued take new
    /// threads first, so the maximum grows by one for each of them as well.
    void start(QSharedPointer<ZJob> job, bool force, int priority);
    /// Starts `job` if a thread is free. Otherwise returns false; the job is not queued.
    bool tryStart(QSharedPointer<ZJob> job);
    /// Takes `job` out of the queue, if it has not started.
    void cancel(QSharedPointer<ZJob> job);
    /// Empties the queue.
    void clear();
    /// Waits until no job runs or is queued, for at most `msecs` milliseconds; -1 is without limit. With `stop` it
    /// first raises the stop counter by one, which jobs that share it may watch.
    bool waitAll(int msecs, bool stop);
    /// The stop counter: starts at 0, and goes up by one with each `waitAll()` that stops. A job compares it with the
    /// value that it had when the job began.
    ZJob::Counter stopCounter() const;
    /// How many jobs run at the moment.
    operator unsigned long() const;

private:
    Q_DISABLE_COPY(ZJobPool)

    const ZJob::Counter m_stop;
    QThreadPool m_threads;
    QMutex m_startLock; // for one forced start at a time
};
