// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "natshandles.h"
#include "visitors.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QMutex>
#include <QSemaphore>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>

/// Is given what arrives, on a thread of the client library's: it must not wait.
using MessageHandler = std::function<void(NatsMessage)>;

/// To what one listens.
struct Listening
{
    enum Kind
    {
        Answers,  ///< to what this process has asked; the first that is listened to, and the last
        Everyone, ///< each process gets each message
        Shared    ///< one of those that listen gets each message
    };

    QByteArray subject;
    Kind kind = Everyone;
    std::shared_ptr<const MessageHandler> handler;
};

/**
 * One connection to a broker, which the client library makes again when it is lost, and what is listened to by it.
 *
 * Ownership: to be closed before it is destroyed. If that fails, neither it nor what its events and handlers use may
 *            ever be destroyed, and their code has to stay in memory.
 * Thread:    any.
 * Failure:   false, or a status of the client library's.
 */
class Link
{
public:
    /// What happens to it. They are called on a thread of the client library's, and must not wait.
    struct Events
    {
        std::function<void()> connected;
        std::function<void()> lost;
        std::function<void()> lame; ///< the broker is about to stop
        std::function<void()> closed;
        std::function<void(natsStatus, const QString &text)> failed;
    };

    explicit Link(Events events);
    ~Link();

    /// Connects, which may take as long as `options` say for each broker.
    natsStatus open(natsOptions *options);
    bool isConnected() const;
    natsConnection *handle() const { return m_connection; }

    bool listen(const Listening &listening);
    /// Messages that are on their way still arrive.
    void drain(const QByteArray &subject);
    void drainAll();
    /// All but the answers.
    void drainRequests();
    /// Whether all that was drained has arrived.
    bool waitDrained(const QDeadlineTimer &deadline);
    bool flush(int msecs);
    /// Call it once. False if something of the client library's may still call us.
    bool close(const QDeadlineTimer &deadline);

private:
    Q_DISABLE_COPY(Link)
    struct Inlet;
    static void arrived(natsConnection *, natsSubscription *, natsMsg *message, void *inlet);
    static void ended(void *inlet);
    static void connected(natsConnection *, void *link);
    static void lost(natsConnection *, void *link);
    static void lame(natsConnection *, void *link);
    static void closed(natsConnection *, void *link);
    static void failed(natsConnection *, natsSubscription *, natsStatus status, void *link);
    template <class Wanted>
    void drainIf(Wanted isWanted);
    void forgetDrained();

    const Events m_events;
    natsConnection *m_connection = nullptr;
    QMutex m_mutex; // guards all but the semaphores
    struct Subscription
    {
        natsSubscription *handle;
        Listening::Kind kind;
    };
    QHash<QByteArray, Subscription> m_open;
    QVector<natsSubscription *> m_draining;
    int m_inlets = 0;   // that were ever made
    QSemaphore m_ended; // has one resource for each inlet that has ended
    QSemaphore m_isClosed;
    Visitors m_visitors;
};
