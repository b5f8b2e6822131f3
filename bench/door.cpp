// SPDX-License-Identifier: Apache-2.0
// What a flood of requests at its door costs a host: how long its own calls take, beside the same when nobody asks.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <atomic>
#include <thread>
#include <vector>

#include <httplib.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr int Clients = 16;

/// A host that works all the time.
class Host
{
public:
    Host()
    {
        QFile::copy(QStringLiteral(TOILER), m_folder.filePath(QStringLiteral("libtoiler.so")));
        QFile file(m_folder.filePath(QStringLiteral("app.json")));
        file.open(QIODevice::WriteOnly);
        QDir(m_folder.path()).mkdir(QStringLiteral("hot-deploy"));
        const QJsonObject loader{{QStringLiteral("deployed"), m_folder.path()},
                                 {QStringLiteral("hot-deploy"), m_folder.filePath(QStringLiteral("hot-deploy"))},
                                 {QStringLiteral("load-list"), QJsonArray{QStringLiteral("toiler")}}};
        file.write(
            QJsonDocument(QJsonObject{{QStringLiteral("loader"), loader},
                                      {QStringLiteral("door"), QJsonObject{{QStringLiteral("socket"), socket()}}}})
                .toJson());
        file.close();
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(QStringLiteral(ZHOST), {file.fileName()});
        while (m_process.waitForReadyRead(20) || !isReady()) {
        }
    }
    ~Host()
    {
        m_process.kill(); // it works on
        m_process.waitForFinished();
    }

    httplib::Client client() const
    {
        httplib::Client client(QFile::encodeName(socket()).toStdString());
        client.set_address_family(AF_UNIX);
        client.set_read_timeout(60);
        return client;
    }
    /// How long one round of its work takes.
    double seconds() const
    {
        const httplib::Result result = client().Post("/v1/call?url=//toiler&deadline=60000", "{}", "application/json");
        const QByteArray body = result ? QByteArray::fromStdString(result->body) : QByteArray();
        const QJsonObject out = QJsonDocument::fromJson(body).object().value(QStringLiteral("out")).toObject();
        return out.value(QStringLiteral("nanoseconds")).toDouble() / 1e9;
    }

private:
    QString socket() const { return m_folder.filePath(QStringLiteral("door")); }
    bool isReady() const
    {
        const httplib::Result result = client().Get("/readyz");
        return result && result->status == 200;
    }

    const QTemporaryDir m_folder;
    QProcess m_process;
};

/// Asks for all that is known, as fast as it can; what that costs the clients is not to be the host's.
class Flood
{
public:
    Flood(const Host &host, int clients)
    {
        for (int i = 0; i < clients; ++i)
            m_clients.emplace_back([this, &host] {
                setpriority(PRIO_PROCESS, id_t(gettid()), 19);
                while (!m_isOver)
                    host.client().Get("/v1/report");
            });
    }
    ~Flood()
    {
        m_isOver = true;
        for (std::thread &client : m_clients)
            client.join();
    }

private:
    std::atomic_bool m_isOver{false};
    std::vector<std::thread> m_clients;
};

void measure(benchmark::State &state, int clients)
{
    const Host host;
    const Flood flood(host, clients);
    for (auto _ : state) {
        const double seconds = host.seconds();
        if (seconds <= 0)
            return state.SkipWithError("the host does not answer");
        state.SetIterationTime(seconds);
    }
}

const bool areRegistered = [] {
    const auto add = [](const char *name, int clients) {
        benchmark::RegisterBenchmark(name, [=](benchmark::State &state) { measure(state, clients); })
            ->UseManualTime()
            ->Iterations(5);
    };
    add("work of a host under a flood of requests/ours", Clients);
    add("work of a host under a flood of requests/floor", 0);
    return true;
}();

} // namespace
