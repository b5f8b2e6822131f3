// SPDX-License-Identifier: Apache-2.0
// A pool by its name, among few and many.
#include <benchmark/benchmark.h>

#include <QHash>
#include <QReadLocker>
#include <QReadWriteLock>
#include <QStringList>

#include <zdefaultpoolset.h>

namespace {

QStringList names(benchmark::State &state)
{
    QStringList names;
    for (int i = 0; i < state.range(0); ++i)
        names.append(QStringLiteral("Pool-Worker-%1").arg(i));
    return names;
}

/// What the rules of a look-up demand: one probe under the lock for reading, and a strong copy.
class Floor : public ZThreadPoolSet
{
public:
    explicit Floor(const QStringList &names)
    {
        for (const QString &name : names)
            m_pools.insert(name, QSharedPointer<ZThreadPool>::create());
    }

    QSharedPointer<ZThreadPool> find0(const QString &name) override
    {
        const QReadLocker locker(&m_lock);
        const auto pool = m_pools.constFind(name);
        return pool == m_pools.constEnd() ? QSharedPointer<ZThreadPool>() : *pool;
    }

private:
    QHash<QString, QSharedPointer<ZThreadPool>> m_pools;
    QReadWriteLock m_lock;
};

void find(benchmark::State &state, ZThreadPoolSet &set, const QStringList &names)
{
    for (const QString &name : names)
        set.find0(name);
    int next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(set.find0(names.at(next)));
        next = next + 1 < names.size() ? next + 1 : 0;
    }
}

void ours(benchmark::State &state)
{
    ZDefaultThreadPoolSet set;
    find(state, set, names(state));
}

void floor(benchmark::State &state)
{
    Floor set(names(state));
    find(state, set, names(state));
}

BENCHMARK(ours)->Name("pool by name/ours")->RangeMultiplier(10)->Range(1, 1000);
BENCHMARK(floor)->Name("pool by name/floor")->RangeMultiplier(10)->Range(1, 1000);

} // namespace
