// SPDX-License-Identifier: Apache-2.0
#include "remotecalls.h"

#include "body.h"
#include "clocks.h"
#include "headers.h"
#include "hosts.h"
#include "servedcall.h"
#include "thisprocess.h"
#include "workers.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>
#include <QThread>

#include <algorithm>

namespace {

constexpr int MostPauseMs = 64;
constexpr int MostEchoes = 16;
constexpr int FindAttempts = 3;
constexpr int BareMs = 5000; // for which an endpoint is looked for at its bare host first, once it was found there
constexpr int MostTold = 1000;
constexpr int MostReason = 1000; // characters

qint64 left(const QDeadlineTimer &deadline) { return std::max<qint64>(deadline.remainingTime(), 0); }

/// That of `msecs`, or that of the call which this thread answers, if it is earlier.
QDeadlineTimer deadlineIn(int msecs)
{
    const QDeadlineTimer deadline(msecs);
    const ServedCall *const served = ServedCall::current();
    return served && served->deadline < deadline ? served->deadline : deadline;
}

/// Of which this thread is one; null if it is none.
Workers *workersOfCall()
{
    const ServedCall *const served = ServedCall::current();
    return served ? served->workers : nullptr;
}

int hops()
{
    const ServedCall *const served = ServedCall::current();
    return served ? served->hops + 1 : 1;
}

Request requestFor(const QByteArray &subject, const QUrl &url, const QByteArray &body, const QDeadlineTimer &deadline)
{
    const qint64 msecs = left(deadline);
    return {subject,
            body,
            {{Header::Url, url.toEncoded()},
             {Header::Hops, QByteArray::number(hops())},
             {Header::Left, QByteArray::number(msecs)},
             {Header::Deadline, QByteArray::number(QDateTime::currentMSecsSinceEpoch() + msecs)}}};
}

/// Who has answered; empty if that is no name of a process, for it is told, and goes into the log.
QString answererOf(const NatsMessage &answer)
{
    const QString name = QString::fromUtf8(headerOf(answer, Header::Host));
    return NatsSettings::isName(name) ? name : QString();
}

/// The answerer's clock, which may say anything.
qint64 clockIn(const NatsMessage &answer)
{
    return qBound(qint64(0), headerOf(answer, Header::Clock).toLongLong(), MostClockMs);
}

/// The answerer's own words.
QString reasonIn(const NatsMessage &answer)
{
    const QString reason = QString::fromUtf8(headerOf(answer, Header::Error)).left(MostReason);
    return !reason.isEmpty() && reason.back().isHighSurrogate() ? reason.chopped(1) : reason;
}

/// What the answer says of a failure; none if it says nothing.
Failure failureIn(const NatsMessage &answer)
{
    if (natsMsg_IsNoResponders(answer.get()))
        return Failure::Nobody;
    const QByteArray text = headerOf(answer, Header::ErrorCode);
    if (text.isEmpty() && headerOf(answer, Header::Error).isEmpty())
        return {};
    const int code = text.toInt();
    if (code == 0 || code == 200) { // which is no error's
        Failure failure = Failure::Unreadable;
        failure.called = Failure::Unknown;
        return failure;
    }
    Failure failure(code, reasonIn(answer));
    if (code == Failure::TooLarge) // not the request, which has arrived
        failure.called = Failure::Yes;
    return failure;
}

Body bodyFrom(const QJsonObject *in, const QJsonObject *out)
{
    Body body;
    if (in)
        body.in = *in;
    if (out)
        body.out = *out;
    return body;
}

} // namespace

/// The subjects under which an endpoint may be found, one of which is current.
class RemoteCalls::Route
{
public:
    Route(QByteArray exact, QByteArray bare) : m_exact(std::move(exact)), m_bare(std::move(bare)) {}

    const QByteArray &exact() const { return m_exact; }
    const QByteArray &current() const { return m_isBare ? m_bare : m_exact; }
    bool isBare() const { return m_isBare; }
    void setBare(bool isBare) { m_isBare = isBare; }
    /// The other one, if it was not tried yet in this round.
    bool turn()
    {
        if (m_exact == m_bare || m_isTurned) {
            m_isTurned = false;
            return false;
        }
        m_isTurned = true;
        m_isBare = !m_isBare;
        return true;
    }

private:
    const QByteArray m_exact;
    const QByteArray m_bare;
    bool m_isBare = false;
    bool m_isTurned = false;
};

