// SPDX-License-Identifier: Apache-2.0
// The bus among one, a thousand and a million endpoints, with nothing logged.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServer>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>
#include <QSemaphore>
#include <QThread>
#include <QVector>

#include <algorithm>
#include <ctime>
#include <map>
#include <memory>
#include <random>

#include <zdbussubscriber.h>
#include <zdefaultdbus.h>

#if __has_include(<gio/gio.h>)
#undef signals
#include <gio/gio.h>
#define HAVE_GIO
#endif
#if __has_include(<Poco/NotificationCenter.h>)
#include <Poco/NObserver.h>
#include <Poco/Notification.h>
#include <Poco/NotificationCenter.h>
#define HAVE_POCO
#endif

namespace {

class Endpoint : public ZDbusSubscriber
{
public:
    bool invoked(const QUrl &, QJsonObject *, QJsonObject *) override { return ++m_calls > 0; }

private:
    qint64 m_calls = 0;
};

/// What the rules of the bus demand: one key built outside the lock, one probe and a promotion under it.
class Floor : public ZDbus
{
public:
    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override
    {
        const QString host = url.host(QUrl::FullyDecoded);
        if (host.isEmpty())
            return false;
        const QString key = keyOf(host, url);
        const QMutexLocker locker(&m_mutex);
        m_endpoints.insert(key, std::move(subscriber));
        return true;
    }

    bool find0(const QUrl &url) override
    {
        const QString key = keyOf(url.host(QUrl::FullyDecoded), url);
        const QMutexLocker locker(&m_mutex);
        return m_endpoints.contains(key);
    }

    QList<QUrl> findAll0(const QRegularExpression &re) override
    {
        QList<QUrl> urls;
        const QMutexLocker locker(&m_mutex);
        for (auto endpoint = m_endpoints.cbegin(); endpoint != m_endpoints.cend(); ++endpoint) {
            const QSharedPointer<ZDbusSubscriber> alive = endpoint->toStrongRef();
            if (alive && re.match(endpoint.key()).hasMatch())
                urls.append(QUrl(endpoint.key()));
        }
        return urls;
    }

    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override
    {
        const QString host = url.host(QUrl::FullyDecoded);
        if (host.isEmpty())
            return invokeAll(url, in, out);
        const QString key = keyOf(host, url);
        QSharedPointer<ZDbusSubscriber> subscriber;
        {
            const QMutexLocker locker(&m_mutex);
            const auto endpoint = m_endpoints.constFind(key);
            if (endpoint != m_endpoints.constEnd())
                subscriber = endpoint->toStrongRef();
        }
        return subscriber && subscriber->invoked(url, in, out);
    }

private:
    static QString keyOf(const QString &host, const QUrl &url)
    {
        const QString path = url.path(QUrl::FullyDecoded);
        QString key;
        key.reserve(2 + host.size() + path.size());
        return key.append(QLatin1String("//")).append(host).append(path);
    }

    bool invokeAll(const QUrl &url, QJsonObject *in, QJsonObject *out)
    {
        bool handled = false;
        const QMutexLocker locker(&m_mutex);
        for (const QWeakPointer<ZDbusSubscriber> &endpoint : qAsConst(m_endpoints)) {
            if (const QSharedPointer<ZDbusSubscriber> alive = endpoint.toStrongRef())
                handled |= alive->invoked(url, in, out);
        }
        return handled;
    }

    QMutex m_mutex;
    QHash<QString, QWeakPointer<ZDbusSubscriber>> m_endpoints;
};

/// The endpoints of all buses of one size: made in one order, bound in a second and called in a third, so that a call
/// among a million finds neither its entry nor its subscriber in the caches.
struct Endpoints
{
    QVector<QUrl> urls; // in the order of the calls
    QVector<QSharedPointer<ZDbusSubscriber>> subscribers;
    QVector<int> order; // of binding

    explicit Endpoints(int count)
    {
        for (int i = 0; i < count; ++i) {
            urls.append(QUrl(QStringLiteral("//worker%1/run").arg(i)));
            subscribers.append(QSharedPointer<Endpoint>::create());
            order.append(i);
        }
        std::shuffle(subscribers.begin(), subscribers.end(), std::mt19937(1));
        std::shuffle(order.begin(), order.end(), std::mt19937(2));
    }

