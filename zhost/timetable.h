// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QMutex>
#include <QStringList>
#include <QTime>
#include <QUrl>
#include <QVector>

#include <zscheduledactivity.h>

#include <atomic>

class Services;
class ZDbus;
class ZLogger;

/// One object of the section "schedule".
struct TimetableEntry
{
    QUrl url;
    int every = 0; // milliseconds
    QTime from;    // both, or neither
    QTime to;
    bool repeat = true;
    bool keep = false; // calls on after a call that nobody handled

    bool isDaily() const { return from.isValid(); }
    bool operator==(const TimetableEntry &other) const;

    /// Reads `value`; appends to `problems` what is wrong with it.
    static TimetableEntry read(const QJsonValue &value, QStringList *problems);
};

/// A call of the bus that knows when it is due, and warns of its end, unless that is wanted.
class TimetableActivity : public ZDbusActivity
{
public:
    /// `label` names it in warnings.
    TimetableActivity(const TimetableEntry &entry, const QString &label, ZDbus *dbus, ZLogger *logger);
    ~TimetableActivity() override;

    bool wait() override;
    bool run() override;
    void cancel() override;

    /// Whether nobody has begun with it yet.
    bool isIdle() const;
    /// Whether it is what `entry` asks for, now and later: one that is to repeat has not ended.
    bool does(const TimetableEntry &entry) const;
    void setLabel(const QString &label);
    /// The entry, and since when it runs or when it will run next.
    QJsonObject describe() const;

private:
    enum State
    {
        Idle,
        Waiting,
        Running,
        Ended
    };
    bool enter(State state, const QDateTime &time);
    QString label() const;

    std::atomic_bool m_isCancelled{false};
    const TimetableEntry m_entry;
    ZDbus *const m_dbus;
    ZLogger *const m_logger;
    QString m_failure;      // of the last call, null if it was handled; its own thread's
    mutable QMutex m_mutex; // guards the three below
    QString m_label;
    State m_state = Idle;
    QDateTime m_time; // of the next run, or of the beginning of the one that runs
};

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

private:
    QVector<QSharedPointer<TimetableActivity>> activities() const;

    mutable QMutex m_mutex; // guards m_activities: the first to run may ask for a description while others are added
    QVector<QSharedPointer<TimetableActivity>> m_activities;
};
