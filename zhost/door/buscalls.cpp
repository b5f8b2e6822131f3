// SPDX-License-Identifier: Apache-2.0
#include "buscalls.h"

#include "signalmask.h"

#include <QDeadlineTimer>
#include <QMutexLocker>

#include <deque>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <pthread.h>

struct BusCalls::State
{
    void end(const std::shared_ptr<Call> &call, const Result &result);

    QMutex mutex; // guards all members, and the content of the calls
    QWaitCondition wanted, ended;
    std::deque<std::pair<std::shared_ptr<Call>, Deed>> toStart;
    QStringList running;
    Counts counts;
    bool isEnding = false;
};

struct BusCalls::Call
{
    QString name;
    Whose whose;
    std::optional<Result> result;
};

void BusCalls::State::end(const std::shared_ptr<Call> &call, const Result &result)
{
    const QMutexLocker locker(&mutex);
    running.removeOne(call->name);
    if (result.end == Result::Failed && call->whose == Users)
        ++counts.failures;
    call->result = result;
    ended.wakeAll();
}

BusCalls::BusCalls() : m_state(std::make_shared<State>())
{
    try {
        m_starter = std::thread([state = m_state] { startAll(state); });
    } catch (const std::system_error &) { // then there will be no room for a call either
    }
}

BusCalls::~BusCalls()
{
    end(0);
    if (m_starter.joinable())
        m_starter.join();
}

/// Starts all calls. A thread gets the priority of the one that starts it. So the threads that answer must not start
/// them: their priority is lower, and could not be raised again.
void BusCalls::startAll(const std::shared_ptr<State> &state)
{
    pthread_setname_np(pthread_self(), "zhost calls");
    leaveSignals();
    QMutexLocker locker(&state->mutex);
    while (!state->isEnding) {
        if (state->toStart.empty()) {
            state->wanted.wait(&state->mutex);
            continue;
        }
        auto [call, deed] = std::move(state->toStart.front());
        state->toStart.pop_front();
        locker.unlock();
        try {
            std::thread(run, state, call, std::move(deed)).detach();
        } catch (const std::system_error &) {
            state->end(call, {Result::Failed, QStringLiteral("there is no room for one more thread"), {}});
        }
        locker.relock();
    }
}

void BusCalls::run(const std::shared_ptr<State> &state, const std::shared_ptr<Call> &call, const Deed &deed)
{
    pthread_setname_np(pthread_self(), "zhost call");
    takeSignals();
    Result result;
    result.reason = deed(&result.out);
    result.end = result.reason.isNull() ? Result::Done : Result::Failed;
    state->end(call, result);
}

std::shared_ptr<BusCalls::Call> BusCalls::begin(const QString &name, const Deed &deed, Whose whose)
{
    const std::shared_ptr<State> state = m_state;
    const auto call = std::make_shared<Call>(Call{name, whose, {}});
    const QMutexLocker locker(&state->mutex);
    if (state->isEnding || !m_starter.joinable() || state->running.size() >= MaxCalls)
        return {};
    state->toStart.emplace_back(call, deed);
    state->wanted.wakeOne();
    state->running.append(name);
    if (whose == Users)
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
    decltype(State::toStart) dropped; // destroyed after the lock is released
    const QMutexLocker locker(&m_state->mutex);
    m_state->isEnding = true;
    m_state->wanted.wakeOne();
    m_state->ended.wakeAll();
    dropped.swap(m_state->toStart);
    for (const auto &each : dropped)
        m_state->running.removeOne(each.first->name);
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
