// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <zconfig.h>
#include <zdbus.h>
#include <zdbuslayer.h>
#include <zdbusoutcome.h>
#include <zdbusreach.h>
#include <zdbussubscriber.h>
#include <zemitter.h>
#include <zlease.h>
#include <zlogger.h>
#include <zobject.h>

#include <atomic>
#include <memory>

class Engine;

/**
 * The bus that reaches other processes, by a broker. It lies over the one that was there before: what that one handles,
 * or holds and refuses, goes no further. The rest is asked of others.
 *
 * Thread:  any, but it is loaded, and goes, on the loader's thread.
 * Failure: false; the log, and `ZDbusOutcome`, say why.
 */
class NatsBus : public ZObject,
                public ZDbus,
                public ZDbusLayer,
                public ZDbusOutcome,
                public ZLease,
                public ZDbusSubscriber
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ZObject_iid)
    Q_INTERFACES(ZDbus ZDbusLayer ZDbusOutcome ZLease)
    Q_PROPERTY(ZConfig *config MEMBER m_config)
    Q_PROPERTY(ZLogger *zLogger MEMBER m_logger)
    Q_PROPERTY(ZDbus *zDbus MEMBER m_dbus)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    NatsBus();
    ~NatsBus() override;

    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;
    bool find0(const QUrl &url) override;
    QList<QUrl> findAll0(const QRegularExpression &re) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

    QString layer0() override;
    bool next0(QSharedPointer<ZReference> &next) override;
    bool setNext0(const QSharedPointer<ZReference> &next) override;

    bool call0(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome) override;

    bool want0(const QString &name, int msecs) override;
    void forget0(const QString &name) override;
    bool begin0(const QString &name, qint64 slot, QString &reason) override;

    /// The endpoint //nats, for this process alone: "/printd", "/hosts", and "/replaced", by which the next version
    /// says that it takes over.
    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    struct Place;
    bool start(ZEmitter &emitter);
    ZDbusReach::Reached reachHere(const QUrl &url, QJsonObject *in, QJsonObject *out);
    bool callAll(const QUrl &url, QJsonObject *in, QJsonObject *out, QJsonObject *outcome);
    bool isElsewhere(const QUrl &url) const;
    void sweep();
    void quit();

    ZConfig *m_config = nullptr;
    ZLogger *m_logger = nullptr;
    ZDbus *m_dbus = nullptr;
    std::shared_ptr<Engine> m_engine;      // null without settings
    std::atomic<bool> m_isReplaced{false}; // a next version has told it
    bool m_isQuitting = false;
};
