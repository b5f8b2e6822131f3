// SPDX-License-Identifier: Apache-2.0
#include "buscalls.h"

#include <QDeadlineTimer>
#include <QMutexLocker>

#include <csignal>
#include <optional>
#include <system_error>
#include <thread>

#include <pthread.h>

namespace {

/// Unlike the thread that asks: what is called may start programs, and these inherit that.
void heedSignals()
{
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

} // namespace

struct BusCalls::State
{
    void end(const std::shared_ptr<Call> &call, const Result &result);

    QMutex mutex; // guards all, and what is in the calls
    QWaitCondition ended;
    QStringList running;
    Counts counts;
    bool isEnding = false;
};

struct BusCalls::Call
{
    QString name;
    std::optional<Result> result;
};

void BusCalls::State::end(const std::shared_ptr<Call> &call, const Result &result)
{
    const QMutexLocker locker(&mutex);
    running.removeOne(call->name);
    counts.failures += result.end == Result::Failed ? 1 : 0;
    call->result = result;
    ended.wakeAll();
}

std::shared_ptr<BusCalls::State> BusCalls::makeState() { return std::make_shared<State>(); }

std::shared_ptr<BusCalls::Call> BusCalls::begin(const QString &name, const Deed &deed)
{
    const std::shared_ptr<State> state = m_state;
    const auto call = std::make_shared<Call>(Call{name, {}});
    const QMutexLocker locker(&state->mutex);
    if (state->running.size() >= MaxCalls)
        return {};
    try {
        std::thread([state, call, deed] {
            pthread_setname_np(pthread_self(), "zhost call");
            heedSignals();
            Result result;
            result.reason = deed(&result.out);
            result.end = result.reason.isNull() ? Result::Done : Result::Failed;
            state->end(call, result);
        }).detach();
    } catch (const std::system_error &) {
        return {};
    }
    state->running.append(name);
    ++state->counts.calls;
    return call;
}

BusCalls::Result BusCalls::wait(const std::shared_ptr<Call> &call, int deadlineMs)
{
    const QMutexLocker locker(&m_state->mutex);
    for (const QDeadlineTimer deadline(deadlineMs); !call->result;) {
        if (m_state->isEnding)
            return {Result::Late, QStringLiteral("the host is stopping"), {}};
        if (!m_state->ended.wait(&m_state->mutex, deadline) && !call->result)
            return {
                Result::Late, QStringLiteral("%1 has not come back within %2 ms").arg(call->name).arg(deadlineMs), {}};
    }
    return *call->result;
}

QStringList BusCalls::end(int patienceMs)
{
    const QMutexLocker locker(&m_state->mutex);
    m_state->isEnding = true;
    m_state->ended.wakeAll();
    for (const QDeadlineTimer deadline(patienceMs); !m_state->running.isEmpty();) {
        if (!m_state->ended.wait(&m_state->mutex, deadline))
            break;
    }
    return m_state->running;
}

BusCalls::Counts BusCalls::counts() const
{
    const QMutexLocker locker(&m_state->mutex);
    return m_state->counts;
}
