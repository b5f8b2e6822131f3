// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QString>

#include <memory>

#include <nats/nats.h>

/// One message as it is on the wire.
struct RawMessage
{
    bool isThere = false;
    QByteArray subject, reply, data;
    QMap<QByteArray, QByteArray> headers;
    natsStatus status = NATS_OK; ///< why there is none

    /// The code of the service convention; 0 if there is none.
    int code() const { return headers.value("Nats-Service-Error-Code").toInt(); }
    QByteArray reason() const { return headers.value("Nats-Service-Error"); }
    QJsonObject json() const;
};

/// What the plugin is not: a client that sends whatever it likes. All calls wait.
class RawClient
{
public:
    using Headers = QMap<QByteArray, QByteArray>;

    explicit RawClient(const QString &url, const QString &user = QString(), const QString &password = QString());

    bool isConnected() const { return m_connection != nullptr; }
    RawMessage request(const QByteArray &subject, const QByteArray &data, const Headers &headers = {},
                       qint64 msecs = 5000);
    bool publish(const QByteArray &subject, const QByteArray &data, const Headers &headers = {},
                 const QByteArray &reply = QByteArray());
    /// From now on; those before are let go.
    bool subscribe(const QByteArray &subject, const QByteArray &queue = QByteArray());
    RawMessage next(qint64 msecs = 5000);
    /// Waits until the broker has done all that it was told.
    bool flush();
    /// What the broker has said against the last thing that was done.
    QByteArray error() const;

private:
    struct Free
    {
        void operator()(natsConnection *connection) const { natsConnection_Destroy(connection); }
        void operator()(natsSubscription *subscription) const { natsSubscription_Destroy(subscription); }
        void operator()(natsMsg *message) const { natsMsg_Destroy(message); }
    };
    using Message = std::unique_ptr<natsMsg, Free>;

    static Message make(const QByteArray &subject, const QByteArray &data, const Headers &headers,
                        const QByteArray &reply);
    static RawMessage read(natsMsg *message, natsStatus status);

    std::unique_ptr<natsConnection, Free> m_connection;
    std::unique_ptr<natsSubscription, Free> m_subscription;
};
