// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"
#include "zschedule.h"

#include <QSharedPointer>
#include <QString>
#include <QUrl>

class ZDbus;

/**
 * Something that is done on a timetable: a schedule, and an action, which a derived class defines.
 *
 * Ownership: shares its schedule; its thread and the one who scheduled it share the activity.
 * Thread:    `wait()` and `run()` are called on a thread of its own; `cancel()` is called on any other thread.
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
    /// Does the action once. False when that was the last time.
    virtual bool run() = 0;

protected:
    const QSharedPointer<ZSchedule> m_schedule;
};

/// An activity that calls the bus, with neither request nor answer. Otherwise as `ZScheduledActivity`.
class ZDEFAULT_EXPORT ZDbusActivity : public ZScheduledActivity
{
public:
    /// With `repeat` it goes on until nobody handles a call; without, it runs once. `dbus` is not owned.
    ZDbusActivity(QSharedPointer<ZSchedule> schedule, ZDbus *dbus, const QUrl &url, bool repeat);
    ~ZDbusActivity() override;

    QString name() const override;
    bool run() override;

private:
    ZDbus *const m_dbus;
    const QUrl m_url;
    const bool m_repeat;
};
