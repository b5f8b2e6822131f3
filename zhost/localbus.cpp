// SPDX-License-Identifier: Apache-2.0
#include "localbus.h"

#include <zdbuslayers.h>
#include <zdefaultdbus.h>

namespace {

/// A delegate of the bus that is the lowest at the moment.
class Bottom : public ZDbusDelegate
{
public:
    explicit Bottom(ZDbus *bus) : ZDbusDelegate(QSharedPointer<QObject>())
    {
        const QVector<QSharedPointer<ZReference>> layers = zDbusLayers(bus);
        replace(layers.value(layers.size() - 1));
    }
};

} // namespace

bool LocalBus::bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber)
{
    return Bottom(m_bus).bind0(url, std::move(subscriber));
}

bool LocalBus::find0(const QUrl &url) { return Bottom(m_bus).find0(url); }

QList<QUrl> LocalBus::findAll0(const QRegularExpression &re) { return Bottom(m_bus).findAll0(re); }

bool LocalBus::invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out)
{
    return Bottom(m_bus).invoke0(url, in, out);
}
