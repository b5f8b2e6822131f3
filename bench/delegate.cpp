// SPDX-License-Identifier: Apache-2.0
// A call through a delegate: alone, and from two threads.
#include <benchmark/benchmark.h>

#include <QMutex>
#include <QMutexLocker>
#include <QObject>
#include <QSharedPointer>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>

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

/// What the rules of a forwarded call demand: a strong copy and the interface taken under a lock, then the call.
class alignas(128) Floor : public Adder
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

private:
    QMutex m_mutex;
    QSharedPointer<QObject> m_component{new Sum};
};

/// A heap that has been in use hands out small blocks side by side: the next two share a cache line.
void useHeap()
{
    constexpr size_t countsOfOnePointer = 24;
    static void *blocks[16];
    for (void *&block : blocks)
        block = malloc(countsOfOnePointer);
    const auto line = [](void *block) { return reinterpret_cast<quintptr>(block) / 64; };
    const auto pair =
        std::adjacent_find(std::begin(blocks), std::end(blocks), [&](void *a, void *b) { return line(a) == line(b); });
    if (pair == std::end(blocks))
        return;
    free(pair[0]);
    free(pair[1]);
    pair[0] = pair[1] = nullptr;
}

using Delegates = std::array<QSharedPointer<AdderDelegate>, 2>;

/// Two delegates made one after the other, as an application makes them.
Delegates makeDelegates()
{
    useHeap();
    return {QSharedPointer<AdderDelegate>::create(new Sum), QSharedPointer<AdderDelegate>::create(new Sum)};
}

AdderDelegate &delegate(int index)
{
    static const Delegates delegates = makeDelegates();
    return *delegates[size_t(index)];
}

/// Two floors that lie so far apart that they share no cache line.
Floor &floorAt(int index)
{
    static Floor floors[32];
    return floors[index * 31];
}

void call(benchmark::State &state, Adder &adder)
{
    int number = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(number = adder.add(number));
}

void ours(benchmark::State &state) { call(state, delegate(0)); }
void floor(benchmark::State &state) { call(state, floorAt(0)); }

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
void together(benchmark::State &state, Callee &callee)
{
    const Pinned pinned(size_t(state.thread_index()));
    call(state, callee);
}

void oursShared(benchmark::State &state) { together(state, delegate(0)); }
void floorShared(benchmark::State &state) { together(state, floorAt(0)); }
void oursApart(benchmark::State &state) { together(state, delegate(state.thread_index())); }
void floorApart(benchmark::State &state) { together(state, floorAt(state.thread_index())); }

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

BENCHMARK(ours)->Name("forwarded call/ours");
BENCHMARK(floor)->Name("forwarded call/floor");
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

BENCHMARK(oursShared)->Name("two threads, one delegate/ours")->Threads(2)->UseRealTime();
BENCHMARK(floorShared)->Name("two threads, one delegate/floor")->Threads(2)->UseRealTime();
BENCHMARK(oursApart)->Name("two threads, two delegates/ours")->Threads(2)->UseRealTime();
BENCHMARK(floorApart)->Name("two threads, two delegates/floor")->Threads(2)->UseRealTime();

} // namespace

#include "delegate.moc"
