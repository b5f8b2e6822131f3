// SPDX-License-Identifier: Apache-2.0
#include "link.h"

#include <QMutexLocker>

#include <algorithm>
#include <utility>

namespace {

constexpr char Group[] = "z";
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
    for (natsSubscription *subscription : qAsConst(m_open))
        natsSubscription_Destroy(subscription);
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
    const natsStatus status =
        listening.isShared
            ? natsConnection_QueueSubscribe(&subscription, m_connection, listening.subject, Group, &Link::arrived,
                                            inlet.get())
            : natsConnection_Subscribe(&subscription, m_connection, listening.subject, &Link::arrived, inlet.get());
    if (status != NATS_OK)
        return false;
    Inlet *const kept = inlet.release();
    if (natsSubscription_SetOnCompleteCB(subscription, &Link::ended, kept) == NATS_OK)
        ++m_inlets; // else the connection is closed already, and the inlet may be in use still
    natsSubscription_SetPendingLimits(subscription, -1, MostWaitingBytes);
    m_open.insert(listening.subject, subscription);
    return true;
}

void Link::drain(const QByteArray &subject)
{
    const QMutexLocker locker(&m_mutex);
    forgetDrained();
    if (natsSubscription *subscription = m_open.take(subject)) {
        natsSubscription_Drain(subscription);
        m_draining.append(subscription);
    }
}

void Link::drainAll(const QByteArray &exceptSubject)
{
    const QMutexLocker locker(&m_mutex);
    natsSubscription *const excepted = m_open.take(exceptSubject);
    for (natsSubscription *subscription : qAsConst(m_open)) {
        natsSubscription_Drain(subscription);
        m_draining.append(subscription);
    }
    m_open.clear();
    if (excepted)
        m_open.insert(exceptSubject, excepted);
}

bool Link::waitDrained(const QDeadlineTimer &deadline)
{
    QVector<natsSubscription *> draining; // nobody else destroys them meanwhile
    {
        const QMutexLocker locker(&m_mutex);
        draining.swap(m_draining);
    }
    bool isDrained = true;
    for (natsSubscription *subscription : qAsConst(draining)) {
        const qint64 left = std::max<qint64>(deadline.remainingTime(), 1);
        isDrained &= natsSubscription_WaitForDrainCompletion(subscription, left) != NATS_TIMEOUT;
    }
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
    const std::unique_ptr<Inlet> mine(static_cast<Inlet *>(inlet));
    mine->handler.reset();
    mine->link->m_visitors.note();
    mine->link->m_ended.release(); // the last that it does here: the link may be gone now
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

void Link::failed(natsConnection *connection, natsSubscription *, natsStatus status, void *link)
{
    const char *text = nullptr;
    natsConnection_GetLastError(connection, &text);
    static_cast<Link *>(link)->m_events.failed(status, QString::fromUtf8(text));
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
