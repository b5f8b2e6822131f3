// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QThread>

#include <functional>
#include <utility>

/// Work on another thread. One that hangs is left alone, so that the failure is reported.
class Elsewhere
{
public:
    explicit Elsewhere(std::function<void()> work) : m_thread(QThread::create(std::move(work))) { m_thread->start(); }
    ~Elsewhere()
    {
        if (ended(100))
            delete m_thread;
    }

    bool ended(int msecs = 30000) const { return m_thread->wait(QDeadlineTimer(msecs)); }

private:
    Q_DISABLE_COPY(Elsewhere)
    QThread *const m_thread;
};
