// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbusasync.h"
#include "zdbusoutcome.h"
#include "zdelegateof.h"
#include "zemitter.h"
#include "zlogger.h"
#include "zowned.h"

class ZDbusCalls;

/// Returns "ZDefaultDbusAsync*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultDbusAsyncTypeName();

/**
 * Makes calls on up to 16 threads, by way of `ZDbusOutcome`; up to 1024 more calls wait. Numbers are unique in a
 * process.
 *
 * When it ends, calls that run are finished, and their receivers told. Those that wait are not made, and answered with
 * the code 503 and the reason "ended". It waits for the calls that run, unless a `ZHost` that has made it does so in
 * the end.
 *
 * Ownership: the emitter owns it, once it is announced. Whoever calls `begin0` holds the receiver meanwhile.
 * Thread:    any. A receiver that is a `QObject` may move to another thread. It is told nothing if the thread in which
 *            it has lived ends first.
 * Failure:   0. What an endpoint throws is logged, and its call has the code 500 and the reason "thrown".
 */
class ZDEFAULT_EXPORT ZDefaultDbusAsync : public QObject, public ZDbusAsync, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZDbusAsync)
    Q_PROPERTY(ZDbusOutcome *zDbusOutcome READ getSetZDbusOutcome WRITE getSetZDbusOutcome)
    Q_PROPERTY(ZLogger *zLogger READ getSetZLogger WRITE getSetZLogger)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultDbusAsync();
    ~ZDefaultDbusAsync() override;

    qint64 begin0(const QUrl &url, const QJsonObject &request, QWeakPointer<ZDbusReceiver> receiver) override;

    /// Takes the first that comes, and no other. As long as there is none, nobody is bound.
    ZDbusOutcome *getSetZDbusOutcome(ZDbusOutcome *outcome = nullptr);
    /// Logs to `logger` from now on. Call it while nobody else uses the service. Returns its argument.
    ZLogger *getSetZLogger(ZLogger *logger = nullptr);
    /// Announces itself, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    friend class ZHost;

    QSharedPointer<ZDbusCalls> m_calls;
};

/// The delegate of a `ZDbusAsync`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZDbusAsyncDelegate : public ZDelegateOf<ZDbusAsync>
{
public:
    using ZDelegateOf::ZDelegateOf;

    qint64 begin0(const QUrl &url, const QJsonObject &request, QWeakPointer<ZDbusReceiver> receiver) override;
};
