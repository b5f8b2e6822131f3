// SPDX-License-Identifier: Apache-2.0
#include "timetable.h"

#include "services.h"

#include <QJsonObject>
#include <QMutexLocker>

#include <algorithm>

namespace {

/// False if there is no room for it.
bool schedule(const QSharedPointer<TimetableActivity> &activity, const ZServices &services)
{
    if (services.scheduler->schedule0(activity) || activity->status().state != TimetableActivity::Idle)
        return true;
    activity->refuse(QStringLiteral("there was no room for one more thread"));
    return false;
}

} // namespace

QStringList Timetable::follow(const QJsonValue &section, const ZServices &services, const FurtherServices &further)
{
    QVector<QSharedPointer<TimetableActivity>> before = activities();
    QVector<QSharedPointer<TimetableActivity>> all;
    QVector<QSharedPointer<TimetableActivity>> added;
    const QJsonArray entries = section.toArray();
    for (int i = 0; i < entries.size(); ++i) {
        QStringList problems;
        const TimetableEntry entry = TimetableEntry::read(entries.at(i), &problems);
        if (!problems.isEmpty())
            continue;
        const auto same =
            std::find_if(before.begin(), before.end(), [&](const auto &activity) { return activity->does(entry); });
        if (same != before.end()) {
            (*same)->setIndex(i);
            all.append(*same);
            before.erase(same);
        } else {
            added.append(QSharedPointer<TimetableActivity>::create(entry, i, services, further));
            all.append(added.last());
        }
    }
    {
        const QMutexLocker locker(&m_mutex);
        m_activities = all;
    }
    for (const auto &activity : qAsConst(before))
        activity->cancel();
    QStringList refused;
    for (const auto &activity : qAsConst(added)) {
        if (!schedule(activity, services))
            refused.append(activity->name());
    }
    return refused;
}

void Timetable::cancel()
{
    const QVector<QSharedPointer<TimetableActivity>> all = activities();
    for (const QSharedPointer<TimetableActivity> &activity : all)
        activity->cancel();
}

QJsonArray Timetable::describe() const
{
    QJsonArray result;
    const QVector<QSharedPointer<TimetableActivity>> all = activities();
    for (const QSharedPointer<TimetableActivity> &activity : all)
        result.append(activity->describe());
    return result;
}

QVector<QSharedPointer<TimetableActivity>> Timetable::activities() const
{
    const QMutexLocker locker(&m_mutex);
    return m_activities;
}

QSharedPointer<TimetableActivity> Timetable::activity(int index) const
{
    const QVector<QSharedPointer<TimetableActivity>> all = activities();
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto &one) { return one->index() == index; });
    return found == all.end() ? QSharedPointer<TimetableActivity>() : *found;
}

QSharedPointer<TimetableActivity> Timetable::restart(const QSharedPointer<TimetableActivity> &ended,
                                                     const ZServices &services, const FurtherServices &further)
{
    const auto again = QSharedPointer<TimetableActivity>::create(ended->entry(), ended->index(), services, further);
    again->inherit(*ended);
    {
        const QMutexLocker locker(&m_mutex);
        const auto place = std::find(m_activities.begin(), m_activities.end(), ended);
        if (place == m_activities.end())
            return {};
        *place = again;
    }
    return schedule(again, services) ? again : QSharedPointer<TimetableActivity>();
}
