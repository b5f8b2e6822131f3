// SPDX-License-Identifier: Apache-2.0
#include "provider.h"

#include "body.h"
#include "headers.h"
#include "processend.h"
#include "servedcall.h"
#include "thisprocess.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>

#include <algorithm>
#include <cxxabi.h>
#include <utility>

namespace {

constexpr int UrlsInAnAnswer = 1000;
constexpr int MostCharacters = 1000; // of a regular expression
constexpr int MostHops = 1000;
constexpr qint64 MostLeftMs = 24 * 3600 * 1000;
constexpr int UnknownMs = 60000; // for which an asker that does not say is taken to wait

/// As the bus has it.
QString addressOf(const QUrl &url)
{
    return QStringLiteral("//") + url.host(QUrl::FullyDecoded) + url.path(QUrl::FullyDecoded);
}

/// Nothing if there is no such header; `most` if it is no number from 0 to `most`.
std::optional<qint64> numberIn(const NatsMessage &message, const char *header, qint64 most)
{
    const QByteArray text = headerOf(message, header);
    if (text.isEmpty())
        return {};
    bool isNumber = false;
    const qint64 number = text.toLongLong(&isNumber);
    return isNumber && number >= 0 && number <= most ? number : most;
}

/// What our clock said when we have refused the same request before; nothing if we have not.
std::optional<qint64> echoIn(const NatsMessage &message, const QString &name)
{
    const QList<QByteArray> echoes = headerOf(message, Header::Echo).split(',');
    for (const QByteArray &echo : echoes) {
        const QList<QByteArray> parts = echo.split(' ');
        if (parts.size() == 2 && QString::fromUtf8(parts.first()) == name)
            return qBound(qint64(0), parts.last().toLongLong(), MostClockMs);
    }
    return {};
}

} // namespace

struct Provider::Call
{
    Call(NatsMessage arrived, std::atomic<int> &unreadCalls)
        : message(std::move(arrived)), arrivedMs(QDateTime::currentMSecsSinceEpoch()), unread(unreadCalls)
    {
        sinceArrival.start();
        ++unread;
    }
    ~Call() { noteRead(); }
    void noteRead()
    {
        if (!std::exchange(isRead, true))
            --unread;
    }

    NatsMessage message;
    const qint64 arrivedMs; // since 1970
    QElapsedTimer sinceArrival;
    std::atomic<int> &unread;
    bool isRead = false;
    std::optional<qint64> leftMs; // then; nothing if its sender waits for ever
    int hops = 1;

    bool isLate() const { return leftMs && sinceArrival.elapsed() > *leftMs; }
    QDeadlineTimer deadline() const
    {
        return leftMs ? QDeadlineTimer(std::max<qint64>(*leftMs - sinceArrival.elapsed(), 0))
                      : QDeadlineTimer(QDeadlineTimer::Forever);
    }
};

Provider::Provider(const NatsSettings &settings, const Log &log, Connection &connection, Workers &workers, ZDbus &below,
                   ZDbusReach &belowReach)
    : m_settings(settings), m_log(log), m_subjects(settings.domain), m_connection(connection), m_workers(workers),
      m_below(below), m_belowReach(belowReach)
{}

void Provider::open()
{
    if (m_settings.broadcastAll)
        m_connection.listen(m_subjects.broadcast(), Listening::Everyone, queueing(&Provider::answerBroadcast));
    if (m_settings.serve.isEmpty())
        return;
    // Shared: of two processes with one name, only one is to answer.
    m_connection.listen(m_subjects.allAt(m_settings.name), Listening::Shared, queueing(&Provider::answerCall));
    m_connection.listen(m_subjects.list(), Listening::Everyone, queueing(&Provider::answerList));
}

void Provider::serve(const QUrl &url)
{
    const QByteArray place = Subjects::placeOf(url);
    if (!isServed(url))
        return;
    if (place.isEmpty()) {
        m_log.warn(QStringLiteral("%1 is not served: the address is too long").arg(url.toString()));
        return;
    }
    const QByteArray subject = m_subjects.call(place);
    const QMutexLocker locker(&m_mutex); // held, or what is swept just now would stay unserved
    if (m_served.contains(subject))
        return;
    m_served.insert(subject, Subjects::urlAt(place)); // no part of it is shared with the caller, which may be unloaded
    m_connection.listen(subject, Listening::Shared, queueing(&Provider::answerCall));
}

