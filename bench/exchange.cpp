// SPDX-License-Identifier: Apache-2.0
// How long an exchange takes: with threads that call meanwhile, and with many that have called once and sleep.
#include <benchmark/benchmark.h>

#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QSemaphore>
#include <QSharedPointer>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <zdelegate.h>
#include <zowned.h>

#include "teller.h"

/// A component as the library's own are.
class Component : public QObject, public Teller, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(Teller)

public:
    int version() override { return 0; }
};

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Exchanges = 400;
constexpr unsigned SmallStack = 128 * 1024;

class Ours
{
public:
    int call() { return m_delegate.version(); }
    void exchange() { m_delegate.replace(QSharedPointer<ZReference>::create(QSharedPointer<QObject>(new Component))); }

private:
    TellerDelegate m_delegate{QSharedPointer<QObject>(new Component)};
};

/// The same by a lock and a strong pointer, which each call copies.
class LockAndCount
{
public:
    int call()
    {
        QSharedPointer<QObject> component;
        void *part = nullptr;
        {
            const QMutexLocker locker(&m_mutex);
            component = m_reference->component;
            part = component->qt_metacast(qobject_interface_iid<Teller *>());
        }
        return static_cast<Teller *>(part)->version();
    }
    void exchange()
    {
        auto reference = QSharedPointer<Reference>::create();
        const QMutexLocker locker(&m_mutex);
        m_reference.swap(reference);
    }

private:
    struct Reference
    {
        QSharedPointer<QObject> component{new Component};
    };
    QMutex m_mutex;
    QSharedPointer<Reference> m_reference = QSharedPointer<Reference>::create();
};

/// Threads that call for as long as it lives, or once.
template <class Callee>
class Callers
{
public:
    Callers(Callee &callee, int count, bool onlyOnce)
    {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back(QThread::create([this, &callee, onlyOnce] {
                callee.call();
                m_started.release();
                while (!onlyOnce && !m_isOver) {
                    callee.call();
                    m_calls.fetch_add(1, std::memory_order_relaxed);
                }
                m_end.acquire();
            }));
            m_threads.back()->setStackSize(SmallStack);
            m_threads.back()->start();
        }
        m_started.acquire(count);
    }
    ~Callers()
    {
        m_isOver = true;
        m_end.release(int(m_threads.size()));
        for (const auto &thread : m_threads)
            thread->wait();
    }

    int calls() const { return m_calls; }

private:
    Q_DISABLE_COPY(Callers)
    std::vector<std::unique_ptr<QThread>> m_threads;
    QSemaphore m_started, m_end;
    std::atomic_bool m_isOver{false};
    std::atomic_int m_calls{0};
};

/// The time that `share` of all exchanges stay below. Only those count during which others called, if there are any.
template <class Callee>
void measure(benchmark::State &state, double share, int callers, int sleepers)
{
    Callee callee;
    const Callers<Callee> calling(callee, callers, false);
    const Callers<Callee> sleeping(callee, sleepers, true);
    for (auto _ : state) {
        std::vector<double> times;
        while (times.size() < Exchanges) {
            const int before = calling.calls();
            if (callers > 0)
                QThread::usleep(50); // or this thread, which never waits, would be given little of a processor
            callee.call();
            const auto start = Clock::now();
            callee.exchange();
            const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
            if (callers == 0 || calling.calls() != before)
                times.push_back(seconds);
        }
        const auto limit = times.begin() + std::ptrdiff_t(share * Exchanges);
        std::nth_element(times.begin(), limit, times.end());
        state.SetIterationTime(*limit);
    }
}

template <class Callee>
void registerExchanges(const std::string &what)
{
    const auto add = [](const std::string &name, double share, int callers, int sleepers) {
        benchmark::RegisterBenchmark(name.c_str(),
                                     [=](benchmark::State &state) { measure<Callee>(state, share, callers, sleepers); })
            ->UseManualTime()
            ->Iterations(1);
    };
#ifdef SLEEPERS // in a program of its own: an exchange looks at the notes of all threads that there ever were
    add("exchange beside sleeping threads/" + what + "/" + std::to_string(SLEEPERS), 0.5, 0, SLEEPERS);
#else
    for (const int callers : {0, 2, 8}) {
        add("exchange under callers/" + what + "/" + std::to_string(callers), 0.5, callers, 0);
        add("exchange under callers, p99/" + what + "/" + std::to_string(callers), 0.99, callers, 0);
    }
#endif
}

const bool areRegistered = [] {
    registerExchanges<Ours>("ours");
    registerExchanges<LockAndCount>("peer: lock and count");
    return true;
}();

} // namespace

#include "exchange.moc"
