// SPDX-License-Identifier: Apache-2.0
#include "zgate.h"

#include <QMutexLocker>
#include <QThread>

#include <algorithm>
#include <functional>

namespace {

constexpr int PatienceMs = 10000; // of who comes while the gate is held

bool comesToItsEnd(ZGate::State state) { return state == ZGate::Draining || state == ZGate::Closing; }

} // namespace

static thread_local const ZGate::Scope *innermost = nullptr;
static thread_local int awaited = 0;

ZGate::Ticket::~Ticket() { m_gate->leave(); }

ZGate::Scope::Scope(ZGate *gate) : m_gate(gate), m_outer(innermost) { innermost = this; }

ZGate::Scope::~Scope() { innermost = m_outer; }

ZGate::Awaited::Awaited() { ++awaited; }

ZGate::Awaited::~Awaited() { --awaited; }

ZGate::State ZGate::state() const
{
    const QMutexLocker locker(&m_mutex);
    return m_state;
}

ZGate::State ZGate::enter(bool mayWait)
{
    const bool isWithin = depthHere() > 0;
    const bool isAwaited = awaited > 0 || isAwaitedHere();
    const QDeadlineTimer deadline(PatienceMs);
    const QMutexLocker locker(&m_mutex);
    for (;;) {
        const bool isLastChance = m_state == Draining && !mayWait; // it could not come again
        if (isWithin || m_state == Open || (comesToItsEnd(m_state) && isAwaited) || isLastChance)
            break;
        const bool isWorthIt = isHoldersTurn() && mayWait && m_holder != QThread::currentThreadId();
        if (!isWorthIt || !m_changed.wait(&m_mutex, deadline))
            return m_state;
    }
    ++m_tickets;
    return Open;
}

void ZGate::leave()
{
    const QMutexLocker locker(&m_mutex);
    --m_tickets;
    m_changed.wakeAll();
}

std::shared_ptr<ZGate::Ticket> ZGate::begin()
{
    const bool isWithin = depthHere() > 0;
    const QMutexLocker locker(&m_mutex);
    if (m_state != Entering && m_state != Open && !(comesToItsEnd(m_state) && isWithin))
        return {};
    ++m_tickets;
    return std::shared_ptr<Ticket>(new Ticket(this));
}

bool ZGate::change(State from, State to)
{
    const QMutexLocker locker(&m_mutex);
    if (m_state != from)
        return false;
    m_state = to;
    m_holder = QThread::currentThreadId();
    m_changed.wakeAll();
    return true;
}

void ZGate::set(State state)
{
    const QMutexLocker locker(&m_mutex);
    m_state = state;
    m_holder = QThread::currentThreadId();
    m_changed.wakeAll();
}

bool ZGate::settle(QDeadlineTimer deadline)
{
    const QMutexLocker locker(&m_mutex);
    while (isHoldersTurn()) {
        if (m_holder == QThread::currentThreadId() || !m_changed.wait(&m_mutex, deadline))
            return false;
    }
    return true;
}

bool ZGate::drain(QDeadlineTimer deadline)
{
    const QMutexLocker locker(&m_mutex);
    while (isBusyHere()) {
        if (!m_changed.wait(&m_mutex, deadline))
            return !isBusyHere();
    }
    return true;
}

void ZGate::drain(QVector<ZGate *> gates, State state, QDeadlineTimer deadline)
{
    std::sort(gates.begin(), gates.end(), std::less<>()); // all lock them in this order
    const auto isBusy = [](const ZGate *gate) { return gate->isBusyHere(); };
    for (bool isOver = false; !isOver;) {
        isOver = !std::all_of(gates.begin(), gates.end(), [&](ZGate *gate) { return gate->drain(deadline); });
        for (ZGate *gate : qAsConst(gates))
            gate->m_mutex.lock();
        isOver = isOver || std::none_of(gates.begin(), gates.end(), isBusy); // one may have called another since
        for (ZGate *gate : qAsConst(gates)) {
            if (isOver)
                gate->m_state = state;
            gate->m_changed.wakeAll();
            gate->m_mutex.unlock();
        }
    }
}

bool ZGate::isBusy() const
{
    const QMutexLocker locker(&m_mutex);
    return isBusyHere();
}

bool ZGate::isBusyHere() const { return m_tickets > depthHere(); }

int ZGate::depthHere() const
{
    int depth = 0;
    for (const Scope *scope = innermost; scope; scope = scope->m_outer)
        depth += scope->m_gate == this ? 1 : 0;
    return depth;
}

bool ZGate::isHoldersTurn() const { return m_state == Entering || m_state == Draining || m_state == Held; }

bool ZGate::isAwaitedHere()
{
    for (const Scope *scope = innermost; scope; scope = scope->m_outer) {
        if (comesToItsEnd(scope->m_gate->state()))
            return true;
    }
    return false;
}
