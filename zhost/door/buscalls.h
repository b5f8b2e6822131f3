// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonObject>
#include <QMutex>
#include <QStringList>
#include <QWaitCondition>

#include <functional>
#include <memory>
#include <thread>

/**
 * Calls whose callers wait only so long. One that takes longer goes on, on a thread of its own; there is a limited
 * number of those.
 *
 * Thread: any.
 */
class BusCalls
{
public:
    /// On a thread with the priority that calls are to have, and so the threads that they start.
    BusCalls();
    ~BusCalls();

    static constexpr int MaxCalls = 16; // at a time

    /// Answers why it has failed, null if it has not.
    using Deed = std::function<QString(QJsonObject *out)>;
    struct Call;
    /// Null if there are too many.
    std::shared_ptr<Call> begin(const QString &name, const Deed &deed);

    struct Result
    {
        enum End
        {
            Done,
            Failed,
            Late
        } end = Late;
        QString reason; ///< null if it is done
        QJsonObject out;
    };
    Result wait(const std::shared_ptr<Call> &call, int deadlineMs);

    /// Nobody waits any more. Answers the names of those that have not ended, after waiting a while for them.
    QStringList end(int patienceMs);

    struct Counts
    {
        quint64 calls = 0;
        quint64 failures = 0;
    };
    Counts counts() const;

private:
    Q_DISABLE_COPY(BusCalls)
    struct State;
    static void startAll(const std::shared_ptr<State> &state);
    static void run(const std::shared_ptr<State> &state, const std::shared_ptr<Call> &call, const Deed &deed);

    const std::shared_ptr<State> m_state; // a call may end after us
    std::thread m_starter;
};
