// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbus.h"
#include "zdbusreach.h"
#include "zdbussubscriber.h"
#include "zdelegate.h"
#include "zdelegateof.h"
#include "zemitter.h"
#include "zlogger.h"
#include "znamedlogger.h"
#include "zowned.h"

#include <QHash>
#include <QMutex>

/// Returns "ZDefaultDbus*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultDbusTypeName();

/**
 * An in-process bus. An endpoint's address is the host, in lower case, and the path of its URL, both fully decoded;
 * nothing else of a URL takes part. A fragment makes a call quiet: it is not logged.
 *
 * Ownership: the emitter owns it, once it is announced. Subscribers are held weakly. The bus forgets a subscriber that
 *            has been destroyed when its address is called. If the address is not used again, the entry stays until
 *            `findAll0`, or a call to all, goes through all entries. So if each session has an address of its own, do
 *            that now and then.
 * Thread:    any. A call to one endpoint runs unlocked. A call to all of them holds the lock: a subscriber that uses
 *            the bus from within one never returns. The lines of kind 4, about endpoints that are bound and forgotten,
 *            are written under the lock too: a logger that uses the bus for them never returns.
 * Failure:   false, or an empty list.
 */
class ZDEFAULT_EXPORT ZDefaultDbus : public QObject, public ZDbus, public ZOwned, public ZDbusReach
{
    Q_OBJECT
    Q_INTERFACES(ZDbus ZDbusReach)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultDbus();

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;
    bool find0(const QUrl &url) override;
    QList<QUrl> findAll0(const QRegularExpression &re) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;
    /// By way of `invoke0`, which a derived class may have changed.
    Reached reach0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;
    Reached reachAll0(const QRegularExpression &re, const QUrl &url, QJsonObject *in, QJsonObject *out) override;

    /// Logs through `logger` from now on. Call it while nobody else uses the bus. Returns its argument.
    ZLogger *getSetZLogger(ZLogger *logger = nullptr);
    /// Announces the bus, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    using Endpoints = QHash<QString, QWeakPointer<ZDbusSubscriber>>;

    template <class Wanted>
    Reached invokeAll(Wanted isWanted, const QUrl &url, QJsonObject *in, QJsonObject *out);
    QSharedPointer<ZDbusSubscriber> take(const QString &host, const QUrl &url);
    Endpoints::iterator forget(Endpoints::iterator endpoint);
    template <class Call>
    void forEachAlive(Call call);

    QMutex m_mutex; // guards m_endpoints
    Endpoints m_endpoints;
    ZNamedLogger m_log;
};

/// The delegate of a `ZDbus`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZDbusDelegate : public ZDelegate, public ZDbus
{
public:
    explicit ZDbusDelegate(QObject *object);
    explicit ZDbusDelegate(QSharedPointer<QObject> object);

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;
    bool find0(const QUrl &url) override;
    QList<QUrl> findAll0(const QRegularExpression &re) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;
};

/// The delegate of a `ZDbusReach`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZDbusReachDelegate : public ZDelegateOf<ZDbusReach>
{
public:
    using ZDelegateOf::ZDelegateOf;

    Reached reach0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;
    Reached reachAll0(const QRegularExpression &re, const QUrl &url, QJsonObject *in, QJsonObject *out) override;
};
