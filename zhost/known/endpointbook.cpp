// SPDX-License-Identifier: Apache-2.0
#include "endpointbook.h"

#include "codefile.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QMutexLocker>
#include <QUrl>

#include <zdbussubscriber.h>

#include <algorithm>

namespace {

constexpr int MinRoom = 64;

} // namespace

void EndpointBook::bound(const QUrl &url, const QWeakPointer<ZDbusSubscriber> &subscriber)
{
    const QSharedPointer<ZDbusSubscriber> alive = subscriber.toStrongRef(); // let go of after the lock
    const QString address = QStringLiteral("//%1%2").arg(url.host(QUrl::FullyDecoded), url.path(QUrl::FullyDecoded));
    const Endpoint endpoint{url, subscriber, alive ? classFile(*alive) : QString(), QDateTime::currentDateTimeUtc()};
    const QMutexLocker locker(&m_mutex);
    if (m_endpoints.size() >= m_room)
        forgetDead();
    for (auto same = m_endpoints.find(address); same != m_endpoints.end() && same.key() == address;) {
        if (same->subscriber.isNull() || same->subscriber == subscriber)
            same = m_endpoints.erase(same);
        else
            ++same;
    }
    m_endpoints.insert(address, endpoint);
}

QJsonArray EndpointBook::describe() const
{
    const QMutexLocker locker(&m_mutex);
    QStringList addresses = m_endpoints.uniqueKeys();
    addresses.sort();
    QJsonArray result;
    for (const QString &address : qAsConst(addresses)) {
        const Endpoint endpoint = m_endpoints.value(address);
        result.append(QJsonObject{{QStringLiteral("url"), address},
                                  {QStringLiteral("alive"), !endpoint.subscriber.isNull()},
                                  {QStringLiteral("file"), QFileInfo(endpoint.file).fileName()},
                                  {QStringLiteral("since"), endpoint.since.toString(Qt::ISODateWithMs)}});
    }
    return result;
}

bool EndpointBook::isThere(const QString &address) const
{
    const QMutexLocker locker(&m_mutex);
    return !m_endpoints.value(address).subscriber.isNull();
}

QVector<QPair<QUrl, QSharedPointer<ZDbusSubscriber>>> EndpointBook::endpoints(const QString &file) const
{
    QVector<QPair<QUrl, QSharedPointer<ZDbusSubscriber>>> result; // let go of after the lock
    const QMutexLocker locker(&m_mutex);
    for (auto endpoint = m_endpoints.begin(); endpoint != m_endpoints.end(); ++endpoint) {
        if (endpoint->file != file)
            continue;
        if (const QSharedPointer<ZDbusSubscriber> alive = endpoint->subscriber.toStrongRef())
            result.append({endpoint->url, alive});
    }
    return result;
}

QStringList EndpointBook::addresses(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    QStringList result = m_endpoints.uniqueKeys();
    const auto isOther = [&](const QString &address) {
        const Endpoint last = m_endpoints.value(address);
        return last.file != file || last.subscriber.isNull();
    };
    result.erase(std::remove_if(result.begin(), result.end(), isOther), result.end());
    result.sort();
    return result;
}

QStringList EndpointBook::allAddresses(const QString &file) const
{
    const QMutexLocker locker(&m_mutex);
    QStringList result;
    for (auto endpoint = m_endpoints.begin(); endpoint != m_endpoints.end(); ++endpoint) {
        if (endpoint->file == file && !endpoint->subscriber.isNull())
            result.append(endpoint.key());
    }
    result.sort();
    result.removeDuplicates();
    return result;
}

/// One that is dead hides those before it, as it does on the bus: it stays as long as one of them is alive.
void EndpointBook::forgetDead()
{
    const QStringList addresses = m_endpoints.uniqueKeys();
    for (const QString &address : addresses) {
        QVector<Endpoint> kept; // the last first
        const QList<Endpoint> all = m_endpoints.values(address);
        for (const Endpoint &endpoint : all) {
            if (kept.isEmpty() || !endpoint.subscriber.isNull())
                kept.append(endpoint);
        }
        if (kept.size() == 1 && kept.first().subscriber.isNull())
            kept.clear();
        m_endpoints.remove(address);
        for (auto endpoint = kept.rbegin(); endpoint != kept.rend(); ++endpoint)
            m_endpoints.insert(address, *endpoint);
    }
    m_room = std::max(MinRoom, 2 * m_endpoints.size());
}

bool RecordingDbus::bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber)
{
    if (!ZDefaultDbus::bind0(url, subscriber))
        return false;
    m_book->bound(url, subscriber);
    return true;
}
