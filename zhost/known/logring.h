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

    /// `severity` is that of syslog; a text of more than some kilobytes is cut off.
    void add(int severity, const QString &text);

    struct Line
    {
        quint64 number; ///< from 1 on
        QDateTime time;
        int severity;
        QString text;

        QJsonObject describe() const;
    };
    /// The last `count` lines, the oldest first.
    QVector<Line> last(int count) const;
    /// The lines after the line `number`, but only some at a time; waits a while for the first.
    QVector<Line> after(quint64 number, int patienceMs) const;
    /// The number of the line that came last; 0 before the first.
    quint64 lastNumber() const;

private:
    LogRing() = default;
    QVector<Line> from(quint64 number, int most) const;

    mutable QMutex m_mutex; // guards all
    mutable QWaitCondition m_come;
    std::deque<Line> m_lines;
    quint64 m_count = 0;
};
