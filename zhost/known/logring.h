// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QMutex>
#include <QVector>
#include <QWaitCondition>

#include <deque>

/**
 * The last thousand lines of the log.
 *
 * Thread: any, also as the process ends: the one object is never destroyed.
 */
class LogRing
{
public:
    static LogRing &get();

    /// `severity` as of syslog; what is longer than some kilobytes is cut.
    void add(int severity, const QString &text);

    struct Line
    {
        quint64 number; ///< from 1 on
        QDateTime time;
        int severity;
        QString text;

        QJsonObject describe() const;
    };
    /// The last of them, the oldest first.
    QVector<Line> last(int count) const;
    /// Those after the line `number`, some at most; waits a while for one.
    QVector<Line> after(quint64 number, int patienceMs) const;
    /// Of the line that came last; 0 before the first.
    quint64 lastNumber() const;

private:
    LogRing() = default;
    QVector<Line> from(quint64 number, int most) const;

    mutable QMutex m_mutex; // guards all
    mutable QWaitCondition m_come;
    std::deque<Line> m_lines;
    quint64 m_count = 0;
};