void Provider::sweep()
{
    QHash<QByteArray, QUrl> bound;
    const QList<QUrl> urls = allBound();
    for (const QUrl &url : urls) {
        serve(url);
        bound.insert(m_subjects.call(Subjects::placeOf(url)), url);
    }
    const QList<QUrl> all = served();
    for (const QUrl &url : all) {
        const QByteArray subject = m_subjects.call(Subjects::placeOf(url));
        if (bound.contains(subject) || m_below.find0(url)) // it may have been bound after we looked
            continue;
        const QMutexLocker locker(&m_mutex);
        m_served.remove(subject);
        m_connection.unlisten(subject);
    }
    for (const QUrl &url : all) {
        if (m_below.find0(url)) // or after we looked again
            serve(url);
    }
}

/// What it is for was found to be gone.
void Provider::forget(const QByteArray &subject)
{
    {
        const QMutexLocker locker(&m_mutex);
        if (!m_served.contains(subject))
            return;
    }
    sweep();
}

QList<QUrl> Provider::served() const
{
    const QMutexLocker locker(&m_mutex);
    return m_served.values();
}

QDeadlineTimer Provider::latest() const
{
    if (m_unread > 0)
        return QDeadlineTimer(UnknownMs);
    const QMutexLocker locker(&m_mutex);
    return m_latest;
}

/// Has `answerer` answer what arrives, by one of the workers. The worker reads the headers, too: if there are very
/// many, the client library takes seconds for that, and nothing else would arrive meanwhile.
MessageHandler Provider::queueing(Answerer answerer)
{
    return [this, answerer](NatsMessage message) {
        const auto call = std::make_shared<Call>(std::move(message), m_unread);
        const auto work = [this, call, answerer] {
            read(*call);
            (this->*answerer)(*call);
        };
        if (m_workers.start(work))
            return;
        Tally::Call counted(m_tally);
        counted.end(Failure::Busy);
        refuse(*call, Failure::Busy);
    };
}

void Provider::read(Call &call)
{
    call.hops =
        static_cast<int>(numberIn(call.message, Header::Hops, MostHops).value_or(1)); // others than ours may not say it
    const std::optional<qint64> leftMs = numberIn(call.message, Header::Left, MostLeftMs);
    const std::optional<qint64> deadlineMs = numberIn(call.message, Header::Deadline, MostClockMs);
    if (leftMs && deadlineMs) {
        const QByteArray inbox = replyOf(call.message);
        const qint64 ageMs = m_clocks.age(inbox.left(inbox.lastIndexOf('.')), *deadlineMs - *leftMs, call.arrivedMs,
                                          echoIn(call.message, m_settings.name));
        call.leftMs = *leftMs - ageMs;
    } else {
        call.leftMs = leftMs;
    }
    const QDeadlineTimer deadline = call.leftMs ? call.deadline() : QDeadlineTimer(UnknownMs);
    const QMutexLocker locker(&m_mutex);
    if (m_latest < deadline)
        m_latest = deadline;
    call.noteRead();
}

void Provider::answerList(Call &call)
{
    const QJsonObject question = QJsonDocument::fromJson(bodyOf(call.message)).object();
    const QRegularExpression expression(
        question.value(QStringLiteral("re")).toString(),
        QRegularExpression::PatternOptions(question.value(QStringLiteral("options")).toInt()));
    if (!expression.isValid() || expression.pattern().size() > MostCharacters)
        return;
    const QList<QUrl> urls = allBound();
    QJsonArray some;
    for (const QUrl &url : urls) { // not by the bus, which is locked meanwhile: the expression is a stranger's
        if (isServed(url) && expression.match(addressOf(url)).hasMatch())
            some.append(url.toString());
        if (some.size() == UrlsInAnAnswer) {
            answer(call, QJsonDocument(some).toJson(QJsonDocument::Compact));
            some = {};
        }
    }
    if (!some.isEmpty())
        answer(call, QJsonDocument(some).toJson(QJsonDocument::Compact));
}

/// The endpoints that are served hear it.
void Provider::answerBroadcast(Call &call)
{
    if (headerOf(call.message, Header::Process) == thisProcess()) // it comes back by another link
        return;
    const QUrl url = QUrl::fromEncoded(headerOf(call.message, Header::Url));
    std::optional<Body> body = Body::decode(bodyOf(call.message));
    Tally::Call counted(m_tally);
    Failure failure;
    if (!body)
        failure = Failure::NotJson;
    else if (call.isLate())
        failure = Failure::TooLate;
    else if (call.hops > m_settings.hops)
        failure = Failure::Loop;
    else if (!url.host().isEmpty())
        failure = Failure::NotServed;
    else
        failure = invoke(call, &*body, [&](QJsonObject *in, QJsonObject *out) {
            return m_belowReach.reachAll0(allServed(), url, in, out);
        });
    end(call, counted, failure, body);
}

