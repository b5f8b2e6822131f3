// SPDX-License-Identifier: Apache-2.0
#include "provider.h"

#include "body.h"
#include "headers.h"
#include "servedcall.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>

#include <algorithm>
#include <cxxabi.h>

namespace {

constexpr int UrlsInAnAnswer = 1000;

QUrl bareOf(const QUrl &url)
{
    QUrl bare;
    bare.setHost(url.host(QUrl::FullyDecoded), QUrl::DecodedMode);
    return bare;
}

/// What our clock said when we have refused the same request before; nothing if we have not.
std::optional<qint64> echoIn(const NatsMessage &message, const QString &name)
{
    const QList<QByteArray> echoes = headerOf(message, Header::Echo).split(',');
    for (const QByteArray &echo : echoes) {
        const QList<QByteArray> parts = echo.split(' ');
        if (parts.size() == 2 && QString::fromUtf8(parts.first()) == name)
            return parts.last().toLongLong();
    }
    return {};
}

} // namespace

struct Provider::Call
{
    explicit Call(NatsMessage arrived) : message(std::move(arrived)) { sinceArrival.start(); }

    NatsMessage message;
    QElapsedTimer sinceArrival;
    std::optional<qint64> leftMs; // then; nothing if its sender waits for ever
    int hops = 1;

    bool isLate() const { return leftMs && sinceArrival.elapsed() > *leftMs; }
    QDeadlineTimer deadline() const
    {
        return leftMs ? QDeadlineTimer(std::max<qint64>(*leftMs - sinceArrival.elapsed(), 0))
                      : QDeadlineTimer(QDeadlineTimer::Forever);
    }
};

Provider::Provider(const NatsSettings &settings, const Log &log, Connection &connection, Workers &workers, ZDbus &below)
    : m_settings(settings), m_log(log), m_subjects(settings.domain), m_connection(connection), m_workers(workers),
      m_below(below)
{}

void Provider::open()
{
    if (m_settings.broadcastAll)
        m_connection.listen(m_subjects.broadcast(), false, queueing(&Provider::answerBroadcast));
    if (m_settings.serve.isEmpty())
        return;
    // Shared: of two processes with one name, only one is to answer.
    m_connection.listen(m_subjects.allAt(m_settings.name), true, queueing(&Provider::answerCall));
    m_connection.listen(m_subjects.list(), false, queueing(&Provider::answerList));
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
    m_connection.listen(subject, true, queueing(&Provider::answerCall));
}

