// SPDX-License-Identifier: Apache-2.0
// What the client library hands out, as C++ has it.
#pragma once

#include <nats/nats.h>

#include <QByteArray>

#include <memory>

struct NatsMessageDeleter
{
    void operator()(natsMsg *message) const { natsMsg_Destroy(message); }
};
using NatsMessage = std::unique_ptr<natsMsg, NatsMessageDeleter>;

struct NatsOptionsDeleter
{
    void operator()(natsOptions *options) const { natsOptions_Destroy(options); }
};
using NatsOptions = std::unique_ptr<natsOptions, NatsOptionsDeleter>;

/// Empty if the message has no such header.
inline QByteArray headerOf(const NatsMessage &message, const char *key)
{
    const char *value = nullptr;
    return natsMsgHeader_Get(message.get(), key, &value) == NATS_OK ? QByteArray(value) : QByteArray();
}

/// Valid as long as the message.
inline QByteArray bodyOf(const NatsMessage &message)
{
    return QByteArray::fromRawData(natsMsg_GetData(message.get()), natsMsg_GetDataLength(message.get()));
}

inline QByteArray subjectOf(const NatsMessage &message) { return natsMsg_GetSubject(message.get()); }

/// Empty if nobody waits for an answer.
inline QByteArray replyOf(const NatsMessage &message) { return natsMsg_GetReply(message.get()); }
