// SPDX-License-Identifier: Apache-2.0
#include "activitybook.h"

#include "codefile.h"

#include <QMutexLocker>

#include <zcaught.h>

#include <algorithm>

void ActivityBook::scheduled(const QSharedPointer<ZScheduledActivity> &activity)
{
    QString name;
    zCaught([&] { name = activity->name(); });
    name = QString(name.constData(), name.size()); // a literal of a plugin's would go with its file
    const QMutexLocker locker(&m_mutex);
    m_activities.erase(std::remove_if(m_activities.begin(), m_activities.end(),
                                      [](const Activity &one) { return one.activity.isNull(); }),
                       m_activities.end());
    m_activities.append({activity, name, classFile(*activity)});
}

QVector<QSharedPointer<ZScheduledActivity>> ActivityBook::activities(const QString &file) const
{
    QVector<QSharedPointer<ZScheduledActivity>> result;
    const QMutexLocker locker(&m_mutex);
    for (const Activity &one : m_activities) {
        if (one.file != file)
            continue;
        if (const QSharedPointer<ZScheduledActivity> alive = one.activity.toStrongRef())
            result.append(alive);
    }
    return result;
}

QStringList ActivityBook::names(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    QStringList result;
    for (const Activity &one : m_activities) {
        if (one.file == file && !one.activity.isNull())
            result.append(one.name);
    }
    return result;
}

bool RecordingScheduler::schedule0(QSharedPointer<ZScheduledActivity> activity)
{
    if (!ZDefaultScheduler::schedule0(activity))
        return false;
    m_book->scheduled(activity); // it may have ended already
    return true;
}
