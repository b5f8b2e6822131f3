// SPDX-License-Identifier: Apache-2.0
// Many small jobs, and jobs that start at once whatever else is running.
#include <benchmark/benchmark.h>

#include <QSemaphore>
#include <QThread>
#include <QThreadPool>

#include <memory>
#include <thread>
#include <vector>

#include <zjobpool.h>

#if __has_include(<tbb/task_group.h>)
#include <tbb/task_group.h>
#define HAVE_TBB
#endif

namespace {

constexpr int Jobs = 1000000;
constexpr int Forced = 100;

void work() { benchmark::ClobberMemory(); }

class SmallJob : public ZJob
{
public:
    SmallJob() : ZJob({}, {}) { setAutoDelete(false); }
    void run() override { work(); }
};

void ours(benchmark::State &state)
{
    ZJobPool pool(0, 0);
    std::vector<QSharedPointer<ZJob>> jobs(Jobs);
    for (auto &job : jobs)
        job = QSharedPointer<SmallJob>::create();
    while (state.KeepRunningBatch(Jobs)) {
        for (const auto &job : jobs)
            pool.start(job, false, 0);
        pool.waitAll(-1, false);
    }
}

/// With `Copy` what the signature demands beside: a strong copy of the pointer.
template <bool Copy>
void raw(benchmark::State &state)
{
    QThreadPool pool;
    std::vector<QSharedPointer<ZJob>> jobs(Jobs);
    for (auto &job : jobs)
        job = QSharedPointer<SmallJob>::create();
    while (state.KeepRunningBatch(Jobs)) {
        for (const auto &job : jobs) {
            if constexpr (Copy) {
                const QSharedPointer<ZJob> copy = job;
                pool.start(copy.data());
            } else {
                pool.start(job.data());
            }
        }
        pool.waitForDone();
    }
}

BENCHMARK(ours)->Name("small job/ours")->UseRealTime()->Iterations(Jobs);
BENCHMARK_TEMPLATE(raw, true)->Name("small job/floor")->UseRealTime()->Iterations(Jobs);
BENCHMARK_TEMPLATE(raw, false)->Name("small job/peer: QThreadPool")->UseRealTime()->Iterations(Jobs);

#ifdef HAVE_TBB
void tbbTasks(benchmark::State &state)
{
    tbb::task_group group;
    while (state.KeepRunningBatch(Jobs)) {
        for (int i = 0; i < Jobs; ++i)
            group.run(work);
        group.wait();
    }
}
BENCHMARK(tbbTasks)->Name("small job/peer: TBB")->UseRealTime()->Iterations(Jobs);
#endif

/// What each of those that are forced to start does: tells that it has begun, and stays until all have.
class Start
{
public:
    void begin()
    {
        m_begun.release();
        m_end.acquire();
    }
    void waitForAll() { m_begun.acquire(Forced); }
    void endAll() { m_end.release(Forced); }

private:
    QSemaphore m_begun, m_end;
};

class StayingJob : public ZJob
{
public:
    explicit StayingJob(Start &start) : ZJob({}, {}), m_start(start) { setAutoDelete(false); }
    void run() override { m_start.begin(); }

private:
    Start &m_start;
};

std::vector<QSharedPointer<ZJob>> stayingJobs(Start &start)
{
    std::vector<QSharedPointer<ZJob>> jobs(Forced);
    for (auto &job : jobs)
        job = QSharedPointer<StayingJob>::create(start);
    return jobs;
}

void forced(benchmark::State &state)
{
    while (state.KeepRunningBatch(Forced)) {
        state.PauseTiming();
        Start start;
        const auto jobs = stayingJobs(start);
        {
            ZJobPool pool(1, 0);
            state.ResumeTiming();
            for (const auto &job : jobs)
                pool.start(job, true, 0);
            start.waitForAll();
            state.PauseTiming();
            start.endAll();
        }
        state.ResumeTiming();
    }
}

void forcedByHand(benchmark::State &state)
{
    while (state.KeepRunningBatch(Forced)) {
        state.PauseTiming();
        Start start;
        const auto jobs = stayingJobs(start);
        {
            QThreadPool pool;
            pool.setMaxThreadCount(1);
            state.ResumeTiming();
            for (const auto &job : jobs) {
                if (!pool.tryStart(job.data())) {
                    pool.setMaxThreadCount(pool.maxThreadCount() + 1);
                    pool.tryStart(job.data());
                }
            }
            start.waitForAll();
            state.PauseTiming();
            start.endAll();
        }
        state.ResumeTiming();
    }
}

template <class Thread>
void forcedThreads(benchmark::State &state, Thread make(Start &))
{
    while (state.KeepRunningBatch(Forced)) {
        state.PauseTiming();
        Start start;
        std::vector<Thread> threads;
        threads.reserve(Forced);
        state.ResumeTiming();
        for (int i = 0; i < Forced; ++i)
            threads.push_back(make(start));
        start.waitForAll();
        state.PauseTiming();
        start.endAll();
        for (auto &thread : threads) {
            if constexpr (std::is_same_v<Thread, std::thread>)
                thread.join();
            else
                thread->wait();
        }
        threads.clear();
        state.ResumeTiming();
    }
}

void forcedQThread(benchmark::State &state)
{
    forcedThreads<std::unique_ptr<QThread>>(state, [](Start &start) {
        std::unique_ptr<QThread> thread(QThread::create([&start] { start.begin(); }));
        thread->start();
        return thread;
    });
}

void forcedStdThread(benchmark::State &state)
{
    forcedThreads<std::thread>(state, [](Start &start) { return std::thread([&start] { start.begin(); }); });
}

BENCHMARK(forced)->Name("forced start/ours")->UseRealTime()->Iterations(20 * Forced);
BENCHMARK(forcedQThread)->Name("forced start/floor")->UseRealTime()->Iterations(20 * Forced);
BENCHMARK(forcedByHand)->Name("forced start/peer: QThreadPool")->UseRealTime()->Iterations(20 * Forced);
BENCHMARK(forcedStdThread)->Name("forced start/peer: std::thread")->UseRealTime()->Iterations(20 * Forced);

} // namespace
