// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection.h"

#include <QByteArray>

#include <memory>

/// What is known of a lease to all who want it.
struct LeaseRecord
{
    QString holder;   ///< empty if nobody has it
    QString host;     ///< the holder's name
    int msecs = 0;    ///< after which it counts as dead if it does not renew the lease
    qint64 slot = -1; ///< the last one that was begun
};

/**
 * Where leases are written down: a key-value store of the broker's. Each change says on which state it builds, and
 * fails if that is not the current one.
 *
 * Thread:  one at a time.
 * Failure: a status of the client library's.
 */
class LeaseBook
{
public:
    /// Waits for an answer for `msecs`.
    LeaseBook(const NatsSettings &settings, Connection &connection, const QString &lease, int msecs);
    ~LeaseBook();

    /// NATS_NOT_FOUND if nobody ever had the lease.
    natsStatus read(LeaseRecord *record, quint64 *revision);
    /// Sets `revision` to the new one. It is 0 before for a lease that nobody ever had. NATS_MISMATCH if somebody else
    /// has written meanwhile.
    natsStatus write(const LeaseRecord &record, quint64 *revision);
    /// Why the last of these failed, in words; null if there is no connection, of which others tell.
    QString problem() const { return m_problem; }

private:
    Q_DISABLE_COPY(LeaseBook)
    natsStatus open();
    natsStatus failed(natsStatus status);
    void close();

    const NatsSettings &m_settings;
    Connection &m_connection;
    const QByteArray m_key;
    const int m_msecs;
    std::shared_ptr<Link> m_link; // to which the following belong
    jsCtx *m_stream = nullptr;
    kvStore *m_store = nullptr;
    QString m_problem;
};
