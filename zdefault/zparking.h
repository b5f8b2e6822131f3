// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zreference.h"

#include <QSharedPointer>

/**
 * Delays the end of components that are exchanged. As long as a `ZParking` is in scope, the components that its thread
 * parks stay alive; the outermost one lets all of them go when it goes out of scope.
 *
 * The destructor of a component may wait for a job or a thread of its own, and that may want a lock which the exchange
 * holds. Also, the component may be the one that is working further up on the stack. So each lock under which others'
 * code runs has a `ZParking` that outlives it.
 *
 * Ownership: shares what is parked.
 * Thread:    each thread has its own.
 * Failure:   none.
 */
class ZParking
{
public:
    ZParking();
    ~ZParking();

    /// Whether this thread is in such a scope: then it must not destroy anything that has nothing to do with its work.
    static bool isOpen();
    /// Keeps `reference` until the outermost scope of this thread ends. There must be one.
    static void park(const QSharedPointer<ZReference> &reference);

private:
    Q_DISABLE_COPY(ZParking)
};
