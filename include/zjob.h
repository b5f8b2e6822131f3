// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QAtomicInteger>
#include <QRunnable>
#include <QSharedPointer>

/**
 * A unit of work for a `ZJobPool`; a concrete job implements `run()`.
 *
 * Ownership: a pool keeps the raw pointer only, and deletes the job after it has run. If you hold the job by a
 *            `QSharedPointer`, call `setAutoDelete(false)` before you hand it in, or it is deleted twice; and hold it
 *            until it has run, or was cancelled.
 * Thread:    `run()` is called on a thread of the pool.
 * Failure:   for the job to handle.
 */
class ZDEFAULT_EXPORT ZJob : public QRunnable
{
public:
    using Counter = QSharedPointer<QAtomicInteger<int>>;

    /// Shares two counters with the caller. What they mean is up to `run()`.
    ZJob(Counter first, Counter second);
    ~ZJob() override;

protected:
    const Counter m_first;
    const Counter m_second;
};
