// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDateTime>
#include <QHash>
#include <QJsonArray>
#include <QMutex>
#include <QString>

/**
 * The other processes that were heard of lately.
 *
 * Thread:  any.
 * Failure: none: too many are forgotten.
 */
class Hosts
{
public:
    /// `clockMs` is the time by its clock, since 1970, and `tripMs` how long the way to it and back took. Returns by
    /// how many milliseconds its clock is ahead of ours at least, less than 0 if it is behind.
    qint64 note(const QString &name, qint64 clockMs, qint64 tripMs);
    /// Those of the last hour.
    QJsonArray describe() const;

private:
    struct Host
    {
        QDateTime seen;
        qint64 skewMs = 0;
    };

    mutable QMutex m_mutex; // guards m_hosts
    QHash<QString, Host> m_hosts;
};
