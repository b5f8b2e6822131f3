// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMutex>
#include <QObject>
#include <QSharedPointer>

class ZEmitter;

/**
 * Keeps everybody else from injecting, while it lives. A thread that injects may load a plugin, and one that loads a
 * plugin injects it: so who loads takes the emitter's lock first, whoever they are.
 *
 * Ownership: keeps the emitter alive.
 * Thread:    any.
 * Failure:   none; an emitter that is not the default one is not locked.
 */
class ZEmitterLock
{
public:
    explicit ZEmitterLock(ZEmitter *emitter);
    ~ZEmitterLock();

private:
    Q_DISABLE_COPY(ZEmitterLock)

    QSharedPointer<QObject> m_emitter; // if it is reached through its delegate
    QRecursiveMutex *m_mutex = nullptr;
};