struct RemoteCalls::Call
{
    const QUrl &url;
    const QByteArray body;
    const QDeadlineTimer deadline;
    Route route;
    bool isByName;   // in one process
    QByteArray echo; // of all answers that it was too late
    int echoes = 0;
    int gone = 0;
    int pauseMs = 1;
};

RemoteCalls::RemoteCalls(const NatsSettings &settings, const Log &log, Connection &connection, Requests &requests,
                         Hosts &hosts)
    : m_settings(settings), m_log(log), m_subjects(settings.domain), m_connection(connection), m_requests(requests),
      m_hosts(hosts)
{}

Failure RemoteCalls::call(const QUrl &url, QJsonObject *in, QJsonObject *out, QString *host)
{
    const QByteArray exact = Subjects::placeOf(url);
    const QByteArray bare = Subjects::barePlaceOf(url);
    if (exact.isEmpty() || bare.isEmpty())
        return Failure::TooLarge;
    if (hops() > m_settings.hops)
        return Failure::Loop;
    // A process that is called by its name looks for the bare host itself.
    const bool isByName = !url.userName().isEmpty();
    const Route route(m_subjects.of(url, exact), m_subjects.of(url, isByName ? exact : bare));
    Call call{url, bodyFrom(in, out).encode(), deadlineIn(m_settings.timeoutMs), route, isByName, {}};
    call.route.setBare(m_bare.within(route.exact(), BareMs));
    for (;;) {
        Failure failure = attempt(call, in, out, host);
        if (failure && mayTryAgain(failure, call))
            continue;
        if (!failure && call.route.isBare() && !m_bare.within(call.route.exact(), BareMs))
            m_bare.note(call.route.exact());
        return failure;
    }
}

Failure RemoteCalls::attempt(Call &call, QJsonObject *in, QJsonObject *out, QString *host)
{
    if (call.deadline.hasExpired())
        return Failure::TooLate;
    Request request = requestFor(call.route.current(), call.url, call.body, call.deadline);
    if (!call.echo.isEmpty())
        request.headers.append(qMakePair(Header::Echo, call.echo));
    const Requests::Answer answer = ask(request, call.deadline);
    if (answer.failure)
        return answer.failure;
    const QString answerer = answererOf(answer.message);
    if (host)
        *host = answerer;
    Failure failure = failureIn(answer.message);
    if (failure.code == Failure::TooLate && !answerer.isEmpty()) {
        call.echo +=
            (call.echo.isEmpty() ? "" : ",") + answerer.toLatin1() + ' ' + QByteArray::number(clockIn(answer.message));
    }
    if (failure)
        return failure;
    const std::optional<Body> body = Body::decode(bodyOf(answer.message));
    if (!body)
        return Failure::Unreadable;
    if (out && body->out)
        *out = *body->out;
    if (in && body->in)
        *in = *body->in;
    m_seen.note(call.route.exact());
    return {};
}

/// Whether the call, which has failed, may be made again, and there is time for that; waits a little if that helps.
bool RemoteCalls::mayTryAgain(const Failure &failure, Call &call)
{
    switch (failure.code) {
    case Failure::Nobody:
        if (call.route.turn())
            return true;
        if (!m_seen.within(call.route.exact(), m_settings.patienceMs))
            return false;
        break;
    case Failure::NotConnected: {
        const Workers::Away away(workersOfCall());
        if (!m_connection.waitConnected(call.deadline, m_settings.patienceMs))
            return false;
        break;
    }
    case Failure::Gone:
        // Others may be there; if only this process was asked, its bare host may be.
        if (call.isByName && call.gone++ > 0 && !m_seen.within(call.route.exact(), m_settings.patienceMs))
            return false;
        break;
    case Failure::Busy:
        if (left(call.deadline) < m_settings.timeoutMs / 4) // the next refusal might come too late to be told
            return false;
        break;
    case Failure::TooLate: // by a clock that is not ours
        return !call.echo.isEmpty() && call.echoes++ < MostEchoes && !call.deadline.hasExpired();
    default:
        return false;
    }
    const Workers::Away away(workersOfCall());
    QThread::msleep(static_cast<unsigned long>(std::min<qint64>(call.pauseMs, left(call.deadline))));
    call.pauseMs = std::min(call.pauseMs * 2, MostPauseMs);
    return !call.deadline.hasExpired();
}

