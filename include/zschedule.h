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
 * Thread:    `wait()` blocks the thread that asks; `cancel()` comes from any other.
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
    /// Ends one `wait()`: the one that is under way, or else the next.
    virtual void cancel() = 0;
};

/// Every so many milliseconds, counted from when `wait()` is called, so from the end of the run before. Never, if that
/// is less than 1. Otherwise as `ZSchedule`.
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

    QSemaphore m_semaphore; // one resource for each cancel
    const int m_period;
};

/**
 * Every so many milliseconds within a daily window of local time: at its opening, and then as long as a whole period
 * still fits before its end.
 *
 * A window whose `from` is later than its `to` crosses midnight; what lies of it after midnight serves only those who
 * began to wait before. When clocks are changed, a time that is left out that day comes as long after the gap, and of
 * a time that comes twice the first counts. Otherwise as `ZSchedule`.
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
