// SPDX-License-Identifier: Apache-2.0
#include "link.h"

#include "thisprocess.h"

#include <QMutexLocker>

#include <algorithm>
#include <utility>

namespace {

constexpr char Group[] = "z";
constexpr int PauseMs = 20;                // until it is looked whether the connection is lost
constexpr int MostWaitingBytes = 64 << 20; // those who listen refuse what is too much: this is for the worst case

} // namespace

struct Link::Inlet
{
    Link *link;
    std::shared_ptr<const MessageHandler> handler;
};

Link::Link(Events events) : m_events(std::move(events)) {}

Link::~Link()
{
    for (const Subscription &subscription : qAsConst(m_open))
        natsSubscription_Destroy(subscription.handle);
    for (natsSubscription *subscription : qAsConst(m_draining))
        natsSubscription_Destroy(subscription);
    natsConnection_Destroy(m_connection);
}

natsStatus Link::open(natsOptions *options)
{
    natsOptions_SetReconnectedCB(options, &Link::connected, this);
    natsOptions_SetDisconnectedCB(options, &Link::lost, this);
    natsOptions_SetClosedCB(options, &Link::closed, this);
    natsOptions_SetLameDuckModeCB(options, &Link::lame, this);
    natsOptions_SetErrorHandler(options, &Link::failed, this);
    const natsStatus status = natsConnection_Connect(&m_connection, options);
    if (status == NATS_OK)
        m_events.connected();
    return status;
}

bool Link::isConnected() const { return natsConnection_Status(m_connection) == NATS_CONN_STATUS_CONNECTED; }

bool Link::listen(const Listening &listening)
{
    const QMutexLocker locker(&m_mutex);
    if (m_open.contains(listening.subject))
        return true;
    auto inlet = std::make_unique<Inlet>(Inlet{this, listening.handler});
    natsSubscription *subscription = nullptr;
    natsStatus status = NATS_OK;
    if (listening.kind == Listening::Answers) { // to those without a group the broker says if nobody is there
        status = natsConnection_Subscribe(&subscription, m_connection, listening.subject, &Link::arrived, inlet.get());
    } else {
        const QByteArray group = listening.kind == Listening::Shared ? QByteArray(Group) : thisProcess();
        status = natsConnection_QueueSubscribe(&subscription, m_connection, listening.subject, group, &Link::arrived,
                                               inlet.get());
    }
    if (status != NATS_OK)
        return false;
    Inlet *const kept = inlet.release();
    // If this fails, the connection is closed: somebody may use the inlet, and nobody tells when it is free.
    if (natsSubscription_SetOnCompleteCB(subscription, &Link::ended, kept) == NATS_OK)
        ++m_inlets;
    natsSubscription_SetPendingLimits(subscription, -1, MostWaitingBytes);
    m_open.insert(listening.subject, {subscription, listening.kind});
    return true;
}

void Link::drain(const QByteArray &subject)
{
    const QMutexLocker locker(&m_mutex);
    forgetDrained();
    if (natsSubscription *subscription = m_open.take(subject).handle) {
        natsSubscription_Drain(subscription);
        m_draining.append(subscription);
    }
}

void Link::drainAll()
{
    drainIf([](Listening::Kind) { return true; });
}

void Link::drainRequests()
{
    drainIf([](Listening::Kind kind) { return kind != Listening::Answers; });
}

template <class Wanted>
void Link::drainIf(Wanted isWanted)
{
    const QMutexLocker locker(&m_mutex);
    for (auto open = m_open.begin(); open != m_open.end();) {
        if (!isWanted(open->kind)) {
            ++open;
            continue;
        }
        natsSubscription_Drain(open->handle);
        m_draining.append(open->handle);
        open = m_open.erase(open);
    }
}

bool Link::waitDrained(const QDeadlineTimer &deadline)
{
    QVector<natsSubscription *> draining; // nobody else destroys them meanwhile
    {
        const QMutexLocker locker(&m_mutex);
        draining.swap(m_draining);
    }
    const bool isDrained = std::all_of(draining.cbegin(), draining.cend(), [&](natsSubscription *subscription) {
        // Without a broker nothing arrives any more, but the client library would wait for one.
        while (isConnected() && !deadline.hasExpired()) {
            if (natsSubscription_WaitForDrainCompletion(subscription, PauseMs) != NATS_TIMEOUT)
                return true;
        }
        return false;
    });
    const QMutexLocker locker(&m_mutex);
    m_draining += draining;
    return isDrained;
}

bool Link::flush(int msecs) { return natsConnection_FlushTimeout(m_connection, std::max(msecs, 1)) == NATS_OK; }

bool Link::close(const QDeadlineTimer &deadline)
{
    if (!m_connection)
        return true;
    natsConnection_Close(m_connection);
    // The client library calls on its own threads, about each subscription, and at last about the connection.
    int inlets = 0;
    {
        const QMutexLocker locker(&m_mutex);
        inlets = m_inlets;
    }
    return m_ended.tryAcquire(inlets, static_cast<int>(deadline.remainingTime())) &&
           m_isClosed.tryAcquire(1, static_cast<int>(deadline.remainingTime())) && m_visitors.waitGone(deadline);
}

void Link::arrived(natsConnection *, natsSubscription *, natsMsg *message, void *inlet)
{
    (*static_cast<Inlet *>(inlet)->handler)(NatsMessage(message));
}

void Link::ended(void *inlet)
{
    auto *const mine = static_cast<Inlet *>(inlet);
    Link *const link = mine->link;
    delete mine;
    link->m_visitors.note();
    link->m_ended.release(); // the last that is done here: the link may be gone now
}

void Link::connected(natsConnection *, void *link) { static_cast<Link *>(link)->m_events.connected(); }

void Link::lost(natsConnection *, void *link) { static_cast<Link *>(link)->m_events.lost(); }

void Link::lame(natsConnection *, void *link) { static_cast<Link *>(link)->m_events.lame(); }

void Link::closed(natsConnection *, void *link)
{
    static_cast<Link *>(link)->m_events.closed();
    static_cast<Link *>(link)->m_visitors.note();
    static_cast<Link *>(link)->m_isClosed.release();
}

void Link::failed(natsConnection *, natsSubscription *, natsStatus status, void *link)
{
    // Not the connection's last error: there may be another one by now.
    static_cast<Link *>(link)->m_events.failed(status, QString::fromUtf8(nats_GetLastError(nullptr)));
}

/// Lets go of what has arrived whole.
void Link::forgetDrained()
{
    const auto end = std::partition(m_draining.begin(), m_draining.end(), [](natsSubscription *subscription) {
        return natsSubscription_IsValid(subscription);
    });
    std::for_each(end, m_draining.end(), natsSubscription_Destroy);
    m_draining.erase(end, m_draining.end());
}
