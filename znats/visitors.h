// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDeadlineTimer>
#include <QMutex>
#include <QSet>

/**
 * The client library's threads that were in our code. To be told by such a thread that it is done is not enough to
 * unload that code: the thread has yet to return from it.
 *
 * Thread: any.
 */
class Visitors
{
public:
    /// The calling thread is about to leave, and does not wait for anything before it has left.
    void note();
    /// False if one may still be there at the end of the time.
    bool waitGone(const QDeadlineTimer &deadline);

private:
    QMutex m_mutex; // guards m_threads
    QSet<int> m_threads;
};