void Provider::sweep()
{
    QHash<QByteArray, QUrl> bound;
    const QList<QUrl> urls = m_below.findAll0(QRegularExpression(QStringLiteral(".*")));
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

QList<QUrl> Provider::served() const
{
    const QMutexLocker locker(&m_mutex);
    return m_served.values();
}

/// Has `answerer` answer what arrives, by one of the workers.
MessageHandler Provider::queueing(Answerer answerer)
{
    return [this, answerer](NatsMessage message) {
        const auto call = std::make_shared<Call>(std::move(message));
        const QByteArray leftMs = headerOf(call->message, Header::Left);
        const QByteArray deadlineMs = headerOf(call->message, Header::Deadline);
        if (!leftMs.isEmpty()) {
            qint64 ageMs = 0;
            if (!deadlineMs.isEmpty()) {
                const QByteArray inbox = replyOf(call->message);
                ageMs = m_clocks.age(inbox.left(inbox.lastIndexOf('.')), deadlineMs.toLongLong() - leftMs.toLongLong(),
                                     QDateTime::currentMSecsSinceEpoch(), echoIn(call->message, m_settings.name));
            }
            call->leftMs = leftMs.toLongLong() - ageMs;
        }
        call->hops = std::max(headerOf(call->message, Header::Hops).toInt(), 1);
        if (!m_workers.start([this, call, answerer] { (this->*answerer)(*call); }))
            refuse(*call, Failure::Busy);
    };
}

void Provider::answerList(Call &call)
{
    const QJsonObject question = QJsonDocument::fromJson(bodyOf(call.message)).object();
    const QRegularExpression expression(
        question.value(QStringLiteral("re")).toString(),
        QRegularExpression::PatternOptions(question.value(QStringLiteral("options")).toInt()));
    const QList<QUrl> urls = m_below.findAll0(expression);
    QJsonArray some;
    for (const QUrl &url : urls) {
        if (isServed(url))
            some.append(url.toString());
        if (some.size() == UrlsInAnAnswer) {
            answer(call, QJsonDocument(some).toJson(QJsonDocument::Compact));
            some = {};
        }
    }
    if (!some.isEmpty())
        answer(call, QJsonDocument(some).toJson(QJsonDocument::Compact));
}

/// All endpoints of this process hear it, those that are not served, too: the settings ask for that.
void Provider::answerBroadcast(Call &call)
{
    const QUrl url = QUrl::fromEncoded(headerOf(call.message, Header::Url));
    std::optional<Body> body = Body::decode(bodyOf(call.message));
    Failure failure;
    Tally::Call counted(m_tally);
    if (!body)
        failure = Failure::NotJson;
    else if (call.isLate())
        failure = Failure::TooLate;
    else if (!url.host().isEmpty())
        failure = Failure::NotServed;
    else
        failure = invoke(url, call, &*body);
    if (failure.code == Failure::Gone)
        failure = Failure::Refused;
    counted.end(failure);
    if (failure)
        refuse(call, failure);
    else
        answer(call, body->encode());
}

void Provider::answerCall(Call &call)
{
    const QByteArray place = m_subjects.placeIn(subjectOf(call.message));
    const QByteArray encoded = headerOf(call.message, Header::Url);
    const QUrl url = encoded.isEmpty() ? Subjects::urlAt(place) : QUrl::fromEncoded(encoded);
    // The broker knows who may use which subject. So the URL must not be another one than the subject says.
    const bool isSame = !place.isEmpty() && (place == Subjects::placeOf(url) || place == Subjects::barePlaceOf(url));
    if (isSame && isServed(url) && headerOf(call.message, Header::Operation) == "find")
        return answerFind(url, call);
    Tally::Call counted(m_tally);
    Failure failure;
    std::optional<Body> body;
    if (!isSame || !isServed(url))
        failure = Failure::NotServed;
    else if (call.isLate())
        failure = Failure::TooLate;
    else if (call.hops > m_settings.hops)
        failure = Failure::Loop;
    else if (!(body = Body::decode(bodyOf(call.message))))
        failure = Failure::NotJson;
    else
        failure = invoke(url, call, &*body);
    if (!failure) {
        const natsStatus status = send(call, body->encode(), {});
        if (status == NATS_MAX_PAYLOAD)
            failure = Failure(Failure::TooLarge, QStringLiteral("the answer is too large"));
    }
    counted.end(failure);
    if (failure)
        refuse(call, failure);
    if (failure.code == Failure::Gone)
        sweep();
}

/// Calls the endpoint. What it answers is in `body` then, with "in" only if that was changed.
Failure Provider::invoke(const QUrl &url, Call &call, Body *body)
{
    const std::optional<QJsonObject> before = body->in;
    const ServedCall served(call.hops, call.deadline(), &m_workers);
    bool isHandled = false;
    try {
        isHandled = m_below.invoke0(url, body->in ? &*body->in : nullptr, body->out ? &*body->out : nullptr);
    } catch (const abi::__forced_unwind &) {
        throw; // the thread is being terminated
    } catch (...) {
        return Failure::Thrown;
    }
    if (!isHandled)
        return isHeld(url) ? Failure::Refused : Failure::Gone;
    if (body->in == before)
        body->in.reset();
    return {};
}

void Provider::answerFind(const QUrl &url, Call &call)
{
    if (m_below.find0(url)) {
        answer(call, "{}");
    } else {
        refuse(call, Failure::Gone);
        sweep();
    }
}

bool Provider::isHeld(const QUrl &url) const { return m_below.find0(url) || m_below.find0(bareOf(url)); }

void Provider::answer(const Call &call, const QByteArray &body) { send(call, body, {}); }

void Provider::refuse(const Call &call, const Failure &failure) { send(call, {}, failure); }

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
