// SPDX-License-Identifier: Apache-2.0
#include "history.h"

#include <QJsonObject>
#include <QMutexLocker>

namespace {

constexpr size_t MaxEvents = 1000;

} // namespace

void History::add(const char *kind, const QString &subject, const QString &text)
{
    const QMutexLocker locker(&m_mutex);
    m_events.push_back({++m_count, QDateTime::currentDateTimeUtc(), kind, subject, text});
    if (m_events.size() > MaxEvents)
        m_events.pop_front();
}

QJsonArray History::describe() const
{
    const QMutexLocker locker(&m_mutex);
    QJsonArray result;
    for (const Event &event : m_events)
        result.append(QJsonObject{{QStringLiteral("number"), qint64(event.number)},
                                  {QStringLiteral("time"), event.time.toString(Qt::ISODateWithMs)},
                                  {QStringLiteral("kind"), QLatin1String(event.kind)},
                                  {QStringLiteral("subject"), event.subject},
                                  {QStringLiteral("text"), event.text}});
    return result;
}
