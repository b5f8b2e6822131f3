// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "leasebook.h"

#include <QElapsedTimer>
#include <QHash>
#include <QJsonArray>
#include <QMutex>
#include <QString>
#include <QThread>
#include <QVector>
#include <QWaitCondition>

#include <memory>

/**
 * The leases that this process wants. A thread renews those that it has, each at a third of its time, and takes one
 * whose holder has not renewed it for its whole time. That is measured by our own clock, from when we saw the last
 * renewal: clocks of others do not matter.
 *
 * Thread:  any.
 * Failure: as `ZLease`.
 */
class Leases
{
public:
    Leases(const NatsSettings &settings, const Log &log, Connection &connection);
    ~Leases();

    bool want(const QString &name, int msecs);
    void forget(const QString &name);
    bool begin(const QString &name, qint64 slot, QString *reason);
    /// Wants what another one of this process has wanted, as it described it, and goes on in its place: for all others,
    /// both are the same holder. Before anything else is wanted.
    void inherit(const QJsonArray &description);
    /// Renews nothing any more: another one of this process goes on. Still begins what it is asked for.
    void retire();
    QJsonArray describe() const;

    /// Gives back what it has, unless another one has gone on with it. False if its thread still runs at the end of the
    /// time.
    bool end(const QDeadlineTimer &deadline);

private:
    Q_DISABLE_COPY(Leases)
    class Lease;
    bool want(const QString &name, int msecs, const LeaseRecord &known);
    void keep();
    QVector<std::shared_ptr<Lease>> all() const;

    const NatsSettings &m_settings;
    const Log &m_log;
    Connection &m_connection;
    std::unique_ptr<QThread> m_keeper;
    mutable QMutex m_mutex; // guards all that follow
    QString m_id;           // the holder's: unlike that of any other process
    QWaitCondition m_changed;
    QHash<QString, std::shared_ptr<Lease>> m_leases;
    bool m_isNew = false; // a lease, at which the keeper has not looked yet
    bool m_isEnding = false;
};
