// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zglobal.h"

#include <QHash>
#include <QJsonArray>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QThread>
#include <QWaitCondition>

/**
 * A registry of running threads: starts the threads that it is given, and keeps each until it has finished.
 *
 * Times are milliseconds; `ULONG_MAX` waits without limit.
 *
 * Ownership: takes over a thread that it has accepted, and deletes it later, by the event loop of the thread in which
 *            the thread object lives. The destructor waits for all of them, however long that takes.
 * Thread:    any.
 * Failure:   false.
 */
class ZDEFAULT_EXPORT ZThreadPool : public QObject
{
    Q_OBJECT

public:
    explicit ZThreadPool(QObject *parent = nullptr);
    ~ZThreadPool() override;

    /// Registers `thread`, and starts it unless it is running already. False when it is null, has finished, or cannot
    /// be started: then it stays the caller's. A thread that is just finishing must end before the registry is
    /// destroyed.
    bool poolAndStart(QThread *thread, QThread::Priority priority);

    /// Waits until no thread is registered.
    bool waitAll(unsigned long time);
    /// Asks a registered thread to interrupt itself and waits for its end. True for a thread that does not run; false
    /// for one that is not registered here.
    bool interruptAndWait(QThread *thread, unsigned long time);
    /// The same by force: whatever the thread holds at that moment, locks included, is never released.
    bool terminateAndWait(QThread *thread, unsigned long time);
    /// Asks every registered thread to interrupt itself, then waits until none is registered.
    bool interruptAndWaitAll(unsigned long time);
    /// The same by force.
    bool terminateAndWaitAll(unsigned long time);

    /// Calls `callback` for each registered thread. It must not call this registry, nor wait for one of its threads.
    void listAll(void (*callback)(QThread *, void *), void *context);
    /// An object for each thread: its address as "Thread", in hexadecimal, and its object name, if it has one, as
    /// "Name".
    QJsonArray printd();

public Q_SLOTS:
    /// Called by a registered thread as it finishes.
    void finishedSlot();

private:
    using Registry = QHash<qint64, QThread *>;

    void remove(qint64 key);
    bool stopAndWait(QThread *thread, unsigned long time, void (*stop)(QThread *));
    bool waitUntilEmpty(unsigned long time, void (*stop)(QThread *));

    Registry m_registry;          // by address
    QMutex m_registryLock;        // taken before the wait lock; guards all members but the condition's
    QHash<qint64, int> m_waiting; // how many callers wait for a thread, which must not be deleted meanwhile
    QSet<qint64> m_deleteAfter;   // threads that have finished while somebody waited for them
    QSet<qint64> m_refused;       // threads that were finishing as they came: they stay the caller's
    QMutex m_waitLock;
    QWaitCondition m_empty;
};
