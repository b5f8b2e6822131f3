// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "timetableentry.h"

#include <QDateTime>
#include <QMutex>

#include <zscheduledactivity.h>

class ZDbus;
class ZLogger;

/**
 * A call of the bus that knows when it is due, and warns of its end, unless that is wanted.
 *
 * Thread: any; that of an activity waits and runs.
 */
class TimetableActivity : public ZDbusActivity
{
public:
    /// `index` names it in warnings.
    TimetableActivity(const TimetableEntry &entry, int index, ZDbus *dbus, ZLogger *logger);
    ~TimetableActivity() override;

    bool wait() override;
    bool run() override;
    void cancel() override;

    enum State
    {
        Idle, ///< nobody has begun with it yet
        Waiting,
        Running,
        Ended
    };
    struct Status
    {
        State state = Idle;
        QDateTime time; ///< of the next run, or of the beginning of the one that runs
        QString end;    ///< why it has ended
        bool isCancelled = false;
        int runs = 0;       ///< of those that have come back
        int failures = 0;   ///< of those that nobody handled, or that have thrown
        int inARow = 0;     ///< of failures, up to the last run
        QDateTime last;     ///< when the last run began
        double lastMs = 0;  ///< how long it took
        QString lastReason; ///< why it failed; null if it did not
    };
    Status status() const;
    /// Goes on counting where another one has ended.
    void inherit(const TimetableActivity &before);

    const TimetableEntry &entry() const { return m_entry; }
    int index() const;
    void setIndex(int index);
    /// Whether it is what `entry` asks for, now and later: one that is to repeat has not ended.
    bool does(const TimetableEntry &entry) const;
    /// It never begins, for there is no room.
    void refuse(const QString &reason) { end(reason); }

    /// Makes it count as running, unless it does so already: false then. To be followed by `callNow`.
    bool beginNow();
    /// Makes the call on the calling thread, whenever it is due; counts it as a run. Answers why it was not handled,
    /// null if it was.
    QString callNow();
    /// Instead of it.
    void endNow();

    /// The entry, and since when it runs or when it will run next.
    QJsonObject describe() const;

private:
    QString call();
    void enter(State state, const QDateTime &time);
    void end(const QString &reason);

    const TimetableEntry m_entry;
    ZDbus *const m_dbus;
    ZLogger *const m_logger;
    QString m_told;         // of the last warning; its own thread's
    mutable QMutex m_mutex; // guards all that follow
    int m_index;
    bool m_isCancelled = false;
    bool m_isCalledNow = false;
    Status m_status;
};
