// SPDX-License-Identifier: Apache-2.0
#include "zthreadpool.h"

#include <QJsonObject>
#include <QMutexLocker>

#include <climits>

namespace {

qint64 keyOf(const QThread *thread) { return static_cast<qint64>(reinterpret_cast<quintptr>(thread)); }

void interrupt(QThread *thread)
{
    if (!thread->isInterruptionRequested())
        thread->requestInterruption();
}

void terminate(QThread *thread) { thread->terminate(); }

/// Starts `thread`, unless somebody else has just done so, while the registry is locked. Returns whether it runs, or
/// has run.
bool start(QThread *thread, QThread::Priority priority, QMutex *registryLock)
{
    // The thread does not begin its work before it is registered, even if somebody else starts it now. Else it could
    // come as far as finishedSlot, and wait there for the lock, while start() waits for the thread.
    const QMetaObject::Connection held = QObject::connect(
        thread, &QThread::started, thread, [=] { const QMutexLocker locker(registryLock); }, Qt::DirectConnection);
    if (!thread->isRunning() && !thread->isFinished())
        thread->start(priority);
    QObject::disconnect(held);
    return thread->isRunning() || thread->isFinished();
}

} // namespace

ZThreadPool::ZThreadPool(QObject *parent) : QObject(parent) {}

ZThreadPool::~ZThreadPool()
{
    waitAll(ULONG_MAX);
    // The last thread holds this lock while it wakes us: nothing may be destroyed before it has released it.
    const QMutexLocker locker(&m_registryLock);
}

bool ZThreadPool::poolAndStart(QThread *thread, QThread::Priority priority)
{
    if (!thread || thread->isFinished())
        return false;

    const qint64 key = keyOf(thread);
    const QMutexLocker locker(&m_registryLock);
    const bool isNew = !m_registry.contains(key);
    m_registry.insert(key, thread);
    m_refused.remove(key);
    const QMetaObject::Connection connection =
        connect(thread, &QThread::finished, this, &ZThreadPool::finishedSlot, Qt::DirectConnection);

    // In this order, since a thread only goes from running to finished, and never back.
    if (thread->isRunning() || (!thread->isFinished() && start(thread, priority, &m_registryLock)))
        return true;
    disconnect(connection);
    if (!isNew) // it is about to call finishedSlot, which does the rest: nobody may destroy us before that
        return false;
    if (thread->isFinished()) // it may be about to call finishedSlot as well
        m_refused.insert(key);
    remove(key);
    return false;
}

bool ZThreadPool::waitAll(unsigned long time)
{
    return waitUntilEmpty(time, [](QThread *) {});
}

bool ZThreadPool::interruptAndWait(QThread *thread, unsigned long time) { return stopAndWait(thread, time, interrupt); }

bool ZThreadPool::terminateAndWait(QThread *thread, unsigned long time) { return stopAndWait(thread, time, terminate); }

bool ZThreadPool::interruptAndWaitAll(unsigned long time) { return waitUntilEmpty(time, interrupt); }

bool ZThreadPool::terminateAndWaitAll(unsigned long time) { return waitUntilEmpty(time, terminate); }

void ZThreadPool::listAll(void (*callback)(QThread *, void *), void *context)
{
    if (!callback)
        return;
    const QMutexLocker locker(&m_registryLock);
    const Registry threads = m_registry;
    for (QThread *thread : threads)
        callback(thread, context);
}

QJsonArray ZThreadPool::printd()
{
    QJsonArray list;
    const QMutexLocker locker(&m_registryLock);
    for (auto entry = m_registry.constBegin(); entry != m_registry.constEnd(); ++entry) {
        QJsonObject thread{{QStringLiteral("Thread"), QString::number(entry.key(), 16)}};
        const QString name = entry.value()->objectName();
        if (!name.isEmpty())
            thread.insert(QStringLiteral("Name"), name);
        list.append(thread);
    }
    return list;
}

void ZThreadPool::finishedSlot()
{
    QThread *thread = QThread::currentThread();
    const qint64 key = keyOf(thread);
    const QMutexLocker locker(&m_registryLock);
    if (m_refused.remove(key))
        return;
    // A thread that was registered twice would come here again, when we may be gone.
    disconnect(thread, &QThread::finished, this, &ZThreadPool::finishedSlot);
    if (m_waiting.contains(key))
        m_deleteAfter.insert(key);
    else
        thread->deleteLater();
    remove(key); // last, for whoever is woken by it may handle the deletion: another registry may have posted one, too
}

void ZThreadPool::remove(qint64 key)
{
    if (m_registry.remove(key) == 0 || !m_registry.isEmpty())
        return;
    const QMutexLocker locker(&m_waitLock);
    m_empty.wakeAll();
}

bool ZThreadPool::stopAndWait(QThread *thread, unsigned long time, void (*stop)(QThread *))
{
    if (!thread)
        return false;
    if (!thread->isRunning())
        return true;

    const qint64 key = keyOf(thread);
    {
        const QMutexLocker locker(&m_registryLock);
        if (!m_registry.contains(key))
            return false;
        ++m_waiting[key];
        stop(thread);
    }
    const bool ended = thread->wait(time);
    const QMutexLocker locker(&m_registryLock);
    if (--m_waiting[key] == 0) {
        m_waiting.remove(key);
        if (m_deleteAfter.remove(key))
            thread->deleteLater();
    }
    return ended;
}

bool ZThreadPool::waitUntilEmpty(unsigned long time, void (*stop)(QThread *))
{
    QMutexLocker registryLocker(&m_registryLock);
    if (m_registry.isEmpty())
        return true;
    const Registry threads = m_registry;
    for (QThread *thread : threads)
        stop(thread);
    // Taken before the lock of the registry is released: so nobody can empty the registry, and wake us, before we wait.
    const QMutexLocker waitLocker(&m_waitLock);
    registryLocker.unlock();
    return m_empty.wait(&m_waitLock, time);
}
