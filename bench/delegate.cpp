// SPDX-License-Identifier: Apache-2.0
// A call through a delegate: alone, and from many threads; and the exchange of what it calls.
#include <benchmark/benchmark.h>

#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QSharedPointer>

#include <atomic>
#include <string>
#include <thread>

#include <pthread.h>
#include <sched.h>

#include <zdelegate.h>
#include <zowned.h>

#if __has_include(<sigc++/sigc++.h>)
#include <sigc++/sigc++.h>
#define HAVE_SIGC
#endif
#if __has_include(<boost/signals2.hpp>)
#include <boost/signals2.hpp>
#define HAVE_BOOST
#endif
#if __has_include(<Poco/BasicEvent.h>)
#include <Poco/BasicEvent.h>
#include <Poco/Delegate.h>
#define HAVE_POCO
#endif

class Adder
{
public:
    virtual int add(int number) = 0;
    virtual ~Adder() {}
};
Q_DECLARE_INTERFACE(Adder, "bench::Adder")
Q_DECLARE_METATYPE(Adder *)

/// A component as the library's own are.
class Sum : public QObject, public Adder, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(Adder)

public:
    int add(int number) override { return number + 1; }
    Q_INVOKABLE int addByName(int number) { return number + 1; }

public Q_SLOTS:
    void addTo(int *number) { ++*number; }

Q_SIGNALS:
    void asked(int *number);
};

