// SPDX-License-Identifier: Apache-2.0
#include "requests.h"

#include <QMutexLocker>
#include <QWaitCondition>

#include <algorithm>
#include <deque>

namespace {

constexpr int CutOff = 100; // bytes, which the client library keeps of a text at least

QByteArray unique()
{
    char *inbox = nullptr;
    natsInbox_Create(&inbox);
    const QByteArray result(inbox);
    natsInbox_Destroy(inbox);
    return result.mid(result.lastIndexOf('.') + 1);
}

Failure failureOf(natsStatus status)
{
    switch (status) {
    case NATS_OK:
        return {};
    case NATS_MAX_PAYLOAD:
    case NATS_LINE_TOO_LONG:
        return Failure::TooLarge;
    case NATS_TIMEOUT: // some of it is sent
    case NATS_IO_ERROR:
        return Failure::Lost;
    default:
        return Failure::NotConnected;
    }
}

} // namespace

struct Requests::Waiter
{
    QByteArray subject;
    int link = 0;
    std::deque<NatsMessage> answers;
    Failure failure;
    QWaitCondition changed;
};

/// Has a waiter among those that are known, as long as it lives.
class Requests::Waiting
{
public:
    Waiting(Requests &requests, const QByteArray &subject) : m_requests(requests)
    {
        const QMutexLocker locker(&m_requests.m_mutex);
        token = QByteArray::number(++m_requests.m_last, 36);
        waiter.subject = subject;
        if (m_requests.m_isEnding)
            waiter.failure = Failure::NotConnected;
        m_requests.m_waiters.insert(token, &waiter);
    }
    ~Waiting()
    {
        const QMutexLocker locker(&m_requests.m_mutex);
        m_requests.m_waiters.remove(token);
    }

    /// False at the end of the time, or with a failure.
    bool wait(const QDeadlineTimer &deadline, NatsMessage *answer)
    {
        QMutexLocker locker(&m_requests.m_mutex);
        while (waiter.answers.empty() && !waiter.failure) {
            if (!waiter.changed.wait(&m_requests.m_mutex, deadline))
                break;
        }
        if (waiter.answers.empty())
            return false;
        *answer = std::move(waiter.answers.front());
        waiter.answers.pop_front();
        return true;
    }

    QByteArray token;
    Waiter waiter;

private:
    Q_DISABLE_COPY(Waiting)
    Requests &m_requests;
};

Requests::Requests(Connection &connection, const QString &inbox)
    : m_connection(connection), m_inbox(inbox.toUtf8() + '.' + unique() + '.')
{}

Requests::~Requests() = default;

void Requests::open()
{
    m_connection.listen(subject(), Listening::Answers, [this](NatsMessage message) { arrived(std::move(message)); });
}

Requests::Answer Requests::ask(const Request &request, const QDeadlineTimer &deadline)
{
    Waiting waiting(*this, request.subject);
    Answer answer;
    answer.failure = send(request, waiting.waiter, waiting.token);
    if (answer.failure || waiting.wait(deadline, &answer.message))
        return answer;
    const QMutexLocker locker(&m_mutex);
    answer.failure = waiting.waiter.failure ? waiting.waiter.failure : Failure::NoAnswer;
    return answer;
}

Failure Requests::gather(const Request &request, int msecs, int stallMs, const Each &each)
{
    Waiting waiting(*this, request.subject);
    Failure failure = send(request, waiting.waiter, waiting.token);
    if (failure)
        return failure;
    const QDeadlineTimer deadline(msecs);
    NatsMessage answer;
    QDeadlineTimer next = deadline;
    while (waiting.wait(next, &answer)) {
        if (natsMsg_IsNoResponders(answer.get()))
            break;
        each(answer);
        next = QDeadlineTimer(std::min<qint64>(stallMs, deadline.remainingTime()));
    }
    const QMutexLocker locker(&m_mutex);
    return waiting.waiter.failure;
}

void Requests::fail(int link)
{
    const QMutexLocker locker(&m_mutex);
    m_isInboxDenied = false;
    for (Waiter *waiter : qAsConst(m_waiters)) {
        if (waiter->link == link) {
            waiter->failure = Failure::Lost;
            waiter->changed.wakeAll();
        }
    }
}

void Requests::deny(const QByteArray &denied, bool isToPublish)
{
    const QMutexLocker locker(&m_mutex);
    m_isInboxDenied |= !isToPublish && denied == subject();
    for (Waiter *waiter : qAsConst(m_waiters)) {
        // The broker's text may be cut off.
        if (isToPublish &&
            (waiter->subject == denied || (denied.size() > CutOff && waiter->subject.startsWith(denied)))) {
            waiter->failure = Failure::Denied;
        } else if (m_isInboxDenied && waiter->link != 0) { // it was sent, but nobody will hear the answer
            waiter->failure = Failure::Denied;
            waiter->failure.called = Failure::Unknown;
        }
        waiter->changed.wakeAll();
    }
}

void Requests::end()
{
    const QMutexLocker locker(&m_mutex);
    m_isEnding = true;
    for (Waiter *waiter : qAsConst(m_waiters)) {
        waiter->failure = waiter->link ? Failure::Lost : Failure::NotConnected;
        waiter->changed.wakeAll();
    }
}

void Requests::arrived(NatsMessage message)
{
    const QByteArray token = subjectOf(message).mid(m_inbox.size());
    const QMutexLocker locker(&m_mutex);
    if (Waiter *waiter = m_waiters.value(token)) {
        waiter->answers.push_back(std::move(message));
        waiter->changed.wakeAll();
    }
}

Failure Requests::send(const Request &request, Waiter &waiter, const QByteArray &token)
{
    if (request.subject.size() > Connection::MostSubjectBytes)
        return Failure::TooLarge;
    natsMsg *made = nullptr;
    if (natsMsg_Create(&made, request.subject, m_inbox + token, request.body, request.body.size()) != NATS_OK)
        return Failure::TooLarge;
    const NatsMessage message(made);
    for (const auto &header : request.headers)
        natsMsgHeader_Set(made, header.first, header.second);
    int link = 0;
    {
        // Noted before it is sent: else it might be lost, or denied, before anybody knows that it waits.
        const QMutexLocker locker(&m_mutex);
        if (waiter.failure)
            return waiter.failure;
        if (m_isInboxDenied)
            return Failure::Denied;
        waiter.link = m_connection.number();
    }
    const natsStatus status = m_connection.send(made, &link);
    const QMutexLocker locker(&m_mutex);
    if (status == NATS_OK && link != waiter.link) // another link has taken its place meanwhile
        waiter.link = link;
    return failureOf(status);
}