    void bind(int index, ZDbus &bus) const
    {
        const int endpoint = order.at(index);
        bus.bind0(urls.at(endpoint), subscribers.at(endpoint));
    }

    static const Endpoints &of(int count)
    {
        static std::map<int, std::unique_ptr<Endpoints>> all;
        std::unique_ptr<Endpoints> &endpoints = all[count];
        if (!endpoints)
            endpoints = std::make_unique<Endpoints>(count);
        return *endpoints;
    }
};

/// Filled once for each size, since a million take a second.
template <class Bus>
ZDbus &filled(int count)
{
    static std::map<int, std::unique_ptr<Bus>> buses;
    std::unique_ptr<Bus> &bus = buses[count];
    if (!bus) {
        bus = std::make_unique<Bus>();
        for (int i = 0; i < count; ++i)
            Endpoints::of(count).bind(i, *bus);
    }
    return *bus;
}

int count(const benchmark::State &state) { return static_cast<int>(state.range(0)); }

template <class Bus>
void unicast(benchmark::State &state)
{
    ZDbus &bus = filled<Bus>(count(state));
    const QVector<QUrl> &urls = Endpoints::of(count(state)).urls;
    int next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(bus.invoke0(urls.at(next), nullptr, nullptr));
        next = next + 1 < urls.size() ? next + 1 : 0;
    }
}

/// Time for each entry; the work of a whole walk is one batch.
template <class Bus>
void broadcast(benchmark::State &state)
{
    ZDbus &bus = filled<Bus>(count(state));
    const QUrl everybody(QStringLiteral("/x"));
    while (state.KeepRunningBatch(count(state)))
        benchmark::DoNotOptimize(bus.invoke0(everybody, nullptr, nullptr));
}

template <class Bus>
void findAll(benchmark::State &state)
{
    ZDbus &bus = filled<Bus>(count(state));
    const QRegularExpression re(QStringLiteral("^//worker7/"));
    while (state.KeepRunningBatch(count(state)))
        benchmark::DoNotOptimize(bus.findAll0(re));
}

constexpr int million = 1000000;

/// Time for each entry, from an empty table to a full one.
template <class Bus>
void binding(benchmark::State &state)
{
    const Endpoints &endpoints = Endpoints::of(million);
    const auto bus = std::make_unique<Bus>();
    int next = 0;
    for (auto _ : state)
        endpoints.bind(next++, *bus);
}

double processorTime()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now); // whoever takes the processor from us does not hold our lock
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

/// The longest that one of a million bindings takes, and so keeps all others out.
template <class Bus>
void longestHold(benchmark::State &state)
{
    const Endpoints &endpoints = Endpoints::of(million);
    for (auto _ : state) {
        const auto bus = std::make_unique<Bus>();
        double longest = 0;
        for (int i = 0; i < million; ++i) {
            const double start = processorTime();
            endpoints.bind(i, *bus);
            longest = std::max(longest, processorTime() - start);
        }
        state.SetIterationTime(longest);
    }
}

BENCHMARK_TEMPLATE(unicast, ZDefaultDbus)->Name("bus unicast/ours")->Arg(1)->Arg(1000)->Arg(million);
BENCHMARK_TEMPLATE(unicast, Floor)->Name("bus unicast/floor")->Arg(1)->Arg(1000)->Arg(million);
BENCHMARK_TEMPLATE(broadcast, ZDefaultDbus)->Name("broadcast, an entry/ours")->Arg(1000)->Arg(million);
BENCHMARK_TEMPLATE(broadcast, Floor)->Name("broadcast, an entry/floor")->Arg(1000)->Arg(million);
BENCHMARK_TEMPLATE(findAll, ZDefaultDbus)->Name("findAll0, an entry/ours")->Arg(1000)->Arg(million);
BENCHMARK_TEMPLATE(findAll, Floor)->Name("findAll0, an entry/floor")->Arg(1000)->Arg(million);
BENCHMARK_TEMPLATE(binding, ZDefaultDbus)->Name("binding a million, an entry/ours")->Iterations(million);
BENCHMARK_TEMPLATE(binding, Floor)->Name("binding a million, an entry/floor")->Iterations(million);
BENCHMARK_TEMPLATE(longestHold, ZDefaultDbus)
    ->Name("longest hold, a million/ours")
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime();
BENCHMARK_TEMPLATE(longestHold, Floor)
    ->Name("longest hold, a million/floor")
    ->Iterations(1)
    ->Repetitions(3)
    ->UseManualTime();