namespace {

class AdderDelegate : public ZDelegate, public Adder
{
public:
    explicit AdderDelegate(QObject *object) : ZDelegate(refer(object)) { provide<Adder>(this); }
    int add(int number) override { return forward(&Adder::add, 0, number); }
};

/// The least that keeps a component for the time of a call without a place that threads share: its note written, read
/// against, and taken back, and the component asked for the interface.
class Floor : public Adder
{
public:
    int add(int number) override
    {
        QObject *const component = m_component.load(std::memory_order_relaxed);
        note.store(component, std::memory_order_seq_cst);
        if (m_component.load(std::memory_order_seq_cst) != component)
            return 0;
        const int result = static_cast<Adder *>(component->qt_metacast(qobject_interface_iid<Adder *>()))->add(number);
        QObject *noted = component;
        note.compare_exchange_strong(noted, nullptr, std::memory_order_release, std::memory_order_acquire);
        return result;
    }

private:
    alignas(128) inline static thread_local std::atomic<QObject *> note{nullptr};
    std::atomic<QObject *> m_component{new Sum};
};

/// A call that copies a strong pointer under a lock: what all threads write to lies in two places.
class alignas(128) LockAndCount : public Adder
{
public:
    int add(int number) override
    {
        QSharedPointer<QObject> component;
        void *part = nullptr;
        {
            const QMutexLocker locker(&m_mutex);
            component = m_component;
            part = component ? component->qt_metacast(qobject_interface_iid<Adder *>()) : nullptr;
        }
        return part ? static_cast<Adder *>(part)->add(number) : 0;
    }
    QSharedPointer<QObject> replace(QSharedPointer<QObject> component)
    {
        const QMutexLocker locker(&m_mutex);
        m_component.swap(component);
        return component;
    }

private:
    QMutex m_mutex;
    QSharedPointer<QObject> m_component{new Sum};
};

constexpr int MostThreads = 8;

/// One of each, for each thread.
template <class Callee>
Callee &at(int index)
{
    static Callee callees[MostThreads];
    return callees[index];
}
template <>
AdderDelegate &at(int index)
{
    static AdderDelegate *const callees[MostThreads] = {
        new AdderDelegate(new Sum), new AdderDelegate(new Sum), new AdderDelegate(new Sum), new AdderDelegate(new Sum),
        new AdderDelegate(new Sum), new AdderDelegate(new Sum), new AdderDelegate(new Sum), new AdderDelegate(new Sum)};
    return *callees[index];
}

void call(benchmark::State &state, Adder &adder)
{
    int number = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(number = adder.add(number));
}

template <class Callee>
void alone(benchmark::State &state)
{
    call(state, at<Callee>(0));
}

/// Keeps the thread on a processor of its own: on a busy machine two would else take turns on one, and never meet.
class Pinned
{
public:
    explicit Pinned(size_t processor)
    {
        pthread_getaffinity_np(pthread_self(), sizeof m_before, &m_before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        pthread_setaffinity_np(pthread_self(), sizeof one, &one);
    }
    ~Pinned() { pthread_setaffinity_np(pthread_self(), sizeof m_before, &m_before); }

private:
    cpu_set_t m_before;
};

template <class Callee>
void onOne(benchmark::State &state)
{
    const Pinned pinned(size_t(state.thread_index()) % std::thread::hardware_concurrency());
    call(state, at<Callee>(0));
}

template <class Callee>
void onOneEach(benchmark::State &state)
{
    const Pinned pinned(size_t(state.thread_index()) % std::thread::hardware_concurrency());
    call(state, at<Callee>(state.thread_index()));
}

/// What is measured is the processors' time for a call. A fixed number of them, or threads that start and wait would be
/// measured with it.
template <class Callee>
void registerThreads(const char *what)
{
    for (const int threads : {1, 2, 4, 8}) {
        const std::string rest = std::string(what) + "/" + std::to_string(threads);
        for (auto *bench :
             {benchmark::RegisterBenchmark(("threads on one delegate/" + rest).c_str(), onOne<Callee>),
              benchmark::RegisterBenchmark(("threads on a delegate each/" + rest).c_str(), onOneEach<Callee>)})
            bench->Threads(threads)->Iterations(300000);
    }
}

void virtualCall(benchmark::State &state)
{
    Sum sum;
    Adder *adder = &sum;
    benchmark::DoNotOptimize(adder); // or the compiler would know its class
    call(state, *adder);
}

void qtSignal(benchmark::State &state)
{
    Sum caller;
    Sum called;
    QObject::connect(&caller, &Sum::asked, &called, &Sum::addTo, Qt::DirectConnection);
    int number = 0;
    for (auto _ : state) {
        Q_EMIT caller.asked(&number);
        benchmark::DoNotOptimize(number);
    }
}

void invokeMethod(benchmark::State &state)
{
    Sum sum;
    int number = 0;
    for (auto _ : state) {
        QMetaObject::invokeMethod(&sum, "addByName", Qt::DirectConnection, Q_RETURN_ARG(int, number),
                                  Q_ARG(int, number));
        benchmark::DoNotOptimize(number);
    }
}

BENCHMARK(alone<AdderDelegate>)->Name("forwarded call/ours");
BENCHMARK(alone<Floor>)->Name("forwarded call/floor");
BENCHMARK(alone<LockAndCount>)->Name("forwarded call/peer: lock and count");
BENCHMARK(virtualCall)->Name("forwarded call/peer: virtual call");
BENCHMARK(qtSignal)->Name("forwarded call/peer: Qt direct signal");
BENCHMARK(invokeMethod)->Name("forwarded call/peer: invokeMethod by name");

#ifdef HAVE_SIGC
void sigcSignal(benchmark::State &state)
{
    Sum sum;
    sigc::signal<int, int> signal;
    signal.connect(sigc::mem_fun(sum, &Sum::add));
    int number = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(number = signal.emit(number));
}
BENCHMARK(sigcSignal)->Name("forwarded call/peer: libsigc++");
#endif

#ifdef HAVE_BOOST
void boostSignal(benchmark::State &state)
{
    Sum sum;
    boost::signals2::signal<int(int)> signal;
    signal.connect([&](int number) { return sum.add(number); });
    int number = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(number = *signal(number));
}
BENCHMARK(boostSignal)->Name("forwarded call/peer: Boost.Signals2");
#endif

#ifdef HAVE_POCO
struct PocoSum
{
    void add(int &number) { ++number; }
};

void pocoEvent(benchmark::State &state)
{
    PocoSum sum;
    Poco::BasicEvent<int> event;
    event += Poco::delegate(&sum, &PocoSum::add);
    int number = 0;
    for (auto _ : state) {
        event.notify(&event, number);
        benchmark::DoNotOptimize(number);
    }
}
BENCHMARK(pocoEvent)->Name("forwarded call/peer: POCO event");
#endif

const bool areThreadsRegistered = [] {
    registerThreads<AdderDelegate>("ours");
    registerThreads<Floor>("floor");
    registerThreads<LockAndCount>("peer: lock and count");
    return true;
}();

} // namespace

#include "delegate.moc"
