// SPDX-License-Identifier: Apache-2.0
// The floor: the client in C alone, as its authors show it.
#include "way.h"

#include <nats/nats.h>

namespace {

class RawWay : public Way
{
public:
    explicit RawWay(const QString &address)
    {
        natsOptions *options = nullptr;
        natsOptions_Create(&options);
        natsOptions_SetURL(options, address.toUtf8().constData());
        natsOptions_SetSendAsap(options, true); // else a request waits for others
        natsConnection_Connect(&m_connection, options);
        natsOptions_Destroy(options);
    }

    void serve() override
    {
        natsSubscription *subscription = nullptr;
        natsConnection_QueueSubscribe(&subscription, m_connection, "raw.echo", "z", answer, nullptr);
        natsConnection_Flush(m_connection);
    }

    Call caller(const std::string &payload) override
    {
        return [this, payload] {
            natsMsg *reply = nullptr;
            const natsStatus status = natsConnection_Request(&reply, m_connection, "raw.echo", payload.data(),
                                                             static_cast<int>(payload.size()), 2000);
            natsMsg_Destroy(reply);
            return status == NATS_OK;
        };
    }

private:
    static void answer(natsConnection *connection, natsSubscription *, natsMsg *message, void *)
    {
        natsConnection_Publish(connection, natsMsg_GetReply(message), natsMsg_GetData(message),
                               natsMsg_GetDataLength(message));
        natsMsg_Destroy(message);
    }

    natsConnection *m_connection = nullptr;
};

} // namespace

std::unique_ptr<Way> rawWay(const QString &address) { return std::make_unique<RawWay>(address); }
