// SPDX-License-Identifier: Apache-2.0
#include "hostdoor.h"

#include <hosts.h>

#include <QJsonArray>

QString HostDoor::refusal(const QString &process, const QString &file, const QDateTime &since)
{
    if (process != m_process) {
        m_process = process;
        m_client.reset();
        if (const Search search = Search::by(process.toLongLong()); search.error.isEmpty())
            m_client.emplace(search.address);
    }
    if (!m_client)
        return {};
    const QJsonArray events = m_client->get(QStringLiteral("/v1/report/events")).json.array();
    for (const auto &value : events) {
        const QJsonObject event = value.toObject();
        const QDateTime time = QDateTime::fromString(event.value(QStringLiteral("time")).toString(), Qt::ISODateWithMs);
        if (event.value(QStringLiteral("kind")) == QLatin1String("refused") &&
            event.value(QStringLiteral("subject")) == file && time >= since)
            return event.value(QStringLiteral("text")).toString();
    }
    return {};
}
