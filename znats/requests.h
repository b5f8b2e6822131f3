// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection.h"
#include "failure.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QPair>
#include <QVector>

#include <functional>

/// What is sent to be answered.
struct Request
{
    QByteArray subject;
    QByteArray body;
    QVector<QPair<const char *, QByteArray>> headers;
};

/**
 * Sends requests, and hands each answer to who waits for it. Unlike those of the client library, they end at once when
 * the connection is lost, or the broker denies them.
 *
 * Thread:  any.
 * Failure: the reason.
 */
class Requests
{
public:
    struct Answer
    {
        NatsMessage message; ///< null if there is a failure
        Failure failure;
    };
    using Each = std::function<void(const NatsMessage &)>;

    /// `inbox` is the prefix of the subjects of answers.
    Requests(Connection &connection, const QString &inbox);
    ~Requests();

    void open();
    /// What it listens to.
    QByteArray subject() const { return m_inbox + '*'; }
    Answer ask(const Request &request, const QDeadlineTimer &deadline);
    /// Hands on what many may answer: until `msecs` have passed, or `stallMs` without one more.
    Failure gather(const Request &request, int msecs, int stallMs, const Each &each);

    /// What was sent by this link fails now.
    void fail(int link);
    /// What is denied fails now.
    void deny(const Denial &denial);
    /// All that wait fail now, and whatever comes.
    void end();

private:
    Q_DISABLE_COPY(Requests)
    struct Waiter;
    class Waiting;
    void arrived(NatsMessage message);
    void settleCutDenials();
    void forget(const QByteArray &token);
    Failure send(const Request &request, Waiter &waiter, const QByteArray &token);

    Connection &m_connection;
    const QByteArray m_inbox; // ends with a dot
    QMutex m_mutex;           // guards all that follow
    QHash<QByteArray, std::shared_ptr<Waiter>> m_waiters;
    QList<QByteArray> m_cutDenials; // how the subjects begin; of each it is not known yet who is meant
    quint64 m_last = 0;
    bool m_isEnding = false;
    bool m_isInboxDenied = false; // as long as the connection lasts: no answer would come
};
