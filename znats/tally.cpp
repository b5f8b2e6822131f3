// SPDX-License-Identifier: Apache-2.0
#include "tally.h"

#include <QMutexLocker>

#include <algorithm>
#include <chrono>

namespace {

constexpr std::size_t MostTimes = 1000;

qint64 nowNsecs() { return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count(); }

double quantile(const std::vector<qint64> &sorted, std::size_t percent)
{
    return double(sorted[(sorted.size() - 1) * percent / 100]) / 1e6;
}

} // namespace

Tally::Call::Call(Tally &tally) : m_tally(tally), m_begin(nowNsecs())
{
    const QMutexLocker locker(&m_tally.m_mutex);
    ++m_tally.m_underWay;
}

Tally::Call::~Call() { m_tally.note(nowNsecs() - m_begin, m_failure); }

void Tally::Call::end(const Failure &failure) { m_failure = failure; }

QJsonObject Tally::describe() const
{
    std::vector<qint64> times;
    QJsonObject result;
    {
        const QMutexLocker locker(&m_mutex);
        times = m_times;
        result = {{QStringLiteral("n"), double(m_count)},
                  {QStringLiteral("failed"), double(m_failures)},
                  {QStringLiteral("under way"), m_underWay}};
    }
    std::sort(times.begin(), times.end());
    if (!times.empty()) {
        result.insert(QStringLiteral("p50 ms"), quantile(times, 50));
        result.insert(QStringLiteral("p99 ms"), quantile(times, 99));
    }
    return result;
}

QJsonObject Tally::reasons() const
{
    const QMutexLocker locker(&m_mutex);
    QJsonObject result;
    for (auto reason = m_reasons.cbegin(); reason != m_reasons.cend(); ++reason)
        result.insert(reason.key(), double(reason.value()));
    return result;
}

quint64 Tally::count() const
{
    const QMutexLocker locker(&m_mutex);
    return m_count;
}

quint64 Tally::failures() const
{
    const QMutexLocker locker(&m_mutex);
    return m_failures;
}

void Tally::note(qint64 nsecs, const Failure &failure)
{
    const QMutexLocker locker(&m_mutex);
    --m_underWay;
    ++m_count;
    if (failure) {
        ++m_failures;
        ++m_reasons[failure.kind()]; // a stranger may have written the reason
    }
    if (m_times.size() < MostTimes) {
        m_times.push_back(nsecs);
    } else {
        m_times[m_next] = nsecs;
        m_next = (m_next + 1) % MostTimes;
    }
}
