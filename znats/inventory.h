// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection.h"
#include "requests.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>

class Provider;

/**
 * Tells what this process serves, in the way in which services on NATS do: tools that know nothing of this bus list its
 * processes. Asks the others the same.
 *
 * Thread:  any.
 * Failure: an empty list.
 */
class Inventory
{
public:
    Inventory(const NatsSettings &settings, Connection &connection, Requests &requests, const Provider &provider);

    void open();
    /// The processes of this domain that serve anything: {"name", "id", "version", "urls", "started", "ms"}.
    QJsonArray hosts() const;

private:
    using Describer = QJsonObject (Inventory::*)() const;
    void listen(const char *verb, Describer describer);
    QJsonObject identity(const char *type) const;
    QJsonObject ping() const;
    QJsonObject info() const;
    QJsonObject stats() const;

    const NatsSettings &m_settings;
    Connection &m_connection;
    Requests &m_requests;
    const Provider &m_provider;
    const QString m_service;
    const QString m_id;
    const QDateTime m_started;
};
