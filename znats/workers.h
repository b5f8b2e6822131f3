// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDeadlineTimer>
#include <QJsonObject>
#include <QThreadPool>

#include <atomic>
#include <functional>

/**
 * The threads that answer calls. One that waits for an answer itself gives its place to another: else calls that go
 * round between processes would wait for each other.
 *
 * Thread:  any.
 * Failure: false: too much waits already.
 */
class Workers
{
public:
    /// So many `threads` work at once, and at most `most` pieces of work wait or run.
    Workers(int threads, int most);

    bool start(std::function<void()> work);
    /// Whether all that was started has ended.
    bool waitDone(const QDeadlineTimer &deadline);
    QJsonObject describe() const;

    /// The calling thread, which is one of these, only waits as long as this lives.
    class Away
    {
    public:
        explicit Away(Workers *workers);
        ~Away();

    private:
        Q_DISABLE_COPY(Away)
        Workers *const m_workers;
    };

private:
    QThreadPool m_pool;
    const int m_most;
    std::atomic<int> m_count{0}; // of what waits or runs
    std::atomic<int> m_running{0};
};