/// Matches the addresses of the endpoints that are served.
QRegularExpression Provider::allServed() const
{
    QStringList addresses;
    const QList<QUrl> urls = allBound();
    for (const QUrl &url : urls) {
        if (isServed(url))
            addresses.append(QRegularExpression::escape(addressOf(url)));
    }
    return QRegularExpression(QStringLiteral("\\A(?:%1)\\z").arg(addresses.join(QLatin1Char('|'))));
}

void Provider::answerCall(Call &call)
{
    const QByteArray subject = subjectOf(call.message);
    const QByteArray encoded = headerOf(call.message, Header::Url);
    const QUrl url = encoded.isEmpty() ? m_subjects.urlIn(subject) : QUrl::fromEncoded(encoded);
    // The broker knows who may use which subject. So the URL must not be another one than the subject says.
    const bool isAllowed = m_subjects.isFor(url, subject) && isServed(url);
    if (isAllowed && headerOf(call.message, Header::Operation) == "find")
        return answerFind(url, call);
    Tally::Call counted(m_tally);
    Failure failure;
    std::optional<Body> body;
    if (!isAllowed)
        failure = Failure::NotServed;
    else if (call.isLate())
        failure = Failure::TooLate;
    else if (call.hops > m_settings.hops)
        failure = Failure::Loop;
    else if (!(body = Body::decode(bodyOf(call.message))))
        failure = Failure::NotJson;
    else
        failure = invoke(call, &*body, [&](QJsonObject *in, QJsonObject *out) { return reach(url, in, out); });
    end(call, counted, failure, body);
    if (failure.code == Failure::Gone)
        forget(subject);
}

/// Answers what came of it.
void Provider::end(const Call &call, Tally::Call &counted, Failure failure, const std::optional<Body> &body)
{
    if (!failure && send(call, body->encode(), {}) == NATS_MAX_PAYLOAD)
        failure = Failure(Failure::TooLarge, QStringLiteral("the answer is too large"));
    counted.end(failure);
    if (failure)
        refuse(call, failure);
}

/// Makes the call, by `reach`. What it answers is in `body` then, with "in" only if that was changed.
Failure Provider::invoke(const Call &call, Body *body, const Reach &reach)
{
    const std::optional<QJsonObject> before = body->in;
    const ServedCall served(call.hops, call.deadline(), &m_workers);
    ZDbusReach::Reached reached = ZDbusReach::Unsupported;
    try {
        reached = reach(body->in ? &*body->in : nullptr, body->out ? &*body->out : nullptr);
    } catch (const abi::__forced_unwind &) {
        throw; // the thread is being terminated
    } catch (...) {
        return Failure::Thrown;
    }
    if (reached != ZDbusReach::Handled)
        return reached == ZDbusReach::Refused ? Failure::Refused : Failure::Gone;
    if (body->in == before)
        body->in.reset();
    return {};
}

ZDbusReach::Reached Provider::reach(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    const ZDbusReach::Reached reached = m_belowReach.reach0(url, in, out);
    if (reached != ZDbusReach::Unsupported)
        return reached;
    // Whether anybody was called is not known then: so nobody may call again.
    return m_below.invoke0(url, in, out) ? ZDbusReach::Handled : ZDbusReach::Refused;
}

void Provider::answerFind(const QUrl &url, Call &call)
{
    if (m_below.find0(url)) {
        answer(call, "{}");
    } else {
        refuse(call, Failure::Gone);
        forget(subjectOf(call.message));
    }
}

void Provider::answer(const Call &call, const QByteArray &body) { send(call, body, {}); }

void Provider::refuse(const Call &call, const Failure &failure) { send(call, {}, failure); }

QList<QUrl> Provider::allBound() const
{
    const Look look;
    if (!look.isAllowed())
        return {};
    return m_below.findAll0(QRegularExpression(QStringLiteral(".*")));
}

natsStatus Provider::send(const Call &call, const QByteArray &body, const Failure &failure)
{
    const QByteArray to = replyOf(call.message);
    natsMsg *made = nullptr;
    if (to.isEmpty() || natsMsg_Create(&made, to, nullptr, body, body.size()) != NATS_OK)
        return NATS_OK;
    const NatsMessage message(made);
    natsMsgHeader_Set(made, Header::Host, m_settings.name.toUtf8());
    natsMsgHeader_Set(made, Header::Clock, QByteArray::number(QDateTime::currentMSecsSinceEpoch()));
    if (failure) {
        natsMsgHeader_Set(made, Header::ErrorCode, QByteArray::number(failure.code));
        natsMsgHeader_Set(made, Header::Error, failure.reason.toUtf8());
    }
    return m_connection.send(made);
}

bool Provider::isServed(const QUrl &url) const { return m_settings.serves(url.host(QUrl::FullyDecoded)); }
