// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QSemaphore>
#include <QString>
#include <QTime>

/**
 * When something is due.
 *
 * Ownership: shared by those who use it.
 * Thread:    `wait()` blocks its caller; `cancel()` is called on any other thread.
 * Failure:   false: stop for good.
 */
class ZSchedule
{
public:
    virtual ~ZSchedule() {}
    /// A readable description.
    virtual QString name() const = 0;
    /// Waits until the next run is due. False when there is none: the schedule was cancelled, or never runs.
    virtual bool wait() = 0;
    /// Ends one `wait()`: the one that is waiting, or else the next.
    virtual void cancel() = 0;
};

/// Is due every so many milliseconds, counted from the call of `wait()`, and so from the end of the run before. Never
/// due if the number is less than 1. Otherwise as `ZSchedule`.
class ZDEFAULT_EXPORT ZPeriodicSchedule : public ZSchedule
{
public:
    explicit ZPeriodicSchedule(int period);
    ~ZPeriodicSchedule() override;

    QString name() const override;
    bool wait() override;
    void cancel() override;

protected:
    /// Waits for so many milliseconds. False when cancelled.
    bool sleep(int msecs);

    QSemaphore m_semaphore; // has one resource for each cancel
    const int m_period;
};

/**
 * Is due every so many milliseconds within a daily window of local time: first when the window opens, and then as long
 * as a whole period fits before its end.
 *
 * A window whose `from` is later than its `to` crosses midnight. Its part after midnight counts only for a `wait()`
 * that began before midnight. When clocks are changed, a time within the gap comes as long after the end of the gap as
 * it lies after its beginning; of a time that comes twice, the first counts. Otherwise as `ZSchedule`.
 */
class ZDEFAULT_EXPORT ZDailySchedule : public ZPeriodicSchedule
{
public:
    ZDailySchedule(const QTime &from, const QTime &to, int period);
    ~ZDailySchedule() override;

    QString name() const override;
    bool wait() override;

private:
    const QTime m_from;
    const QTime m_to;
};
