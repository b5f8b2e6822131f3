// SPDX-License-Identifier: Apache-2.0
#include "engine.h"

namespace {

constexpr int ConnectMs = 1000;
constexpr int FlushMs = 500;
constexpr int EndMs = 2000;

} // namespace

Engine::Engine(const NatsSettings &theSettings, const Log &theLog)
    : settings(theSettings), log(theLog), below(QSharedPointer<QObject>()), connection(settings, log),
      requests(connection, settings.inbox), workers(settings.workers, settings.queue),
      remote(settings, log, connection, requests, hosts), provider(settings, log, connection, workers, below),
      inventory(settings, connection, requests, provider), leases(settings, log, connection)
{}

void Engine::open()
{
    requests.open();
    provider.open();
    inventory.open();
    provider.sweep();
    connection.open(
        {[this](int link) { requests.fail(link); }, [this](const QByteArray &subject) { requests.fail(subject); }},
        ConnectMs);
    flush();
}

void Engine::flush() { connection.flush(FlushMs); }

bool Engine::end()
{
    if (m_isEnded)
        return m_isClean;
    m_isEnded = true;
    const QDeadlineTimer deadline(EndMs);
    const bool areLeasesBack = leases.end(deadline);
    connection.drain(requests.subject(), deadline);
    const bool isAnswered = workers.waitDone(deadline); // calls on the way may still ask others
    requests.end();
    flush();
    m_isClean = connection.close(deadline) && isAnswered && areLeasesBack;
    return m_isClean;
}

Failure Engine::call(const QUrl &url, QJsonObject *in, QJsonObject *out, QString *host)
{
    Tally::Call counted(m_calls);
    Failure failure = remote.call(url, in, out, host);
    counted.end(failure);
    if (failure && failure.code != Failure::Refused)
        log.failed(url, failure.reason);
    return failure;
}

QJsonObject Engine::describe() const
{
    QJsonArray served;
    const QList<QUrl> urls = provider.served();
    for (const QUrl &url : urls)
        served.append(url.toString());
    const QJsonObject calls{{QStringLiteral("out"), m_calls.describe()},
                            {QStringLiteral("in"), provider.tally().describe()}};
    return {{QStringLiteral("layer"), QStringLiteral("nats")},
            {QStringLiteral("name"), settings.name},
            {QStringLiteral("domain"), settings.domain},
            {QStringLiteral("connection"), connection.describe()},
            {QStringLiteral("served"), served},
            {QStringLiteral("hosts"), hosts.describe()},
            {QStringLiteral("calls"), calls},
            {QStringLiteral("reasons"), m_calls.reasons()},
            {QStringLiteral("refused"), provider.tally().reasons()},
            {QStringLiteral("queue"), workers.describe()},
            {QStringLiteral("leases"), leases.describe()}};
}
