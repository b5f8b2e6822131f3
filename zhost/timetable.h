// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "timetableactivity.h"

#include <QJsonArray>
#include <QMutex>
#include <QSharedPointer>
#include <QStringList>
#include <QVector>

class FurtherServices;
class ZServices;

/// Runs the calls of the section "schedule".
class Timetable
{
public:
    /// Schedules all valid entries; `Configuration` reports the others. Of the entries that are scheduled already,
    /// those that the section still has go on, and the rest is cancelled. Returns the names of the entries for which
    /// there was no room.
    QStringList follow(const QJsonValue &section, const ZServices &services, const FurtherServices &further);
    void cancel();
    QJsonArray describe() const;

    /// All activities of the current section, in its order.
    QVector<QSharedPointer<TimetableActivity>> activities() const;
    /// The activity with the index `index`; null if there is none.
    QSharedPointer<TimetableActivity> activity(int index) const;
    /// Schedules `ended` again. Null if there is no room for it, or the section does not have the entry any more.
    QSharedPointer<TimetableActivity> restart(const QSharedPointer<TimetableActivity> &ended, const ZServices &services,
                                              const FurtherServices &further);

private:
    mutable QMutex m_mutex; // guards m_activities: the first to run may ask for a description while others are added
    QVector<QSharedPointer<TimetableActivity>> m_activities;
};
