// SPDX-License-Identifier: Apache-2.0
#include "rawclient.h"

#include <QJsonDocument>

#include <cstdlib>

QJsonObject RawMessage::json() const { return QJsonDocument::fromJson(data).object(); }

RawClient::RawClient(const QString &url, const QString &user, const QString &password)
{
    natsOptions *options = nullptr;
    if (natsOptions_Create(&options) != NATS_OK)
        return;
    natsOptions_SetURL(options, qUtf8Printable(url));
    natsOptions_SetErrorHandler(
        options, [](natsConnection *, natsSubscription *, natsStatus, void *) {}, nullptr); // else it writes
    if (!user.isEmpty())
        natsOptions_SetUserInfo(options, qUtf8Printable(user), qUtf8Printable(password));
    natsConnection *connection = nullptr;
    natsConnection_Connect(&connection, options);
    m_connection.reset(connection);
    natsOptions_Destroy(options);
}

RawMessage RawClient::request(const QByteArray &subject, const QByteArray &data, const Headers &headers, qint64 msecs)
{
    const Message message = make(subject, data, headers, {});
    natsMsg *answer = nullptr;
    const natsStatus status = natsConnection_RequestMsg(&answer, m_connection.get(), message.get(), msecs);
    return read(answer, status);
}

bool RawClient::publish(const QByteArray &subject, const QByteArray &data, const Headers &headers,
                        const QByteArray &reply)
{
    const Message message = make(subject, data, headers, reply);
    return natsConnection_PublishMsg(m_connection.get(), message.get()) == NATS_OK;
}

bool RawClient::subscribe(const QByteArray &subject, const QByteArray &queue)
{
    natsSubscription *subscription = nullptr;
    const natsStatus status = queue.isEmpty()
                                  ? natsConnection_SubscribeSync(&subscription, m_connection.get(), subject.constData())
                                  : natsConnection_QueueSubscribeSync(&subscription, m_connection.get(),
                                                                      subject.constData(), queue.constData());
    m_subscription.reset(subscription);
    return status == NATS_OK && flush();
}

RawMessage RawClient::next(qint64 msecs)
{
    natsMsg *message = nullptr;
    const natsStatus status = natsSubscription_NextMsg(&message, m_subscription.get(), msecs);
    return read(message, status);
}

bool RawClient::flush() { return natsConnection_FlushTimeout(m_connection.get(), 5000) == NATS_OK; }

QByteArray RawClient::error() const
{
    const char *text = nullptr;
    natsConnection_GetLastError(m_connection.get(), &text);
    return text;
}

RawClient::Message RawClient::make(const QByteArray &subject, const QByteArray &data, const Headers &headers,
                                   const QByteArray &reply)
{
    natsMsg *message = nullptr;
    natsMsg_Create(&message, subject.constData(), reply.isEmpty() ? nullptr : reply.constData(), data.constData(),
                   data.size());
    for (auto header = headers.begin(); header != headers.end(); ++header)
        natsMsgHeader_Set(message, header.key().constData(), header.value().constData());
    return Message(message);
}

RawMessage RawClient::read(natsMsg *message, natsStatus status)
{
    RawMessage result;
    result.status = status;
    const Message owner(message);
    if (!message)
        return result;
    result.isThere = !natsMsg_IsNoResponders(message);
    result.subject = natsMsg_GetSubject(message);
    result.reply = natsMsg_GetReply(message);
    result.data = QByteArray(natsMsg_GetData(message), natsMsg_GetDataLength(message));
    const char **keys = nullptr;
    int count = 0;
    if (natsMsgHeader_Keys(message, &keys, &count) == NATS_OK) {
        for (int i = 0; i < count; ++i) {
            const char *value = nullptr;
            natsMsgHeader_Get(message, keys[i], &value);
            result.headers.insert(keys[i], value);
        }
        free(keys);
    }
    return result;
}
