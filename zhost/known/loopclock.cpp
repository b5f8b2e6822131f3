// SPDX-License-Identifier: Apache-2.0
#include "loopclock.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QMutexLocker>

namespace {

constexpr int PatienceMs = 250;

} // namespace

LoopClock::LoopClock() : m_round(std::make_shared<Round>()) {}

void LoopClock::Round::end()
{
    const QMutexLocker locker(&mutex);
    lastMs = since.elapsed();
    since.invalidate();
    ++count;
    come.wakeAll();
}

LoopClock::Delay LoopClock::measure() const
{
    const QMutexLocker locker(&m_round->mutex);
    if (!m_round->since.isValid()) {
        m_round->since.start();
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [round = m_round] { round->end(); }, Qt::QueuedConnection);
    }
    const quint64 before = m_round->count;
    for (const QDeadlineTimer deadline(PatienceMs); m_round->count == before;) {
        if (!m_round->come.wait(&m_round->mutex, deadline) && m_round->count == before)
            return {m_round->since.elapsed(), false};
    }
    return {m_round->lastMs, true};
}
