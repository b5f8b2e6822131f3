// SPDX-License-Identifier: Apache-2.0
#include "requests.h"

#include <QMutexLocker>
#include <QSet>
#include <QVector>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace {

constexpr std::size_t MostAnswers = 10000; // that wait to be read; more than that are nobody's answers

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
            isAnswered = true;
            if (answers.size() < MostAnswers)
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

    bool hasTimedOut()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return !isAnswered && !failure;
    }

    const QByteArray subject;
    std::atomic<int> link{0}; // by which it was sent; 0 if it was not yet

private:
    std::mutex mutex; // guards the following
    std::condition_variable changed;
    std::deque<NatsMessage> answers;
    bool isAnswered = false;
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
        m_requests.forget(token);
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
        if (natsMsg_IsNoResponders(answer.get()) || deadline.hasExpired()) // some may send without an end
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
    m_cutDenials.clear();
    for (const std::shared_ptr<Waiter> &waiter : qAsConst(m_waiters)) {
        if (waiter->link == link)
            waiter->fail(Failure::Lost);
    }
}

void Requests::deny(const Denial &denial)
{
    const auto isMeant = [&](const QByteArray &subject) {
        return denial.isCut ? subject.startsWith(denial.subject) : subject == denial.subject;
    };
    const QMutexLocker locker(&m_mutex);
    if (denial.isToPublish && denial.isCut) {
        m_cutDenials.append(denial.subject);
        return settleCutDenials();
    }
    m_isInboxDenied |= !denial.isToPublish && isMeant(subject());
    Failure unheard = Failure::Denied; // it was sent, but nobody will hear the answer
    unheard.called = Failure::Unknown;
    for (const std::shared_ptr<Waiter> &waiter : qAsConst(m_waiters)) {
        if (denial.isToPublish && isMeant(waiter->subject))
            waiter->fail(Failure::Denied);
        else if (m_isInboxDenied && waiter->link != 0)
            waiter->fail(unheard);
    }
}

/// With the mutex. Who is meant by a denial that is cut off is known as soon as nobody else can be.
void Requests::settleCutDenials()
{
    const QSet<QByteArray> beginnings(m_cutDenials.cbegin(), m_cutDenials.cend());
    for (const QByteArray &beginning : beginnings) {
        QVector<std::shared_ptr<Waiter>> meant;
        QSet<QByteArray> subjects;
        for (const std::shared_ptr<Waiter> &waiter : qAsConst(m_waiters)) {
            if (waiter->link == 0 || !waiter->subject.startsWith(beginning))
                continue;
            meant.append(waiter);
            subjects.insert(waiter->subject);
        }
        if (subjects.size() > 1 && m_cutDenials.count(beginning) < meant.size())
            continue;
        m_cutDenials.removeAll(beginning);
        Failure failure = Failure::Denied;
        failure.called = Failure::Unknown; // the one who was meant may have gone, after its time
        for (const std::shared_ptr<Waiter> &waiter : qAsConst(meant))
            waiter->fail(failure);
    }
}

/// With the mutex.
void Requests::forget(const QByteArray &token)
{
    const std::shared_ptr<Waiter> waiter = m_waiters.take(token);
    if (m_cutDenials.isEmpty())
        return;
    if (waiter->hasTimedOut()) { // it was the one, or might have been
        const auto meant = std::find_if(m_cutDenials.begin(), m_cutDenials.end(), [&](const QByteArray &beginning) {
            return waiter->subject.startsWith(beginning);
        });
        if (meant != m_cutDenials.end())
            m_cutDenials.erase(meant);
    }
    settleCutDenials();
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
    if (Failure failure = waiter.failed())
        return failure;
    // Noted before it is sent: else it might be lost, or denied, before anybody knows that it waits.
    waiter.link = m_connection.number();
    int link = 0;
    const natsStatus status = m_connection.send(made, &link);
    if (status == NATS_OK)
        waiter.link = link; // another one may have taken its place meanwhile
    return failureOf(status);
}
