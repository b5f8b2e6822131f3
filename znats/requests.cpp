// SPDX-License-Identifier: Apache-2.0
#include "requests.h"

#include <QMutexLocker>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

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

/// Who waits for answers to one request. Has a mutex of its own: those who wait do not hold up each other.
struct Requests::Waiter
{
    explicit Waiter(QByteArray asked) : subject(std::move(asked)) {}

    void give(NatsMessage answer)
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            answers.push_back(std::move(answer));
        }
        changed.notify_one();
    }
    /// Nothing that comes later is given.
    void fail(const Failure &reason)
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            failure = reason;
        }
        changed.notify_one();
    }
    /// False at the end of the time, or with a failure.
    bool wait(const QDeadlineTimer &deadline, NatsMessage *answer)
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_until(lock, deadline.deadline<std::chrono::steady_clock>(),
                           [this] { return !answers.empty() || failure; });
        if (answers.empty())
            return false;
        *answer = std::move(answers.front());
        answers.pop_front();
        return true;
    }
    Failure failed()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return failure;
    }

    const QByteArray subject;
    std::atomic<int> link{0}; // by which it was sent; 0 if it was not yet

private:
    std::mutex mutex; // guards the following
    std::condition_variable changed;
    std::deque<NatsMessage> answers;
    Failure failure;
};

/// Has a waiter among those that are known, as long as it lives.
class Requests::Waiting
{
public:
    Waiting(Requests &requests, const QByteArray &subject)
        : waiter(std::make_shared<Waiter>(subject)), m_requests(requests)
    {
        const QMutexLocker locker(&m_requests.m_mutex);
        token = QByteArray::number(++m_requests.m_last, 36);
        if (m_requests.m_isEnding)
            waiter->fail(Failure::NotConnected);
        m_requests.m_waiters.insert(token, waiter);
    }
    ~Waiting()
    {
        const QMutexLocker locker(&m_requests.m_mutex);
        m_requests.m_waiters.remove(token);
    }

    QByteArray token;
    const std::shared_ptr<Waiter> waiter;

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
    const Waiting waiting(*this, request.subject);
    Answer answer;
    answer.failure = send(request, *waiting.waiter, waiting.token);
    if (answer.failure || waiting.waiter->wait(deadline, &answer.message))
        return answer;
    answer.failure = waiting.waiter->failed();
    if (!answer.failure)
        answer.failure = Failure::NoAnswer;
    return answer;
}

Failure Requests::gather(const Request &request, int msecs, int stallMs, const Each &each)
{
    const Waiting waiting(*this, request.subject);
    Failure failure = send(request, *waiting.waiter, waiting.token);
    if (failure)
        return failure;
    const QDeadlineTimer deadline(msecs);
    NatsMessage answer;
    QDeadlineTimer next = deadline;
    while (waiting.waiter->wait(next, &answer)) {
        if (natsMsg_IsNoResponders(answer.get()))
            break;
        each(answer);
        next = QDeadlineTimer(std::min<qint64>(stallMs, deadline.remainingTime()));
    }
    return waiting.waiter->failed();
}

void Requests::fail(int link)
{
    const QMutexLocker locker(&m_mutex);
    m_isInboxDenied = false;
    for (const std::shared_ptr<Waiter> &waiter : qAsConst(m_waiters)) {
        if (waiter->link == link)
            waiter->fail(Failure::Lost);
    }
}

void Requests::deny(const QByteArray &denied, bool isToPublish)
{
    const QMutexLocker locker(&m_mutex);
    m_isInboxDenied |= !isToPublish && denied == subject();
    Failure unheard = Failure::Denied; // it was sent, but nobody will hear the answer
    unheard.called = Failure::Unknown;
    for (const std::shared_ptr<Waiter> &waiter : qAsConst(m_waiters)) {
        // The broker's text may be cut off.
        const bool isMeant =
            waiter->subject == denied || (denied.size() > CutOff && waiter->subject.startsWith(denied));
        if (isToPublish && isMeant)
            waiter->fail(Failure::Denied);
        else if (m_isInboxDenied && waiter->link != 0)
            waiter->fail(unheard);
    }
}

void Requests::end()
{
    const QMutexLocker locker(&m_mutex);
    m_isEnding = true;
    for (const std::shared_ptr<Waiter> &waiter : qAsConst(m_waiters))
        waiter->fail(waiter->link != 0 ? Failure::Lost : Failure::NotConnected);
}

void Requests::arrived(NatsMessage message)
{
    const QByteArray token = subjectOf(message).mid(m_inbox.size());
    std::shared_ptr<Waiter> waiter;
    {
        const QMutexLocker locker(&m_mutex);
        waiter = m_waiters.value(token);
    }
    if (waiter)
        waiter->give(std::move(message));
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
    {
        const QMutexLocker locker(&m_mutex);
        if (m_isInboxDenied)
            return Failure::Denied;
    }
    if (const Failure failure = waiter.failed())
        return failure;
    // Noted before it is sent: else it might be lost, or denied, before anybody knows that it waits.
    waiter.link = m_connection.number();
    int link = 0;
    const natsStatus status = m_connection.send(made, &link);
    if (status == NATS_OK)
        waiter.link = link; // another one may have taken its place meanwhile
    return failureOf(status);
}
