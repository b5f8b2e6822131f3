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

/**
 * All that reaches other processes, over the bus `below`.
 *
 * Ownership: if `end` answers false, it must never be destroyed, and its code has to stay in memory.
 * Thread:    any; opened and ended on one.
 * Failure:   as its parts.
 */
class Engine
{
public:
    Engine(const NatsSettings &settings, const Log &log);

    /// Connects, and serves what is bound.
    void open();
    void flush();
    /// Ends, within two seconds: what others have asked is answered, what is asked by this process fails. Does nothing
    /// the second time. False if something still runs.
    bool end();

    Failure call(const QUrl &url, QJsonObject *in, QJsonObject *out, QString *host);
    QJsonObject describe() const;

    const NatsSettings settings;
    const Log log;
    ZDbusDelegate below;
    Connection connection;
    Requests requests;
    Workers workers;
    Hosts hosts;
    RemoteCalls remote;
    Provider provider;
    Inventory inventory;
    Leases leases;

private:
    Tally m_calls; // of this process to others
    bool m_isEnded = false;
    bool m_isClean = true;
};
