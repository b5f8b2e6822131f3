// SPDX-License-Identifier: Apache-2.0
#include "zdefaultpoolset.h"

#include "zeventloop.h"
#include "ztypename.h"
#include "zwiring.h"

#include <QReadLocker>
#include <QThread>
#include <QWriteLocker>

#include <utility>

namespace {

bool isBusy(const ZJobPool &pool) { return static_cast<unsigned long>(pool) > 0; }

bool isBusy(ZThreadPool &registry) { return !registry.waitAll(0); }

} // namespace

template <class Pool>
template <class... Arguments>
QSharedPointer<Pool> ZNamedPools<Pool>::find(const QString &name, Arguments... arguments)
{
    {
        const QReadLocker locker(&m_lock);
        QSharedPointer<Pool> pool = m_pools.value(name);
        if (pool)
            return pool;
    }
    // Destroyed outside the lock: a pool waits for what runs in it, and that may ask for pools.
    QSharedPointer<Pool> replaced;
    const QWriteLocker locker(&m_lock);
    QSharedPointer<Pool> pool = m_pools.value(name); // another thread may have made it meanwhile
    if (!pool) {
        pool = QSharedPointer<Pool>::create(arguments...);
        const int nul = name.indexOf(QChar::Null);
        const QString key(name.constData(), nul < 0 ? name.size() : nul); // a deep copy: the caller may be a plugin
        replaced = m_pools.take(key);
        m_pools.insert(key, pool);
    }
    return pool;
}

template <class Pool>
QStringList ZNamedPools<Pool>::busy()
{
    QStringList names;
    const QReadLocker locker(&m_lock);
    for (auto pool = m_pools.constBegin(); pool != m_pools.constEnd(); ++pool) {
        if (isBusy(**pool))
            names.append(pool.key());
    }
    return names;
}

template <class Pool>
void ZNamedPools<Pool>::letGoOn(QThread *home)
{
    const QThread *here = QThread::currentThread();
    const bool mayBeOwn = here->inherits("QThreadPoolThread") || here->inherits("ZSchedulerThread");
    if (mayBeOwn && zHasEventLoop(home))
        zPost(home, [pools = std::exchange(m_pools, {})] {});
}

const char *zDefaultJobPoolSetTypeName() { return zTypeName<ZDefaultJobPoolSet>("ZDefaultJobPoolSet*"); }

const char *zDefaultThreadPoolSetTypeName() { return zTypeName<ZDefaultThreadPoolSet>("ZDefaultThreadPoolSet*"); }

const char *const ZDefaultJobPoolSet::TypeName = zDefaultJobPoolSetTypeName();
const char *const ZDefaultThreadPoolSet::TypeName = zDefaultThreadPoolSetTypeName();

ZDefaultJobPoolSet::ZDefaultJobPoolSet() = default;

ZDefaultJobPoolSet::~ZDefaultJobPoolSet() { m_pools.letGoOn(thread()); }

QSharedPointer<ZJobPool> ZDefaultJobPoolSet::find0(const QString &name, int maxThreads, int expiryTimeout)
{
    return m_pools.find(name, maxThreads, expiryTimeout);
}

QStringList ZDefaultJobPoolSet::busy() { return m_pools.busy(); }

ZEmitter *ZDefaultJobPoolSet::getSetZEmitter(ZEmitter *emitter)
{
    return zAnnounce<ZJobPoolSetDelegate>(this, emitter);
}

ZDefaultThreadPoolSet::ZDefaultThreadPoolSet() = default;

ZDefaultThreadPoolSet::~ZDefaultThreadPoolSet() { m_pools.letGoOn(thread()); }

QSharedPointer<ZThreadPool> ZDefaultThreadPoolSet::find0(const QString &name) { return m_pools.find(name); }

QStringList ZDefaultThreadPoolSet::busy() { return m_pools.busy(); }

ZEmitter *ZDefaultThreadPoolSet::getSetZEmitter(ZEmitter *emitter)
{
    return zAnnounce<ZThreadPoolSetDelegate>(this, emitter);
}

ZJobPoolSetDelegate::ZJobPoolSetDelegate(QObject *object) : ZDelegate(refer(object)) { provide<ZJobPoolSet>(this); }

ZJobPoolSetDelegate::ZJobPoolSetDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZJobPoolSet>(this);
}

QSharedPointer<ZJobPool> ZJobPoolSetDelegate::find0(const QString &name, int maxThreads, int expiryTimeout)
{
    return forward(&ZJobPoolSet::find0, {}, name, maxThreads, expiryTimeout);
}

ZThreadPoolSetDelegate::ZThreadPoolSetDelegate(QObject *object) : ZDelegate(refer(object))
{
    provide<ZThreadPoolSet>(this);
}

ZThreadPoolSetDelegate::ZThreadPoolSetDelegate(QSharedPointer<QObject> object) : ZDelegate(refer(std::move(object)))
{
    provide<ZThreadPoolSet>(this);
}

QSharedPointer<ZThreadPool> ZThreadPoolSetDelegate::find0(const QString &name)
{
    return forward(&ZThreadPoolSet::find0, {}, name);
}
