// SPDX-License-Identifier: Apache-2.0
// What sleeping activities cost, and what happens when there are no descriptors for more.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QSemaphore>
#include <QThread>

#include <climits>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

#include "descriptors.h"
#include "footprint.h"

namespace {

constexpr int Hour = 3600 * 1000;

QString poolName() { return QStringLiteral("Pool-ZSchedulerThread"); }

/// Sleeps for an hour, and tells that it has come so far.
class Sleeper : public ZScheduledActivity
{
public:
    explicit Sleeper(QSemaphore &asleep)
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(Hour)), m_asleep(asleep)
    {}

    bool wait() override
    {
        m_asleep.release();
        return ZScheduledActivity::wait();
    }
    bool run() override { return false; }

private:
    QSemaphore &m_asleep;
};

class Scheduler
{
public:
    Scheduler() { m_scheduler.getSetZPoolSet(&m_pools); }

    bool start()
    {
        auto activity = QSharedPointer<Sleeper>::create(m_asleep);
        if (!m_scheduler.schedule0(activity))
            return false;
        m_activities.push_back(activity);
        ++m_awake;
        return true;
    }
    void waitUntilAsleep() { m_asleep.acquire(std::exchange(m_awake, 0)); }
    void stop()
    {
        for (const auto &activity : m_activities)
            activity->cancel();
        m_pools.find0(poolName())->waitAll(ULONG_MAX);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        m_activities.clear();
    }
    int count() const { return static_cast<int>(m_activities.size()); }

private:
    QSemaphore m_asleep;
    int m_awake = 0;
    ZDefaultThreadPoolSet m_pools;
    ZDefaultScheduler m_scheduler;
    std::vector<QSharedPointer<Sleeper>> m_activities;
};

/// The same by hand: a thread that waits for its semaphore.
class Threads
{
public:
    bool start()
    {
        QSemaphore &end = m_ends.emplace_back();
        m_threads.emplace_back(QThread::create([this, &end] {
            m_asleep.release();
            end.tryAcquire(1, Hour);
        }));
        m_threads.back()->start();
        return true;
    }
    void waitUntilAsleep() { m_asleep.acquire(static_cast<int>(m_threads.size())); }
    void stop()
    {
        for (QSemaphore &end : m_ends)
            end.release();
        for (const auto &thread : m_threads)
            thread->wait();
        m_threads.clear();
        m_ends.clear();
    }

private:
    QSemaphore m_asleep;
    std::deque<QSemaphore> m_ends;
    std::vector<std::unique_ptr<QThread>> m_threads;
};

template <class Sleepers>
void sleepers(benchmark::State &state)
{
    const MoreDescriptors more;
    const int count = static_cast<int>(state.range(0));
    while (state.KeepRunningBatch(count)) {
        Sleepers sleepers;
        for (int i = 0; i < count; ++i)
            sleepers.start();
        sleepers.waitUntilAsleep();
        sleepers.stop();
    }
}

template <class Sleepers>
void asleep(benchmark::State &state)
{
    const MoreDescriptors more;
    const int count = static_cast<int>(state.range(0));
    Footprint each;
    for (auto _ : state) {
        Sleepers sleepers;
        const Footprint before = Footprint::now();
        for (int i = 0; i < count; ++i)
            sleepers.start();
        sleepers.waitUntilAsleep();
        each = Footprint::now() - before;
        sleepers.stop();
    }
    state.counters["bytes"] = static_cast<double>(each.resident) / count;
    state.counters["descriptors"] = static_cast<double>(each.descriptors) / count;
}

/// So many can be started with the usual limit of descriptors; the time is that of a refusal.
void refused(benchmark::State &state)
{
    const Descriptors usual(1024);
    Scheduler scheduler;
    while (scheduler.start())
        scheduler.waitUntilAsleep(); // while threads start, one too many is refused rather than one too few
    for (auto _ : state) {
        if (scheduler.start())
            qFatal("an activity without a descriptor");
    }
    state.counters["activities"] = scheduler.count();
    state.counters["descriptors"] = static_cast<double>(Footprint::now().descriptors);
    scheduler.stop();
}

void counts(benchmark::internal::Benchmark *benchmark)
{
    benchmark->RangeMultiplier(10)->Range(1, 10000)->UseRealTime()->Repetitions(3);
}

BENCHMARK_TEMPLATE(sleepers, Scheduler)->Name("activity, started and stopped/ours")->Apply(counts);
BENCHMARK_TEMPLATE(sleepers, Threads)->Name("activity, started and stopped/floor")->Apply(counts);
BENCHMARK_TEMPLATE(asleep, Scheduler)->Name("memory of a sleeping activity/ours")->Arg(1000)->Iterations(1);
BENCHMARK_TEMPLATE(asleep, Threads)->Name("memory of a sleeping activity/floor")->Arg(1000)->Iterations(1);
BENCHMARK(refused)->Name("activity refused at 1,024 descriptors/ours");

} // namespace
