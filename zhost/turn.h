// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "timetableentry.h"

#include <QWeakPointer>

#include <zreference.h>

#include <functional>

class ZLease;

/**
 * Whose turn it is to make a call of the schedule that several hosts have, and one of them is to make: the turn of the
 * one that has the lease. Each period "every" since 1970 is a slot.
 *
 * Thread:  one at a time.
 * Failure: nobody's turn.
 */
class Turn
{
public:
    /// `lease` is not owned; null if nobody has ever served it.
    Turn(const TimetableEntry &entry, ZLease *lease);

    /// Wants the lease from whoever serves `ZLease` now, unless that is done. True if it had to be done.
    bool want();
    /// Does not want it any more.
    void forget();

    enum Whose
    {
        Mine,
        Theirs,
        Unknown ///< Nobody can tell.
    };
    /// Whether the call may be made now. If not, `reason` says why. Waits a while for a lease that is wanted only now,
    /// unless `isCancelled` is true.
    Whose begin(QString *reason, const std::function<bool()> &isCancelled);

private:
    Whose ask(QString *reason);

    const TimetableEntry m_entry;
    ZLease *const m_lease;
    QWeakPointer<ZReference> m_wantedFrom; // another one may never have heard of it
};
