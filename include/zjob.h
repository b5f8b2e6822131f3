// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QAtomicInteger>
#include <QRunnable>
#include <QSharedPointer>

/**
 * A unit of work for a `ZJobPool`; a concrete job implements `run()`.
 *
 * Ownership: a pool keeps the raw pointer only. A job that is held by `QSharedPointer` calls `setAutoDelete(false)`
 *            before it is handed in, or the pool deletes what the pointer owns; and it is held until it has run, or
 *            was cancelled.
 * Thread:    `run()` is called on one of the pool's.
 * Failure:   the job's own affair.
 */
class ZDEFAULT_EXPORT ZJob : public QRunnable
{
public:
    using Counter = QSharedPointer<QAtomicInteger<int>>;

    /// Shares two counters with the caller, for `run()` to use as it likes.
    ZJob(Counter first, Counter second);
    ~ZJob() override;

protected:
    const Counter m_first;
    const Counter m_second;
};
