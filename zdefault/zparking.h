// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zreference.h"

#include <QSharedPointer>

/**
 * Where components that were exchanged wait for the end of what exchanged them. While one of these is in scope, what
 * its thread parks stays alive; the last that goes out of scope lets all of it go.
 *
 * A component may wait, as it dies, for a job or a thread of its own, which may want a lock that the exchange holds.
 * And it may be the very one that is at work further up on the stack. So each lock under which others' code runs has
 * one that outlives it.
 *
 * Ownership: shares what is parked.
 * Thread:    each has its own.
 * Failure:   none.
 */
class ZParking
{
public:
    ZParking();
    ~ZParking();

    /// Whether this thread is in a scope: then it must not have anything die that is none of what it does.
    static bool isOpen();
    /// Keeps `reference` until the last scope of this thread ends. There must be one.
    static void park(const QSharedPointer<ZReference> &reference);

private:
    Q_DISABLE_COPY(ZParking)
};