Failure RemoteCalls::callAll(const QUrl &url, const QJsonObject *in, QJsonObject *out)
{
    if (hops() > m_settings.hops)
        return Failure::Loop;
    const QByteArray body = bodyFrom(in, out).encode();
    bool isHandled = false;
    Request request = requestFor(m_subjects.broadcast(), url, body, deadlineIn(m_settings.timeoutMs));
    request.headers.append(qMakePair(Header::Process, thisProcess()));
    const Failure failure = gather(request, [&](const NatsMessage &answer) {
        const std::optional<Body> some = Body::decode(bodyOf(answer));
        if (failureIn(answer) || !some)
            return;
        isHandled = true;
        const QJsonObject added = some->out.value_or(QJsonObject());
        for (auto value = added.begin(); out && value != added.end(); ++value)
            out->insert(value.key(), value.value());
    });
    if (isHandled)
        return {};
    return failure ? failure : Failure::Nobody;
}

bool RemoteCalls::find(const QUrl &url)
{
    const QByteArray place = Subjects::placeOf(url);
    if (place.isEmpty())
        return false;
    const QDeadlineTimer deadline = deadlineIn(m_settings.findMs);
    Request request = requestFor(m_subjects.of(url, place), url, {}, deadline);
    request.headers.append(qMakePair(Header::Operation, QByteArray("find")));
    Failure failure = Failure::Gone;
    for (int i = 0; i < FindAttempts && failure.code == Failure::Gone; ++i) {
        const Requests::Answer answer = ask(request, deadline);
        failure = answer.failure ? answer.failure : failureIn(answer.message);
    }
    return !failure || failure.code == Failure::Busy; // who is busy is there
}

QList<QUrl> RemoteCalls::findAll(const QRegularExpression &expression)
{
    const QJsonObject question{{QStringLiteral("re"), expression.pattern()},
                               {QStringLiteral("options"), static_cast<int>(expression.patternOptions())}};
    QList<QUrl> urls;
    gather({m_subjects.list(), QJsonDocument(question).toJson(QJsonDocument::Compact), {}},
           [&](const NatsMessage &answer) {
               const QJsonArray some = QJsonDocument::fromJson(bodyOf(answer)).array();
               for (const auto &url : some)
                   urls.append(QUrl(url.toString()));
           });
    return urls;
}

/// Without keeping a place that somebody else could work in meanwhile.
Requests::Answer RemoteCalls::ask(const Request &request, const QDeadlineTimer &deadline)
{
    const Workers::Away away(workersOfCall());
    QElapsedTimer timer;
    timer.start();
    Requests::Answer answer = m_requests.ask(request, deadline);
    if (answer.message)
        note(answer.message, timer.elapsed());
    return answer;
}

Failure RemoteCalls::gather(const Request &request, const Requests::Each &each)
{
    const Workers::Away away(workersOfCall());
    return m_requests.gather(request, m_settings.gatherMs, m_settings.stallMs, each);
}

void RemoteCalls::note(const NatsMessage &answer, qint64 tripMs)
{
    const QString host = answererOf(answer);
    if (host.isEmpty())
        return;
    const qint64 skewMs = m_hosts.note(host, clockIn(answer), tripMs);
    const bool isSkewed = std::abs(skewMs) > m_settings.clockToleranceMs;
    bool isNews = false;
    {
        const QMutexLocker locker(&m_mutex);
        isNews = isSkewed != m_toldSkew.contains(host);
        if (m_toldSkew.size() >= MostTold)
            m_toldSkew.clear();
        if (isSkewed)
            m_toldSkew.insert(host);
        else
            m_toldSkew.remove(host);
    }
    if (isNews && isSkewed)
        m_log.warn(QStringLiteral("the clock of %1 differs from ours by %2 ms").arg(host).arg(skewMs));
    else if (isNews)
        m_log.info(QStringLiteral("the clock of %1 agrees with ours again").arg(host));
}
