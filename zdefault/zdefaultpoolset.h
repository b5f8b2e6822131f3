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
#include <QThread>

/// "ZDefaultJobPoolSet*", registered as a metatype.
ZDEFAULT_EXPORT const char *zDefaultJobPoolSetTypeName();
/// "ZDefaultThreadPoolSet*", registered as a metatype.
ZDEFAULT_EXPORT const char *zDefaultThreadPoolSetTypeName();

/**
 * Pools by name, made when they are first asked for.
 *
 * Ownership: shares its pools with whoever asked for them; it keeps all of them as long as it lives.
 * Thread:    any.
 * Failure:   none.
 */
template <class Pool>
class ZNamedPools
{
public:
    /// The pool called `name`, made with `arguments` if there is none yet. It is kept under its name up to the first
    /// NUL, but looked up by all of it.
    template <class... Arguments>
    QSharedPointer<Pool> find(const QString &name, Arguments... arguments);

    /// Where the caller is a thread of a pool, has the pools go on the thread `home` instead, if that has an event
    /// loop: one of their own threads would wait for itself.
    void letGoOn(QThread *home);

private:
    QHash<QString, QSharedPointer<Pool>> m_pools;
    QReadWriteLock m_lock;
};

/**
 * Job pools by name.
 *
 * Ownership: the emitter's, once announced. Shares the pools with its callers.
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

    /// Announces the set, each time anew. Answers its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    ZNamedPools<ZJobPool> m_pools;
};

/// Stands for a `ZJobPoolSet`. Otherwise as `ZDelegate`.
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
 * Ownership: the emitter's, once announced. Shares the registries with its callers; the last who lets go of one waits
 *            for its threads.
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

    /// Announces the set, each time anew. Answers its argument.
    ZEmitter *getSetZEmitter(ZEmitter *emitter = nullptr);

private:
    ZNamedPools<ZThreadPool> m_pools;
};

/// Stands for a `ZThreadPoolSet`. Otherwise as `ZDelegate`.
class ZDEFAULT_EXPORT ZThreadPoolSetDelegate : public ZDelegate, public ZThreadPoolSet
{
public:
    explicit ZThreadPoolSetDelegate(QObject *object);
    explicit ZThreadPoolSetDelegate(QSharedPointer<QObject> object);

    QSharedPointer<ZThreadPool> find0(const QString &name) override;
};
