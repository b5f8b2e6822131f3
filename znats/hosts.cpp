// SPDX-License-Identifier: Apache-2.0
#include "hosts.h"

#include <QJsonObject>
#include <QMutexLocker>

namespace {

constexpr int MostHosts = 1000;

} // namespace

qint64 Hosts::note(const QString &name, qint64 clockMs, qint64 tripMs)
{
    const QDateTime now = QDateTime::currentDateTime();
    // Its clock was read somewhere on the way: only what the way cannot explain is a difference.
    const qint64 sinceSent = clockMs - (now.toMSecsSinceEpoch() - tripMs);
    const qint64 skewMs = sinceSent < 0 ? sinceSent : (sinceSent > tripMs ? sinceSent - tripMs : 0);
    const QMutexLocker locker(&m_mutex);
    if (m_hosts.size() >= MostHosts && !m_hosts.contains(name))
        m_hosts.clear();
    m_hosts[name] = {now, skewMs};
    return skewMs;
}

QJsonArray Hosts::describe() const
{
    const QMutexLocker locker(&m_mutex);
    QJsonArray result;
    const QDateTime oldest = QDateTime::currentDateTime().addSecs(-3600);
    for (auto host = m_hosts.cbegin(); host != m_hosts.cend(); ++host) {
        if (host->seen < oldest)
            continue;
        result.append(QJsonObject{{QStringLiteral("name"), host.key()},
                                  {QStringLiteral("seen"), host->seen.toString(Qt::ISODateWithMs)},
                                  {QStringLiteral("skew ms"), double(host->skewMs)}});
    }
    return result;
}
