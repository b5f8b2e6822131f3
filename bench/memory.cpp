// SPDX-License-Identifier: Apache-2.0
// Bytes for each of what an application has many of. The counter "bytes" is what is allocated, "resident" what the
// process takes of the machine; activities.cpp has those of an activity.
#include <benchmark/benchmark.h>

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QPluginLoader>
#include <QSemaphore>
#include <QThread>

#include <deque>
#include <memory>
#include <vector>

#include <zdefaultdbus.h>
#include <zdelegate.h>
#include <zlibrary.h>
#include <zlibraryset.h>
#include <zobject.h>
#include <zowned.h>

#include "footprint.h"
#include "pluginfolder.h"
#include "teller.h"

/// The least that a component can be.
class Plain : public QObject, public Teller
{
    Q_OBJECT
    Q_INTERFACES(Teller)

public:
    int version() override { return 0; }
};

/// A component as the library's own are.
class Component : public QObject, public Teller, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(Teller)

public:
    int version() override { return 0; }
};

namespace {

/// The growth while `make` makes `count` things, for each of them.
template <class Make>
void measure(benchmark::State &state, int count, Make make)
{
    Footprint growth;
    for (auto _ : state) {
        const Footprint before = Footprint::now();
        for (int i = 0; i < count; ++i)
            make(i);
        growth = Footprint::now() - before;
    }
    state.counters["bytes"] = static_cast<double>(growth.heap) / count;
    state.counters["resident"] = static_cast<double>(growth.resident) / count;
}

constexpr int Endpoints = 100000;
constexpr int Components = 10000;
constexpr int Threads = 200;
constexpr unsigned SmallStack = 128 * 1024;
constexpr int Versions = 200;

class Subscriber : public ZDbusSubscriber
{
public:
    bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override { return true; }
};

QString host(int index) { return QStringLiteral("endpoint%1").arg(index, 6, 10, QLatin1Char('0')); }

void endpoint(benchmark::State &state)
{
    ZDefaultDbus bus;
    const auto subscriber = QSharedPointer<Subscriber>::create();
    measure(state, Endpoints, [&](int i) { bus.bind0(QUrl(QStringLiteral("//%1/path").arg(host(i))), subscriber); });
}

void endpointFloor(benchmark::State &state)
{
    QHash<QString, QWeakPointer<ZDbusSubscriber>> endpoints;
    const auto subscriber = QSharedPointer<Subscriber>::create();
    measure(state, Endpoints, [&](int i) { endpoints.insert(host(i) + QStringLiteral("/path"), subscriber); });
}

void component(benchmark::State &state)
{
    std::vector<QSharedPointer<TellerDelegate>> delegates(Components);
    measure(state, Components, [&](int i) {
        const QSharedPointer<QObject> component(new Component);
        delegates[static_cast<size_t>(i)] = QSharedPointer<TellerDelegate>::create(component);
    });
}

void componentFloor(benchmark::State &state)
{
    struct Handle
    {
        QMutex mutex;
        QSharedPointer<QObject> object;
    };
    std::vector<std::unique_ptr<Handle>> handles(Components);
    measure(state, Components, [&](int i) {
        handles[static_cast<size_t>(i)] = std::make_unique<Handle>();
        handles[static_cast<size_t>(i)]->object.reset(new Plain);
    });
}

/// Threads that have started, and call once each time they are told to. None ends before the program: another one would
/// get its notes, and take nothing.
class Callers
{
public:
    Callers()
    {
        for (int i = 0; i < Threads; ++i) {
            m_threads.emplace_back(QThread::create([this] {
                benchmark::DoNotOptimize(std::make_unique<int>(0)); // a thread's first piece of memory costs for itself
                m_started.release();
                m_go.acquire();
                benchmark::DoNotOptimize(m_delegate.version());
                m_called.release();
                m_end.acquire();
            }));
            m_threads.back()->setStackSize(SmallStack);
            m_threads.back()->start();
        }
        m_started.acquire(Threads);
    }
    ~Callers()
    {
        m_end.release(Threads);
        for (const auto &thread : m_threads)
            thread->wait();
    }
    void call()
    {
        m_go.release(Threads);
        m_called.acquire(Threads);
    }

private:
    Q_DISABLE_COPY(Callers)
    TellerDelegate m_delegate{QSharedPointer<QObject>(new Component)};
    std::vector<std::unique_ptr<QThread>> m_threads;
    QSemaphore m_started, m_go, m_called, m_end;
};

void threadThatCalls(benchmark::State &state)
{
    static std::deque<Callers> callers;
    Callers &next = callers.emplace_back();
    measure(state, 1, [&](int) { next.call(); });
    for (const char *const counter : {"bytes", "resident"})
        state.counters[counter].value /= Threads;
}

void version(benchmark::State &state)
{
    const PluginFolder folder;
    for (int i = 1; i <= Versions; ++i)
        folder.add(i);
    ZLibrarySet set(QStringLiteral("none"), folder.path(), nullptr);
    std::deque<QSharedPointer<ZObject>> roots; // after the libraries, or their code would be gone
    std::deque<QSharedPointer<ZLibrary>> libraries;
    measure(state, Versions, [&](int i) {
        libraries.push_back(set.loadOne(PluginFolder::nameOf(i + 1), folder.path(), nullptr));
        roots.push_back(*libraries.back());
    });
    roots.clear();
    libraries.clear();
}

void versionFloor(benchmark::State &state)
{
    const PluginFolder folder;
    for (int i = 1; i <= Versions; ++i)
        folder.add(i);
    std::deque<QPluginLoader> loaders;
    measure(state, Versions, [&](int i) {
        QPluginLoader &loader = loaders.emplace_back(PluginFolder::nameOf(i + 1));
        loader.setLoadHints(QLibrary::ResolveAllSymbolsHint);
        loader.instance();
    });
    for (QPluginLoader &loader : loaders)
        loader.unload();
}

BENCHMARK(endpoint)->Name("memory of an endpoint/ours")->Iterations(1);
BENCHMARK(endpointFloor)->Name("memory of an endpoint/floor")->Iterations(1);
BENCHMARK(component)->Name("memory of a component with its delegate/ours")->Iterations(1);
BENCHMARK(componentFloor)->Name("memory of a component with its delegate/floor")->Iterations(1);
BENCHMARK(threadThatCalls)->Name("memory of a thread that has called/ours")->Iterations(1);
BENCHMARK(version)->Name("memory of a loaded version/ours")->Iterations(1);
BENCHMARK(versionFloor)->Name("memory of a loaded version/floor")->Iterations(1);

} // namespace

#include "memory.moc"
