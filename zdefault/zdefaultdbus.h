// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbus.h"
#include "zdbussubscriber.h"
#include "zdelegate.h"
#include "zemitter.h"
#include "zlogger.h"
#include "znamedlogger.h"
#include "zowned.h"

#include <QHash>
#include <QMutex>

/// "ZDefaultDbus*", registered as a metatype.
ZDEFAULT_EXPORT const char *zDefaultDbusTypeName();

/**
 * An in-process bus. An endpoint's address is the host, in lower case, and the path of its URL, both fully decoded;
 * nothing else of a URL takes part. A fragment makes a call quiet: it is not logged.
 *
 * Ownership: the emitter's, once announced. Subscribers are held weakly; one that has died is forgotten when it is met.
 *            Nobody meets one whose address is not used again, so those pile up until all are walked, by `findAll0` or
 *            by a call to all: where each session has an address of its own, do that now and then.
 * Thread:    any. A call to one endpoint runs unlocked. A call to all of them holds the lock: a subscriber that uses
 *            the bus from within one never returns. Lines of kind 4, of what is bound and forgotten, are written under
 *            the lock too: a logger that uses the bus for them never returns.
 * Failure:   false, or an empty list.
 */
class ZDEFAULT_EXPORT ZDefaultDbus : public QObject, public ZDbus, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZDbus)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultDbus();

    bool bind0(const QUrl &url, QWeakPointer<ZDbusSubscriber> subscriber) override;
    bool find0(const QUrl &url) override;
    QList<QUrl> findAll0(const QRegularExpression &re) override;
    bool invoke0(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

    /// Logs through `logger` from now on; to be called while nobody else uses the bus. Answers its argument.
    ZLogger *getSetZLogger(ZLogger *logger = nullptr);
    /// Announces the bus, each time anew. Answers its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    using Endpoints = QHash<QString, QWeakPointer<ZDbusSubscriber>>;

    bool invokeAll(const QUrl &url, QJsonObject *in, QJsonObject *out);
    QSharedPointer<ZDbusSubscriber> take(const QString &host, const QUrl &url);
    Endpoints::iterator forget(Endpoints::iterator endpoint);
    template <class Call>
    void forEachAlive(Call call);

    QMutex m_mutex; // guards m_endpoints
    Endpoints m_endpoints;
    ZNamedLogger m_log;
};

/// Stands for a `ZDbus`. Otherwise as `ZDelegate`.
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
