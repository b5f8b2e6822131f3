// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>

/// What was there a moment ago, and so may be back in a moment. Thread: any.
class SeenLately
{
public:
    void note(const QByteArray &what)
    {
        const QMutexLocker locker(&m_mutex);
        if (m_times.size() >= Most && !m_times.contains(what))
            m_times.clear();
        m_times[what].start();
    }
    bool within(const QByteArray &what, int msecs) const
    {
        const QMutexLocker locker(&m_mutex);
        const auto found = m_times.constFind(what);
        return found != m_times.constEnd() && !found->hasExpired(msecs);
    }

private:
    static constexpr int Most = 4096;

    mutable QMutex m_mutex; // guards m_times
    QHash<QByteArray, QElapsedTimer> m_times;
};
