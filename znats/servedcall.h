// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDeadlineTimer>

class Workers;

/// The remote call that the current thread answers: calls that it makes meanwhile are part of it.
struct ServedCall
{
    ServedCall(int hops, const QDeadlineTimer &deadline, Workers *workers);
    ~ServedCall();

    /// Null if the thread answers none.
    static const ServedCall *current();

    const int hops; ///< how many processes it has come through
    const QDeadlineTimer deadline;
    Workers *const workers;

private:
    Q_DISABLE_COPY(ServedCall)
    const ServedCall *const m_outer;
};
