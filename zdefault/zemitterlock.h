// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zparking.h"

#include <QMutex>
#include <QObject>
#include <QSharedPointer>

class ZDefaultEmitter;
class ZEmitter;

/**
 * Keeps everybody else from injecting and binding, while it lives. What is exchanged meanwhile dies after it.
 *
 * Ownership: keeps the emitter alive.
 * Thread:    any.
 * Failure:   none; an emitter that is not the default one is not locked.
 */
class ZEmitterLock
{
public:
    explicit ZEmitterLock(ZEmitter *emitter);
    explicit ZEmitterLock(ZDefaultEmitter *emitter);
    ~ZEmitterLock();

    /// Whether this thread has one, of whatever emitter. It must not wait for a thread that may want to inject.
    static bool isHeldHere();

private:
    Q_DISABLE_COPY(ZEmitterLock)
    void lock(ZDefaultEmitter *emitter);

    const ZParking m_parking;
    QSharedPointer<QObject> m_emitter; // if it is reached through its delegate
    QRecursiveMutex *m_mutex = nullptr;
};
