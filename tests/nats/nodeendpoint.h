// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QHash>
#include <QJsonObject>
#include <QMutex>
#include <QObject>
#include <QSharedPointer>
#include <QUrl>

#include <zdbussubscriber.h>

class ZDbus;

/// Notes calls, also those of several endpoints that take turns at one URL.
class NodeRecord
{
public:
    /// Calls that have an "id" are written into `journal`, too, a line for each, unless its name is empty.
    explicit NodeRecord(const QString &journal) : m_journal(journal) {}

    void note(const QUrl &url, const QJsonObject *in, const QJsonObject *out);
    /// {"n", "twice": ids that came more than once, "last": {"url", "in", "out"}}
    QJsonObject report() const;

private:
    const QString m_journal;
    mutable QMutex m_mutex; // guards what follows
    int m_count = 0, m_twice = 0;
    QHash<QString, int> m_ids;
    QJsonObject m_last;
};

/**
 * An endpoint of a node. Its options: "kind", which is "echo" (answers {"url", "name", "in"}), "refuse", "slow" (echoes
 * after "ms"), "throw", "big" (answers "bytes" bytes), "chain" (calls "to"), "changes" (changes "in"), or "silent"
 * (answers true alone); "name", who it says that it is; "gate", a file that each call waits for;
 * and "object": it is a QObject, whose end is seen.
 */
class NodeEndpoint : public ZDbusSubscriber
{
public:
    NodeEndpoint(const QJsonObject &options, QSharedPointer<NodeRecord> record, ZDbus *bus);

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) override;

private:
    const QJsonObject m_options;
    const QString m_kind;
    const QSharedPointer<NodeRecord> m_record;
    ZDbus *const m_bus;
};

/// The same, whose end is told.
class NodeObject : public QObject, public NodeEndpoint
{
public:
    using NodeEndpoint::NodeEndpoint;
};
