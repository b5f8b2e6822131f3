// SPDX-License-Identifier: Apache-2.0
#include "workers.h"

#include <QRunnable>

#include <algorithm>
#include <utility>

namespace {

constexpr int IdleMs = 30000; // after which a thread ends

} // namespace

Workers::Workers(int threads, int most) : m_most(most)
{
    m_pool.setMaxThreadCount(threads);
    m_pool.setExpiryTimeout(IdleMs);
}

bool Workers::start(std::function<void()> work)
{
    if (m_count.fetch_add(1) >= m_most) {
        --m_count;
        return false;
    }
    m_pool.start(QRunnable::create([this, work = std::move(work)] {
        ++m_running;
        work();
        --m_running;
        --m_count;
    }));
    return true;
}

bool Workers::waitDone(const QDeadlineTimer &deadline)
{
    return m_pool.waitForDone(static_cast<int>(std::max<qint64>(deadline.remainingTime(), 0)));
}

QJsonObject Workers::describe() const
{
    const int running = m_running;
    return {{QStringLiteral("waiting"), std::max(m_count - running, 0)},
            {QStringLiteral("running"), running},
            {QStringLiteral("workers"), m_pool.maxThreadCount()},
            {QStringLiteral("most"), m_most}};
}

Workers::Away::Away(Workers *workers) : m_workers(workers)
{
    if (m_workers)
        m_workers->m_pool.releaseThread();
}

Workers::Away::~Away()
{
    if (m_workers)
        m_workers->m_pool.reserveThread();
}
