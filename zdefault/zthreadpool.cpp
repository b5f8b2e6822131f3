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

/// Starts `thread`, unless somebody else just did, while the registry is locked; whether it runs, or has run.
bool start(QThread *thread, QThread::Priority priority, QMutex *registryLock)
{
    // Whoever starts it from now on, it does not run before it is handed in: if it came as far as finishedSlot, it
    // would wait there for the lock, and start() for it.
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
    // The last thread has woken us while it holds this lock: nothing may be destroyed before it has let go.
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

    // Asked in this order, since a thread only ever goes from running to finished.
    if (thread->isRunning() || (!thread->isFinished() && start(thread, priority, &m_registryLock)))
        return true;
    disconnect(connection);
    if (!isNew) // it is on its way into finishedSlot, which does the rest: nobody may destroy us before
        return false;
    if (thread->isFinished()) // it may be on its way as well
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
    // One that was handed in twice would come here again, when we may be gone.
    disconnect(thread, &QThread::finished, this, &ZThreadPool::finishedSlot);
    remove(key);
    if (m_waiting.contains(key))
        m_deleteAfter.insert(key);
    else
        thread->deleteLater();
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
    // Taken before the registry is let go: nobody can empty it, and wake us, before we wait.
    const QMutexLocker waitLocker(&m_waitLock);
    registryLocker.unlock();
    return m_empty.wait(&m_waitLock, time);
}
