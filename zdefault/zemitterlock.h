// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zparking.h"

#include <QMutex>
#include <QObject>
#include <QSharedPointer>

class ZDefaultEmitter;
class ZEmitter;

/**
 * As long as it lives, no other thread injects or binds. A component that is exchanged meanwhile is destroyed after it.
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

    /// Whether this thread has a lock, of any emitter. Then it must not wait for a thread that may want to inject.
    static bool isHeldHere();

private:
    Q_DISABLE_COPY(ZEmitterLock)
    void lock(ZDefaultEmitter *emitter);

    const ZParking m_parking;
    QSharedPointer<QObject> m_emitter; // set if the emitter is reached through its delegate
    QRecursiveMutex *m_mutex = nullptr;
};
