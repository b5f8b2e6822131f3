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
 * Calls for callers that wait only for a limited time. A call that takes longer goes on, on a thread of its own. The
 * number of these threads is limited.
 *
 * Thread: any.
 */
class BusCalls
{
public:
    /// Make it on a thread with the priority that calls should have, and the threads that they start.
    BusCalls();
    ~BusCalls();

    static constexpr int MaxCalls = 16; // at a time

    /// Returns why it has failed; null if it has not.
    using Deed = std::function<QString(QJsonObject *out)>;
    struct Call;
    enum Whose
    {
        Users,
        Own ///< It is not counted.
    };
    /// Begins a call; null if there are too many.
    std::shared_ptr<Call> begin(const QString &name, const Deed &deed, Whose whose = Users);

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

    /// Call it when nobody waits any more. Waits a while for the calls, and returns the names of those that have not
    /// ended.
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
