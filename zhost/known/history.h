// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QJsonArray>
#include <QMutex>
#include <QString>

#include <deque>

/**
 * The last thousand events about plugins and services.
 *
 * Thread: any.
 */
class History
{
public:
    /// `kind` is one of a few words; `subject` is the plugin or service.
    void add(const char *kind, const QString &subject, const QString &text = QString());
    /// The oldest first.
    QJsonArray describe() const;

private:
    struct Event
    {
        quint64 number;
        QDateTime time;
        const char *kind;
        QString subject;
        QString text;
    };

    mutable QMutex m_mutex; // guards all
    std::deque<Event> m_events;
    quint64 m_count = 0;
};