#ifdef HAVE_GIO
/// Actions by name, as an application's menu calls them.
struct Actions
{
    GSimpleActionGroup *group = g_simple_action_group_new();
    std::vector<std::string> names;
    gint64 calls = 0;

    explicit Actions(int count)
    {
        for (int i = 0; i < count; ++i)
            names.push_back("worker" + std::to_string(i) + "-run");
        std::shuffle(names.begin(), names.end(), std::mt19937(1));
        for (const std::string &name : names) {
            GSimpleAction *action = g_simple_action_new(name.c_str(), nullptr);
            g_signal_connect(action, "activate", G_CALLBACK(activated), &calls);
            g_action_map_add_action(G_ACTION_MAP(group), G_ACTION(action));
            g_object_unref(action);
        }
        std::shuffle(names.begin(), names.end(), std::mt19937(2));
    }

    static void activated(GSimpleAction *, GVariant *, gpointer calls) { ++*static_cast<gint64 *>(calls); }

    static Actions &of(int count)
    {
        static std::map<int, std::unique_ptr<Actions>> all;
        std::unique_ptr<Actions> &actions = all[count];
        if (!actions)
            actions = std::make_unique<Actions>(count);
        return *actions;
    }
};

void actionByName(benchmark::State &state)
{
    Actions &actions = Actions::of(count(state));
    std::size_t next = 0;
    for (auto _ : state) {
        g_action_group_activate_action(G_ACTION_GROUP(actions.group), actions.names[next].c_str(), nullptr);
        next = next + 1 < actions.names.size() ? next + 1 : 0;
    }
}
BENCHMARK(actionByName)->Name("bus unicast/peer: GLib action by name")->Arg(1)->Arg(1000)->Arg(million);
#endif

#ifdef HAVE_POCO
struct Observer
{
    qint64 calls = 0;
    void notified(const Poco::AutoPtr<Poco::Notification> &) { ++calls; }
};

void notification(benchmark::State &state)
{
    Poco::NotificationCenter center;
    std::vector<Observer> observers(static_cast<std::size_t>(count(state)));
    for (Observer &observer : observers)
        center.addObserver(Poco::NObserver<Observer, Poco::Notification>(observer, &Observer::notified));
    while (state.KeepRunningBatch(count(state)))
        center.postNotification(new Poco::Notification);
}
BENCHMARK(notification)->Name("broadcast, an entry/peer: POCO NotificationCenter")->Arg(1000);
#endif

} // namespace

/// Lives in a thread of its own, and answers those who connect to it.
class Server : public QDBusServer
{
    Q_OBJECT

public:
    Server() : QDBusServer(QStringLiteral("unix:tmpdir=/tmp"))
    {
        connect(this, &QDBusServer::newConnection, this, [this](QDBusConnection connection) {
            connection.registerObject(QStringLiteral("/run"), this, QDBusConnection::ExportAllSlots);
        });
    }

public Q_SLOTS:
    bool invoked() { return true; }
};

namespace {

class ServerThread : public QThread
{
public:
    ServerThread()
    {
        start();
        m_ready.acquire();
    }
    ~ServerThread() override
    {
        quit();
        wait();
    }

    QString address;

private:
    void run() override
    {
        Server server;
        address = server.address();
        m_ready.release();
        exec();
    }

    QSemaphore m_ready;
};

void dbusCall(benchmark::State &state)
{
    const ServerThread server;
    const QString name = QStringLiteral("bench");
    QDBusConnection connection = QDBusConnection::connectToPeer(server.address, name);
    const QDBusMessage message =
        QDBusMessage::createMethodCall(QString(), QStringLiteral("/run"), QString(), QStringLiteral("invoked"));
    while (connection.call(message).type() == QDBusMessage::ErrorMessage) // until the server has taken us
        QThread::msleep(1);
    for (auto _ : state) {
        if (connection.call(message).type() != QDBusMessage::ReplyMessage)
            state.SkipWithError("no answer");
    }
    QDBusConnection::disconnectFromPeer(name);
}
BENCHMARK(dbusCall)->Name("bus unicast/peer: D-Bus peer call")->Arg(1)->UseRealTime();

} // namespace

#include "bus.moc"
