// SPDX-License-Identifier: Apache-2.0
// How much later than it is due a scheduled call comes.
#include <benchmark/benchmark.h>

#include <QSemaphore>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include <sys/prctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <zdefaultpoolset.h>
#include <zdefaultscheduler.h>

namespace {

using Clock = std::chrono::steady_clock;

/// Takes note of the time at which each wait of so many milliseconds begins and ends.
class Lateness
{
public:
    explicit Lateness(benchmark::State &state) : m_period(std::chrono::milliseconds(state.range(0)))
    {
        m_count = static_cast<size_t>(state.max_iterations);
        m_late.reserve(m_count);
    }

    void begin() { m_begin = Clock::now(); }
    /// False when there are enough of them.
    bool end()
    {
        m_late.push_back(std::chrono::duration<double>(Clock::now() - m_begin - m_period).count());
        return m_late.size() < m_count;
    }

    void report(benchmark::State &state)
    {
        auto late = m_late.begin();
        for (auto _ : state)
            state.SetIterationTime(*late++);
        std::sort(m_late.begin(), m_late.end());
        state.counters["p50"] = 1e9 * m_late[m_late.size() / 2];
        state.counters["p99"] = 1e9 * m_late[m_late.size() * 99 / 100];
    }

private:
    const std::chrono::milliseconds m_period;
    size_t m_count;
    Clock::time_point m_begin;
    std::vector<double> m_late; // seconds
};

class Call : public ZScheduledActivity
{
public:
    Call(Lateness &lateness, int period)
        : ZScheduledActivity(QSharedPointer<ZPeriodicSchedule>::create(period)), m_lateness(lateness)
    {}

    bool wait() override
    {
        m_lateness.begin();
        return ZScheduledActivity::wait();
    }
    bool run() override { return m_lateness.end(); }

private:
    Lateness &m_lateness;
};

void ours(benchmark::State &state)
{
    Lateness lateness(state);
    ZDefaultThreadPoolSet pools;
    ZDefaultScheduler scheduler;
    scheduler.getSetZPoolSet(&pools);
    scheduler.schedule0(QSharedPointer<Call>::create(lateness, static_cast<int>(state.range(0))));
    pools.find0(QStringLiteral("Pool-ZSchedulerThread"))->waitAll(ULONG_MAX);
    lateness.report(state);
}

template <class Wait>
void onAThread(benchmark::State &state, Wait wait)
{
    Lateness lateness(state);
    std::thread thread([&] {
        do {
            lateness.begin();
            wait();
        } while (lateness.end());
    });
    thread.join();
    lateness.report(state);
}

void semaphore(benchmark::State &state)
{
    QSemaphore never;
    onAThread(state, [&] { never.tryAcquire(1, static_cast<int>(state.range(0))); });
}

void semaphoreWithoutSlack(benchmark::State &state)
{
    QSemaphore never;
    onAThread(state, [&] {
        prctl(PR_SET_TIMERSLACK, 1);
        never.tryAcquire(1, static_cast<int>(state.range(0)));
    });
}

void timer(benchmark::State &state)
{
    const int descriptor = timerfd_create(CLOCK_MONOTONIC, 0);
    const itimerspec due{{}, {0, static_cast<long>(state.range(0)) * 1000000}};
    onAThread(state, [&] {
        quint64 times = 0;
        timerfd_settime(descriptor, 0, &due, nullptr);
        benchmark::DoNotOptimize(read(descriptor, &times, sizeof times));
    });
    close(descriptor);
}

void periods(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(1)->Arg(10)->UseManualTime()->Iterations(100);
}

BENCHMARK(ours)->Name("lateness of a scheduled call/ours")->Apply(periods);
BENCHMARK(semaphore)->Name("lateness of a scheduled call/floor")->Apply(periods);
BENCHMARK(semaphoreWithoutSlack)->Name("lateness of a scheduled call/peer: QSemaphore, no timer slack")->Apply(periods);
BENCHMARK(timer)->Name("lateness of a scheduled call/peer: timerfd")->Apply(periods);

} // namespace
