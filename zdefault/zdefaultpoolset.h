// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdelegate.h"
#include "zemitter.h"
#include "zjobpool.h"
#include "zjobpoolset.h"
#include "zowned.h"
#include "zthreadpool.h"
#include "zthreadpoolset.h"

#include <QHash>
#include <QReadWriteLock>
#include <QStringList>
#include <QThread>

/// Returns "ZDefaultJobPoolSet*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultJobPoolSetTypeName();
/// Returns "ZDefaultThreadPoolSet*", and registers that type as a metatype.
ZDEFAULT_EXPORT const char *zDefaultThreadPoolSetTypeName();

/**
 * Pools by name, made when they are first asked for.
 *
 * Ownership: shares its pools with those that asked for them; it keeps all of them as long as it lives.
 * Thread:    any.
 * Failure:   none.
 */
template <class Pool>
class ZNamedPools
{
public:
    /// The pool called `name`. If there is none yet, it is made with `arguments`. It is kept under the part of its name
    /// before the first NUL, but looked up by the whole name.
    template <class... Arguments>
    QSharedPointer<Pool> find(const QString &name, Arguments... arguments);

    /// The names of the pools in which something runs.
    QStringList busy();

    /// If the caller is a thread of a pool, and `home` has an event loop, lets the pools go on the thread `home`: on a
    /// thread of their own they would wait for themselves. Else does nothing.
    void letGoOn(QThread *home);

private:
    QHash<QString, QSharedPointer<Pool>> m_pools;
    QReadWriteLock m_lock;
};

/**
 * Job pools by name.
 *
 * Ownership: the emitter owns it, once it is announced. Shares the pools with its callers.
 * Thread:    any.
 * Failure:   none: any name is accepted.
 */
class ZDEFAULT_EXPORT ZDefaultJobPoolSet : public QObject, public ZJobPoolSet, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZJobPoolSet)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultJobPoolSet();
    ~ZDefaultJobPoolSet() override;

    QSharedPointer<ZJobPool> find0(const QString &name, int maxThreads, int expiryTimeout) override;
    /// The names of the pools in which jobs run.
    QStringList busy();

    /// Announces the set, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    ZNamedPools<ZJobPool> m_pools;
};

/// The delegate of a `ZJobPoolSet`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZJobPoolSetDelegate : public ZDelegate, public ZJobPoolSet
{
public:
    explicit ZJobPoolSetDelegate(QObject *object);
    explicit ZJobPoolSetDelegate(QSharedPointer<QObject> object);

    QSharedPointer<ZJobPool> find0(const QString &name, int maxThreads, int expiryTimeout) override;
};

/**
 * Registries of running threads by name.
 *
 * Ownership: the emitter owns it, once it is announced. Shares the registries with its callers; the last one to let go
 *            of a registry waits for its threads.
 * Thread:    any.
 * Failure:   none: any name is accepted.
 */
class ZDEFAULT_EXPORT ZDefaultThreadPoolSet : public QObject, public ZThreadPoolSet, public ZOwned
{
    Q_OBJECT
    Q_INTERFACES(ZThreadPoolSet)
    Q_PROPERTY(ZEmitter *zEmitter READ getSetZEmitter WRITE getSetZEmitter)

public:
    static const char *const TypeName;

    Q_INVOKABLE ZDefaultThreadPoolSet();
    ~ZDefaultThreadPoolSet() override;

    QSharedPointer<ZThreadPool> find0(const QString &name) override;
    /// The names of the registries that have threads.
    QStringList busy();

    /// Announces the set, again at each call. Returns its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    ZNamedPools<ZThreadPool> m_pools;
};

/// The delegate of a `ZThreadPoolSet`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZThreadPoolSetDelegate : public ZDelegate, public ZThreadPoolSet
{
public:
    explicit ZThreadPoolSetDelegate(QObject *object);
    explicit ZThreadPoolSetDelegate(QSharedPointer<QObject> object);

    QSharedPointer<ZThreadPool> find0(const QString &name) override;
};
