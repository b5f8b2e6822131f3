// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"
#include "zschedule.h"

#include <QSharedPointer>
#include <QString>
#include <QUrl>

class ZDbus;

/**
 * Something that is done on a timetable: a schedule, and an action to be given by a derived class.
 *
 * Ownership: shares its schedule, and is itself shared by its thread and whoever scheduled it.
 * Thread:    `wait()` and `run()` are called on a thread of its own; `cancel()` comes from any other.
 * Failure:   false: stop for good.
 */
class ZDEFAULT_EXPORT ZScheduledActivity : public ZSchedule
{
public:
    /// Without a schedule, the activity never runs.
    explicit ZScheduledActivity(QSharedPointer<ZSchedule> schedule = {});
    ~ZScheduledActivity() override;

    QString name() const override;
    bool wait() override;
    void cancel() override;
    /// Does it once. False when that was the last time.
    virtual bool run() = 0;

protected:
    const QSharedPointer<ZSchedule> m_schedule;
};

/// Calls the bus, with neither request nor answer. Otherwise as `ZScheduledActivity`.
class ZDEFAULT_EXPORT ZDbusActivity : public ZScheduledActivity
{
public:
    /// With `repeat` it goes on until a call is handled by nobody; without, it runs once. `dbus` is not owned.
    ZDbusActivity(QSharedPointer<ZSchedule> schedule, ZDbus *dbus, const QUrl &url, bool repeat);
    ~ZDbusActivity() override;

    QString name() const override;
    bool run() override;

private:
    ZDbus *const m_dbus;
    const QUrl m_url;
    const bool m_repeat;
};
