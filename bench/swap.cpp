// SPDX-License-Identifier: Apache-2.0
// A service replaced while it is called: from the rename into the hot-deploy folder to the first answer of the new
// version, and how long calls take meanwhile.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonObject>
#include <QMutex>
#include <QPluginLoader>

#include <algorithm>
#include <atomic>
#include <deque>
#include <thread>
#include <vector>

#include <sys/inotify.h>
#include <unistd.h>

#include <zdefaultconfig.h>
#include <zdefaultemitter.h>
#include <zdefaultloader.h>

#include "pluginfolder.h"
#include "teller.h"

namespace {

/// A thread that calls a service without pause, and takes note of each call's time.
class Caller
{
public:
    Caller(Teller &service, QEventLoop &loop) : m_service(service), m_loop(loop)
    {
        m_clock.start();
        m_times.reserve(Enough);
        m_thread = std::thread([this] { call(); });
    }
    ~Caller() { stop(); }

    qint64 now() const { return m_clock.nsecsElapsed(); }
    /// The time at which `version` answered first, once it has.
    qint64 waitFor(int version)
    {
        while (m_version.load() < version)
            m_loop.exec();
        return m_since.load();
    }
    void stop()
    {
        m_isOver = true;
        if (m_thread.joinable())
            m_thread.join();
    }
    void report(benchmark::State &state)
    {
        stop();
        std::sort(m_times.begin(), m_times.end());
        state.counters["p50 of calls"] = at(0.5);
        state.counters["p99.9 of calls"] = at(0.999);
        state.counters["longest call"] = at(1);
        state.counters["calls"] = static_cast<double>(m_times.size());
        state.counters["lost"] = static_cast<double>(m_lost);
    }

private:
    static constexpr size_t Enough = 50000000;

    void call()
    {
        while (!m_isOver) {
            const qint64 start = now();
            const int version = m_service.version();
            const qint64 end = now();
            if (m_times.size() < Enough)
                m_times.push_back(static_cast<quint32>(std::min<qint64>(end - start, UINT32_MAX)));
            if (version < 0)
                ++m_lost;
            if (version <= m_version)
                continue;
            m_since = end;
            m_version = version;
            QMetaObject::invokeMethod(&m_loop, &QEventLoop::quit, Qt::QueuedConnection);
        }
    }
    double at(double share) const
    {
        return m_times[static_cast<size_t>(share * static_cast<double>(m_times.size() - 1))];
    }

    Teller &m_service;
    QEventLoop &m_loop;
    QElapsedTimer m_clock;
    std::atomic<bool> m_isOver{false};
    std::atomic<int> m_version{0};
    std::atomic<qint64> m_since{0};
    quint64 m_lost = 0;
    std::vector<quint32> m_times;
    std::thread m_thread;
};

/// Renames version after version into `hot`, has each taken up by `takeUp`, and waits for its first answer.
template <class TakeUp>
void swapAgainAndAgain(benchmark::State &state, const PluginFolder &hot, const PluginFolder &deployed, Teller &service,
                       TakeUp takeUp)
{
    const PluginFolder prepared(false);
    QEventLoop loop;
    Caller caller(service, loop);
    int version = 0;
    for (auto _ : state) {
        const QString file = prepared.add(++version);
        const QString name = PluginFolder::nameOf(version) + QStringLiteral(".so");
        const qint64 start = caller.now();
        QFile::rename(file, hot.filePath(name));
        takeUp(name);
        state.SetIterationTime(1e-9 * static_cast<double>(caller.waitFor(version) - start));
        QCoreApplication::processEvents();
        QFile::remove(deployed.filePath(name));
    }
    caller.report(state);
}

void ours(benchmark::State &state)
{
    const PluginFolder deployed;
    const PluginFolder hot(false);
    hot.add(0);
    auto emitter = QSharedPointer<ZDefaultEmitter>::create();
    emitter->install(emitter);
    const auto service = QSharedPointer<TellerDelegate>::create(QSharedPointer<QObject>());
    emitter->bind0(service);
    const QJsonObject section{{QStringLiteral("hot-deploy"), hot.path()},
                              {QStringLiteral("deployed"), deployed.path()}};
    const QJsonObject config{{QStringLiteral("loader"), section}};
    emitter->zemit0(ZDefaultConfig::TypeName, Q_ARG(QJsonObject, config));
    emitter->zemit0(ZDefaultLoader::TypeName);
    swapAgainAndAgain(state, hot, deployed, *service, [](const QString &) {});
}

/// What the rules demand: the folder's change is told, the file moved and loaded, and the root exchanged under a lock.
class ByHand : public Teller
{
public:
    ByHand(const PluginFolder &hot, const PluginFolder &deployed)
        : m_hot(hot), m_deployed(deployed), m_inotify(inotify_init())
    {
        inotify_add_watch(m_inotify, QFile::encodeName(hot.path()), IN_MOVED_TO);
    }
    ~ByHand() override { close(m_inotify); }

    int version() override
    {
        QSharedPointer<QObject> root;
        {
            const QMutexLocker locker(&m_mutex);
            root = m_root;
        }
        auto *teller = qobject_cast<Teller *>(root.data());
        return teller ? m_version.load() : 0; // a root that was given no emitter does not know its own
    }

    void takeUp(const QString &name, int version)
    {
        char event[4096];
        benchmark::DoNotOptimize(read(m_inotify, event, sizeof event));
        benchmark::DoNotOptimize(QDir(m_hot.path()).entryList({QStringLiteral("lib*.so")}).size());
        QFile::rename(m_hot.filePath(name), m_deployed.filePath(name));
        // Loads by the name alone, as the rules say. The file stays: the calls of the old version may not be over.
        QPluginLoader &loader = m_loaders.emplace_back(QFileInfo(name).completeBaseName());
        QSharedPointer<QObject> root(loader.instance());
        if (!root)
            qFatal("not loaded");
        const QMutexLocker locker(&m_mutex);
        m_root.swap(root);
        m_version = version;
    }

private:
    const PluginFolder &m_hot, &m_deployed;
    const int m_inotify;
    std::deque<QPluginLoader> m_loaders;
    QMutex m_mutex;
    QSharedPointer<QObject> m_root;
    std::atomic<int> m_version{0};
};

void floor(benchmark::State &state)
{
    const PluginFolder deployed;
    const PluginFolder hot(false);
    ByHand service(hot, deployed);
    int version = 0;
    swapAgainAndAgain(state, hot, deployed, service, [&](const QString &name) { service.takeUp(name, ++version); });
}

BENCHMARK(ours)->Name("live swap/ours")->UseManualTime()->Iterations(100);
BENCHMARK(floor)->Name("live swap/floor")->UseManualTime()->Iterations(100);

} // namespace
