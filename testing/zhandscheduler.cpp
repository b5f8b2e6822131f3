// SPDX-License-Identifier: Apache-2.0
#include "zhandscheduler.h"

#include "zscheduledactivity.h"
#include "ztexts.h"

#include <QMutexLocker>

#include <algorithm>
#include <iterator>

ZHandScheduler::ZHandScheduler() = default;

ZHandScheduler::~ZHandScheduler() = default;

bool ZHandScheduler::schedule0(QSharedPointer<ZScheduledActivity> activity)
{
    if (!activity)
        return false;
    const QMutexLocker locker(&m_mutex);
    m_activities.append(std::move(activity));
    return true;
}

int ZHandScheduler::tick() { return run(all()); }

int ZHandScheduler::tick(const QString &name)
{
    const Activities activities = all();
    Activities due;
    std::copy_if(activities.begin(), activities.end(), std::back_inserter(due),
                 [&](const QSharedPointer<ZScheduledActivity> &each) { return each->name() == name; });
    return run(due);
}

QStringList ZHandScheduler::names() const
{
    QStringList names;
    const Activities activities = all();
    for (const QSharedPointer<ZScheduledActivity> &each : activities)
        names.append(zDeepCopy(each->name()));
    return names;
}

ZHandScheduler::Activities ZHandScheduler::all() const
{
    const QMutexLocker locker(&m_mutex);
    return m_activities;
}

int ZHandScheduler::run(const Activities &due)
{
    for (const QSharedPointer<ZScheduledActivity> &each : due) {
        if (each->run())
            continue;
        const QMutexLocker locker(&m_mutex);
        m_activities.removeOne(each); // does not destroy it, since `due` has it
    }
    return due.size();
}
