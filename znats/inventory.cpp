// SPDX-License-Identifier: Apache-2.0
#include "inventory.h"

#include "provider.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QUuid>

namespace {

/// Names of services have no other characters than these.
QString serviceName(const QString &domain)
{
    return QStringLiteral("zdefault-") +
           QString(domain).replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_-]")), QStringLiteral("_"));
}

} // namespace

Inventory::Inventory(const NatsSettings &settings, Connection &connection, Requests &requests, const Provider &provider)
    : m_settings(settings), m_connection(connection), m_requests(requests), m_provider(provider),
      m_service(serviceName(settings.domain)), m_id(QUuid::createUuid().toString(QUuid::Id128)),
      m_started(QDateTime::currentDateTimeUtc())
{}

void Inventory::open()
{
    if (m_settings.serve.isEmpty())
        return;
    listen("PING", &Inventory::ping);
    listen("INFO", &Inventory::info);
    listen("STATS", &Inventory::stats);
}

QJsonArray Inventory::hosts() const
{
    QJsonArray hosts;
    QElapsedTimer timer;
    timer.start();
    m_requests.gather({"$SRV.INFO." + m_service.toUtf8(), {}, {}}, m_settings.gatherMs, m_settings.gatherMs,
                      [&](const NatsMessage &answer) {
                          const QJsonObject info = QJsonDocument::fromJson(bodyOf(answer)).object();
                          const QJsonObject data = info.value(QStringLiteral("metadata")).toObject();
                          QJsonArray urls;
                          const QJsonArray endpoints = info.value(QStringLiteral("endpoints")).toArray();
                          for (const auto &endpoint : endpoints)
                              urls.append(endpoint.toObject().value(QStringLiteral("name")));
                          hosts.append(QJsonObject{{QStringLiteral("name"), data.value(QStringLiteral("host"))},
                                                   {QStringLiteral("id"), info.value(QStringLiteral("id"))},
                                                   {QStringLiteral("version"), info.value(QStringLiteral("version"))},
                                                   {QStringLiteral("started"), data.value(QStringLiteral("started"))},
                                                   {QStringLiteral("urls"), urls},
                                                   {QStringLiteral("ms"), double(timer.nsecsElapsed()) / 1e6}});
                      });
    return hosts;
}

/// To all three subjects on which services are asked: all of them, those of one name, this one.
void Inventory::listen(const char *verb, Describer describer)
{
    const MessageHandler handler = [this, describer](const NatsMessage &message) {
        natsMsg *made = nullptr;
        const QByteArray body = QJsonDocument((this->*describer)()).toJson(QJsonDocument::Compact);
        if (natsMsg_Create(&made, replyOf(message), nullptr, body, body.size()) == NATS_OK)
            m_connection.send(NatsMessage(made).get());
    };
    const QByteArray all = QByteArray("$SRV.") + verb;
    const QByteArray named = all + '.' + m_service.toUtf8();
    for (const QByteArray &subject : {all, named, named + '.' + m_id.toUtf8()})
        m_connection.listen(subject, Listening::Everyone, handler);
}

QJsonObject Inventory::identity(const char *type) const
{
    const QJsonObject data{{QStringLiteral("host"), m_settings.name},
                           {QStringLiteral("started"), m_started.toString(Qt::ISODateWithMs)}};
    return {{QStringLiteral("type"), QStringLiteral("io.nats.micro.v1.%1_response").arg(QLatin1String(type))},
            {QStringLiteral("name"), m_service},
            {QStringLiteral("id"), m_id},
            {QStringLiteral("version"), QStringLiteral(ZNATS_VERSION)},
            {QStringLiteral("metadata"), data}};
}

QJsonObject Inventory::ping() const { return identity("ping"); }

QJsonObject Inventory::info() const
{
    QJsonObject result = identity("info");
    QJsonArray endpoints;
    const Subjects subjects(m_settings.domain);
    const QList<QUrl> served = m_provider.served();
    for (const QUrl &url : served)
        endpoints.append(
            QJsonObject{{QStringLiteral("name"), url.toString()},
                        {QStringLiteral("subject"), QString::fromUtf8(subjects.call(Subjects::placeOf(url)))},
                        {QStringLiteral("queue_group"), QStringLiteral("z")}});
    result.insert(QStringLiteral("description"), QStringLiteral("endpoints of %1").arg(m_settings.name));
    result.insert(QStringLiteral("endpoints"), endpoints);
    return result;
}

QJsonObject Inventory::stats() const
{
    QJsonObject result = identity("stats");
    const QJsonObject calls = m_provider.tally().describe();
    result.insert(QStringLiteral("started"), m_started.toString(Qt::ISODateWithMs));
    result.insert(QStringLiteral("endpoints"),
                  QJsonArray{QJsonObject{{QStringLiteral("name"), QStringLiteral("all")},
                                         {QStringLiteral("num_requests"), calls.value(QStringLiteral("n"))},
                                         {QStringLiteral("num_errors"), calls.value(QStringLiteral("failed"))}}});
    return result;
}
