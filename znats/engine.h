// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection.h"
#include "hosts.h"
#include "inventory.h"
#include "leases.h"
#include "provider.h"
#include "remotecalls.h"
#include "requests.h"
#include "tally.h"
#include "workers.h"

#include <zdefaultdbus.h>

#include <functional>
#include <memory>

/**
 * All that reaches other processes, over the bus `below`.
 *
 * Ownership: shared; to be ended, and left behind, before the last share goes.
 * Thread:    any; opened and ended on one at a time.
 * Failure:   as its parts.
 */
class Engine : public std::enable_shared_from_this<Engine>
{
public:
    Engine(const NatsSettings &settings, const Log &log);

    void setBelow(const QSharedPointer<ZReference> &bus);
    /// Connects, and serves what is bound.
    void open();
    void flush();
    /// Ends within two seconds: what others have asked is answered, what this process asks fails. Does nothing the
    /// second time.
    void end();
    /// The same, but waits as long as those who have asked do. On any thread.
    void endWhenDone();
    /// Has `endWhenDone` wait for two more seconds at most. On any thread.
    void hurry();
    /// Keeps itself, and its code, for good if something of it still runs. Call it when it has ended.
    void leaveBehind();

    Failure call(const QUrl &url, QJsonObject *in, QJsonObject *out, QString *host);
    /// All endpoints of all other processes that take part.
    Failure callAll(const QUrl &url, const QJsonObject *in, QJsonObject *out);
    QJsonObject describe() const;

    const NatsSettings settings;
    const Log log;
    ZDbusDelegate below;
    ZDbusReachDelegate belowReach; // of the same bus
    Connection connection;
    Requests requests;
    Workers workers;
    Hosts hosts;
    RemoteCalls remote;
    Provider provider;
    Inventory inventory;
    Leases leases;

private:
    void end(const std::function<QDeadlineTimer()> &deadline, int closeMs);
    QDeadlineTimer deadlineOfAll() const;

    Tally m_calls;                                    // of this process to others
    Tally m_broadcasts;                               // which all take as long as answers are gathered
    mutable QMutex m_mutex;                           // guards m_latest
    QDeadlineTimer m_latest{QDeadlineTimer::Forever}; // set when it has to hurry
    bool m_isEnded = false;
    bool m_isClean = true;
};
