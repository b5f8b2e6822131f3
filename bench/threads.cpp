// SPDX-License-Identifier: Apache-2.0
// Short threads through the registry: all at once, and one by one.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QThread>

#include <climits>
#include <memory>
#include <vector>

#include <zthreadpool.h>

#include "descriptors.h"

namespace {

constexpr int Burst = 10000;
constexpr int OneByOne = 1000;

class ShortThread : public QThread
{
protected:
    void run() override {}
};

/// What an event loop does for those that are to be deleted later.
void deleteNow() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

void burst(benchmark::State &state)
{
    const MoreDescriptors more;
    ZThreadPool registry;
    while (state.KeepRunningBatch(Burst)) {
        for (int i = 0; i < Burst; ++i)
            registry.poolAndStart(new ShortThread, QThread::InheritPriority);
        registry.waitAll(ULONG_MAX);
        deleteNow();
    }
}

void burstFloor(benchmark::State &state)
{
    const MoreDescriptors more;
    while (state.KeepRunningBatch(Burst)) {
        std::vector<std::unique_ptr<QThread>> threads(Burst);
        for (auto &thread : threads) {
            thread = std::make_unique<ShortThread>();
            thread->start();
        }
        for (auto &thread : threads)
            thread->wait();
    }
}

void oneByOne(benchmark::State &state)
{
    ZThreadPool registry;
    for (auto _ : state) {
        registry.poolAndStart(new ShortThread, QThread::InheritPriority);
        registry.waitAll(ULONG_MAX);
        deleteNow();
    }
}

void oneByOneFloor(benchmark::State &state)
{
    for (auto _ : state) {
        const auto thread = std::make_unique<ShortThread>();
        thread->start();
        thread->wait();
    }
}

BENCHMARK(burst)->Name("short threads, in a burst/ours")->UseRealTime()->Iterations(Burst);
BENCHMARK(burstFloor)->Name("short threads, in a burst/floor")->UseRealTime()->Iterations(Burst);
BENCHMARK(oneByOne)->Name("short threads, one by one/ours")->UseRealTime()->Iterations(OneByOne);
BENCHMARK(oneByOneFloor)->Name("short threads, one by one/floor")->UseRealTime()->Iterations(OneByOne);

} // namespace
