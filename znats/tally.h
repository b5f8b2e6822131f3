// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "failure.h"

#include <QJsonObject>
#include <QMap>
#include <QMutex>

#include <vector>

/**
 * Counts calls that come or go, and how long they take.
 *
 * Thread:  any.
 * Failure: none.
 */
class Tally
{
public:
    /// One call, from its beginning to `end`.
    class Call
    {
    public:
        explicit Call(Tally &tally);
        ~Call();
        void end(const Failure &failure);

    private:
        Q_DISABLE_COPY(Call)
        Tally &m_tally;
        const qint64 m_begin;
        Failure m_failure;
    };

    /// {"n", "failed", "under way", "p50 ms", "p99 ms"}: the times are those of the last thousand calls.
    QJsonObject describe() const;
    /// How often calls have failed, by the kind of the failure.
    QJsonObject reasons() const;
    quint64 count() const;
    quint64 failures() const;

private:
    void note(qint64 nsecs, const Failure &failure);

    mutable QMutex m_mutex; // guards all that follow
    quint64 m_count = 0;
    quint64 m_failures = 0;
    int m_underWay = 0;
    QMap<QString, quint64> m_reasons; // by kind
    std::vector<qint64> m_times;      // the last ones, in no order
    std::size_t m_next = 0;
};
