// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "timetableactivity.h"

#include <QJsonArray>
#include <QMutex>
#include <QSharedPointer>
#include <QStringList>
#include <QVector>

class Services;

/// What the section "schedule" has running.
class Timetable
{
public:
    /// Schedules every entry that can be; what is wrong with the others is for `Configuration` to tell. Of what is
    /// scheduled already, what the section has goes on, and the rest is cancelled. Answers the names of those for which
    /// there was no room.
    QStringList follow(const QJsonValue &section, const Services &services);
    void cancel();
    QJsonArray describe() const;

    /// All that were scheduled by the section as it is, in its order.
    QVector<QSharedPointer<TimetableActivity>> activities() const;
    /// The one with the index `index`; null if there is none.
    QSharedPointer<TimetableActivity> activity(int index) const;
    /// Schedules `ended` once more. Null if there is no room for it, or it is no entry of the section any more.
    QSharedPointer<TimetableActivity> restart(const QSharedPointer<TimetableActivity> &ended, const Services &services);

private:
    mutable QMutex m_mutex; // guards m_activities: the first to run may ask for a description while others are added
    QVector<QSharedPointer<TimetableActivity>> m_activities;
};
