// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "timetableentry.h"
#include "turn.h"

#include <QDateTime>
#include <QMutex>

#include <zscheduledactivity.h>

class FurtherServices;
class ZServices;

/**
 * A call of the bus on a timetable. When it ends, it logs a warning, unless the end was wanted.
 *
 * Thread: any; the activity's own thread waits and runs.
 */
class TimetableActivity : public ZDbusActivity
{
public:
    /// `index` names it in warnings.
    TimetableActivity(const TimetableEntry &entry, int index, const ZServices &services,
                      const FurtherServices &further);
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
        int skipped = 0;    ///< how often it was due, and was not this host's turn
        QString lastSkip;   ///< why it was not this host's turn the last time; null if it was
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
    /// Makes the call on the calling thread, even if it is not due, if it is this host's turn; counts it as a run.
    /// Returns why it was not handled; null if it was.
    QString callNow();
    /// Call it instead of `callNow`, if the call is not to be made.
    void endNow();

    /// The entry, and since when it runs or when it will run next.
    QJsonObject describe() const;

private:
    struct Made
    {
        QString failure; // null if it was handled, or skipped
        QString skip;    // null if it was made
    };
    Made call(Turn *turn);
    Made skip(const QString &reason);
    bool isCancelled() const;
    void enter(State state, const QDateTime &time);
    void end(const QString &reason);

    const TimetableEntry m_entry;
    const ZServices &m_services;
    const FurtherServices &m_further;
    Turn m_turn;            // for its own thread only, as the next
    QString m_told;         // the text of the last warning
    mutable QMutex m_mutex; // guards all that follow
    int m_index;
    bool m_isCancelled = false;
    bool m_isCalledNow = false;
    Status m_status;
};
