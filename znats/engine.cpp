// SPDX-License-Identifier: Apache-2.0
#include "engine.h"

#include "pin.h"

#include <algorithm>

namespace {

constexpr int ConnectMs = 500;
constexpr int FlushMs = 500;
// An end takes some two seconds in all, even if the broker hangs.
constexpr int EndMs = 1000;   // for calls on the way
constexpr int SoonMs = 700;   // for the broker to hear that we end
constexpr int LastMs = 400;   // for calls that have asked others
constexpr int WordMs = 200;   // for the last answers to be sent
constexpr int CloseMs = 1000; // longer than an attempt to connect, which cannot be broken off
constexpr int PatientCloseMs = 10000;
constexpr int PauseMs = 100; // until it is looked whether it has to hurry

} // namespace

Engine::Engine(const NatsSettings &theSettings, const Log &theLog)
    : settings(theSettings), log(theLog), below(QSharedPointer<QObject>()), belowReach(nullptr),
      connection(settings, log), requests(connection, settings.inbox), workers(settings.workers, settings.queue),
      remote(settings, log, connection, requests, hosts),
      provider(settings, log, connection, workers, below, belowReach),
      inventory(settings, connection, requests, provider), leases(settings, log, connection)
{}

void Engine::setBelow(const QSharedPointer<ZReference> &bus)
{
    below.replace(bus);
    belowReach.replace(bus);
}

void Engine::open()
{
    requests.open();
    provider.open();
    inventory.open();
    provider.sweep();
    connection.open(
        {[this](int link) { requests.fail(link); }, [this](const Denial &denial) { requests.deny(denial); }},
        ConnectMs);
    flush();
}

void Engine::flush() { connection.flush(FlushMs); }

void Engine::end()
{
    const QDeadlineTimer deadline(EndMs);
    end([deadline] { return deadline; }, CloseMs);
}

void Engine::endWhenDone()
{
    end([this] { return deadlineOfAll(); }, PatientCloseMs);
}

void Engine::hurry()
{
    const QMutexLocker locker(&m_mutex);
    m_latest = QDeadlineTimer(EndMs);
}

void Engine::leaveBehind()
{
    if (m_isClean)
        return;
    m_isClean = true;
    keepForGood(shared_from_this());
    log.warn(QStringLiteral("a call has not ended: this plugin stays in memory"));
}

void Engine::end(const std::function<QDeadlineTimer()> &deadline, int closeMs)
{
    if (m_isEnded)
        return;
    m_isEnded = true;
    const QDeadlineTimer soon(SoonMs);
    const bool areLeasesBack = leases.end(soon);
    connection.drain(soon);
    bool isAnswered = workers.waitDone(QDeadlineTimer(0)); // calls on the way may still ask others
    while (!isAnswered && !deadline().hasExpired())
        isAnswered = workers.waitDone(QDeadlineTimer(std::min<qint64>(PauseMs, deadline().remainingTime())));
    requests.end();
    isAnswered = isAnswered || workers.waitDone(QDeadlineTimer(LastMs)); // those that have asked others wait no longer
    connection.flush(WordMs);
    m_isClean = connection.close(QDeadlineTimer(closeMs)) && isAnswered && areLeasesBack;
}

/// When the last of those who have asked waits no longer.
QDeadlineTimer Engine::deadlineOfAll() const
{
    const QDeadlineTimer latest = provider.latest();
    const QMutexLocker locker(&m_mutex);
    return m_latest < latest ? m_latest : latest;
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

Failure Engine::callAll(const QUrl &url, const QJsonObject *in, QJsonObject *out)
{
    Tally::Call counted(m_broadcasts);
    Failure failure = remote.callAll(url, in, out);
    if (!failure || failure.code == Failure::Nobody) // there need not be anybody
        return failure;
    counted.end(failure);
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
                            {QStringLiteral("all"), m_broadcasts.describe()},
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
