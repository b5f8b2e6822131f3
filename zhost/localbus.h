// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zdbus.h>

/**
 * The bus of this process, below all layers that reach further: for what the host asks its own plugins.
 *
 * Ownership: does not own the bus.
 * Thread:    any.
 * Failure:   as of `ZDbus`, and if the layers lead to no bus.
 */
class LocalBus : public ZDbus
{
public:
    /// The bus below `bus`, which may be exchanged at any time.
    explicit LocalBus(ZDbus *bus) : m_bus(bus) {}

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;
    bool find0(const QUrl &url) override;
    QList<QUrl> findAll0(const QRegularExpression &re) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

private:
    ZDbus *const m_bus;
};
