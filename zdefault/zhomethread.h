// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QMetaObject>
#include <QtGlobal>

#include <functional>
#include <memory>

QT_BEGIN_NAMESPACE
class QThread;
QT_END_NAMESPACE

/**
 * A thread that is to do something later, if it has not ended by then.
 *
 * Ownership: none of the thread.
 * Thread:    any.
 * Failure:   what is posted is not done.
 */
class ZHomeThread
{
public:
    /// `thread` has not been destroyed; it may be null.
    explicit ZHomeThread(QThread *thread);
    ~ZHomeThread();

    /// Has the event loop of the thread run `deed`, which must not throw. Never runs it on another thread.
    void post(std::function<void()> deed) const;

private:
    Q_DISABLE_COPY(ZHomeThread)
    struct State;

    const std::shared_ptr<State> m_state;
    QMetaObject::Connection m_finished, m_destroyed;
};
