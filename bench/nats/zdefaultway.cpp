// SPDX-License-Identifier: Apache-2.0
// Ours: a host whose bus the plugin takes to other processes.
#include "way.h"

#include <zdbussubscriber.h>
#include <zhost.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

class Echo : public ZDbusSubscriber
{
public:
    bool invoked(const QUrl &, QJsonObject *in, QJsonObject *out) override
    {
        if (in && out)
            *out = *in;
        return true;
    }
};

QJsonObject configuration(const QString &address, const QString &folder)
{
    QJsonObject loader{{"deployed", folder}, {"hot-deploy", folder + "/none"}};
    QJsonObject nats;
    if (!address.isEmpty()) {
        loader["load-list"] = QJsonArray{"znats"};
        nats = QJsonObject{{"servers", QJsonArray{address}}, {"serve", QJsonArray{"echo"}}};
    }
    return {{"logger", QJsonObject{{"debug", 0}}}, {"loader", loader}, {"nats", nats}};
}

class ZdefaultWay : public Way
{
public:
    ZdefaultWay(const QString &address, const QString &folder, bool isLocal)
        : m_host(configuration(address, folder)), m_isLocal(isLocal)
    {
        m_host.begin();
        if (m_isLocal)
            serve();
    }

    void serve() override { m_host.services().dbus->bind0(QUrl("//echo"), m_echo); }

    Call caller(const std::string &payload) override
    {
        ZDbus *bus = m_host.services().dbus;
        if (m_isLocal)
            return [bus, url = QUrl("//echo#quiet")] { return bus->invoke0(url, nullptr, nullptr); };
        const QJsonObject request = QJsonDocument::fromJson(QByteArray::fromStdString(payload)).object();
        return [bus, url = QUrl("//echo"), request] {
            QJsonObject in = request;
            QJsonObject out;
            return bus->invoke0(url, &in, &out) && !out.isEmpty();
        };
    }

private:
    const QSharedPointer<Echo> m_echo = QSharedPointer<Echo>::create();
    ZHost m_host;
    const bool m_isLocal;
};

} // namespace

std::unique_ptr<Way> zdefaultWay(const QString &address, const QString &folder, bool isLocal)
{
    return std::make_unique<ZdefaultWay>(address, folder, isLocal);
}
