// SPDX-License-Identifier: Apache-2.0
#include "zhomethread.h"

#include "zeventloop.h"

#include <QMutex>
#include <QMutexLocker>
#include <QThread>

#include <utility>

struct ZHomeThread::State
{
    void forget()
    {
        const QMutexLocker locker(&mutex);
        thread = nullptr;
    }

    QMutex mutex;              // while it is held, a thread that has not ended does not
    QThread *thread = nullptr; // null if it has ended
};

ZHomeThread::ZHomeThread(QThread *thread) : m_state(std::make_shared<State>())
{
    m_state->thread = thread;
    if (!thread)
        return;
    const auto forget = [state = m_state] { state->forget(); };
    m_finished = QObject::connect(thread, &QThread::finished, thread, forget, Qt::DirectConnection);
    // It may never have been started.
    m_destroyed = QObject::connect(thread, &QObject::destroyed, thread, forget, Qt::DirectConnection);
    if (thread->isFinished())
        forget();
}

ZHomeThread::~ZHomeThread()
{
    QObject::disconnect(m_finished);
    QObject::disconnect(m_destroyed);
}

void ZHomeThread::post(std::function<void()> deed) const
{
    const QMutexLocker locker(&m_state->mutex);
    QThread *const home = m_state->thread;
    if (!home)
        return;
    zPost(home, [home, deed = std::move(deed)] {
        if (QThread::currentThread() == home) // else it is just ending
            deed();
    });
}
