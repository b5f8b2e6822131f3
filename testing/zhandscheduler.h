// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zowned.h"
#include "zscheduler.h"

#include <QMutex>
#include <QStringList>
#include <QVector>

/**
 * A scheduler that has no threads and reads no clock: the test says when activities are due. Their `wait()` is never
 * called.
 *
 * Ownership: as any component. Shares an activity until its `run()` returns false, or until the scheduler is
 *            destroyed. It cannot see that an activity was cancelled: its `run()` is called once more.
 * Thread:    any; activities run on the thread that ticks.
 * Failure:   false for a null activity. If an activity throws, the caller gets the exception, and the activity stays.
 */
class ZHandScheduler : public QObject, public ZScheduler, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZScheduler)

public:
    ZHandScheduler();
    ~ZHandScheduler() override;

    bool schedule0(QSharedPointer<ZScheduledActivity> activity) override;

    /// Runs each activity once, in the order in which they were scheduled, and lets go of those that return false.
    /// Returns how many have run. Activities that are scheduled meanwhile run at the next tick.
    int tick();
    /// The same for the activities of this name.
    int tick(const QString &name);
    /// The names of all scheduled activities, in order.
    QStringList names() const;

private:
    friend class ZPluginFixture;
    using Activities = QVector<QSharedPointer<ZScheduledActivity>>;

    Activities all() const;
    int run(const Activities &due);

    mutable QMutex m_mutex;
    Activities m_activities;
};
