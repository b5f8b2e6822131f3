// SPDX-License-Identifier: Apache-2.0
// Included before the tests of the default bus, to have them test it with the plugin over it.
#pragma once

#include <zdbus.h>
#include <zdefaultdbus.h>
#include <zhost.h>
#include <zlogger.h>
#include <zowned.h>

#include <memory>

/// A bus as a host has it that has loaded the plugin: the default one below, and the plugin over it. The environment
/// says whether there is a broker: NATS_BROKER is "there" or "away".
class LayeredDbus : public QObject, public ZDbus, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZDbus)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE LayeredDbus();

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;
    bool find0(const QUrl &url) override;
    QList<QUrl> findAll0(const QRegularExpression &re) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

    ZLogger *getSetZLogger(ZLogger *logger = nullptr);
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    ZDbus *bus() const { return m_host.services().dbus; }

    std::unique_ptr<ZLogger> m_log;
    ZDefaultDbus *const m_below; // the host's
    ZHost m_host;
};

#ifndef LAYERED_DBUS_ITSELF
#define ZDefaultDbus LayeredDbus
#endif
