// SPDX-License-Identifier: Apache-2.0
#include "logring.h"

#include <doorlimits.h>

#include <QDeadlineTimer>
#include <QMutexLocker>

#include <algorithm>

namespace {

constexpr int MaxLength = 4096;
constexpr int MostAtOnce = 100;

} // namespace

LogRing &LogRing::get()
{
    static auto &ring = *new LogRing;
    return ring;
}

void LogRing::add(int severity, const QString &text)
{
    const QMutexLocker locker(&m_mutex);
    m_lines.push_back({++m_count, QDateTime::currentDateTimeUtc(), severity, text.left(MaxLength)});
    if (m_lines.size() > Limits::MaxLines)
        m_lines.pop_front();
    m_come.wakeAll();
}

QJsonObject LogRing::Line::describe() const
{
    return {{QStringLiteral("number"), qint64(number)},
            {QStringLiteral("time"), time.toString(Qt::ISODateWithMs)},
            {QStringLiteral("severity"), severity},
            {QStringLiteral("text"), text}};
}

QVector<LogRing::Line> LogRing::last(int count) const
{
    const QMutexLocker locker(&m_mutex);
    return from(m_count - std::min(quint64(qMax(0, count)), m_count) + 1, Limits::MaxLines);
}

QVector<LogRing::Line> LogRing::after(quint64 number, int patienceMs) const
{
    const QMutexLocker locker(&m_mutex);
    for (const QDeadlineTimer deadline(patienceMs); m_count <= number;) {
        if (!m_come.wait(&m_mutex, deadline))
            break;
    }
    return from(number + 1, MostAtOnce);
}

quint64 LogRing::lastNumber() const
{
    const QMutexLocker locker(&m_mutex);
    return m_count;
}

/// The lock is held.
QVector<LogRing::Line> LogRing::from(quint64 number, int most) const
{
    QVector<Line> lines;
    const quint64 first = m_count - m_lines.size() + 1;
    for (quint64 i = std::max(number, first); i <= m_count && lines.size() < most; ++i)
        lines.append(m_lines[i - first]);
    return lines;
}
