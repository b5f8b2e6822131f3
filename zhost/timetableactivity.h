// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "timetableentry.h"

#include <QDateTime>
#include <QMutex>

#include <zscheduledactivity.h>

class ZDbus;
class ZLogger;

/**
 * A call of the bus on a timetable. When it ends, it logs a warning, unless the end was wanted.
 *
 * Thread: any; the activity's own thread waits and runs.
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
    /// Takes over the counts of another one, which has ended.
    void inherit(const TimetableActivity &before);

    const TimetableEntry &entry() const { return m_entry; }
    int index() const;
    void setIndex(int index);
    /// Whether it does what `entry` asks for: then an entry that repeats has not ended.
    bool does(const TimetableEntry &entry) const;
    /// Ends it before it has begun, since there is no room.
    void refuse(const QString &reason) { end(reason); }

    /// Marks it as running; false if it is so already. Call `callNow` afterwards.
    bool beginNow();
    /// Makes the call on the calling thread, even if it is not due; counts it as a run. Returns why it was not handled;
    /// null if it was.
    QString callNow();
    /// Call it instead of `callNow`, if the call is not to be made.
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
    QString m_told;         // the text of the last warning; for its own thread only
    mutable QMutex m_mutex; // guards all that follow
    int m_index;
    bool m_isCancelled = false;
    bool m_isCalledNow = false;
    Status m_status;
};
