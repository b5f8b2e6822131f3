// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QMutex>
#include <QUrl>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

class ZDbusOutcome;

/**
 * Callers that call without pause until they are told to stop. Each call has a number of its own, which the answer must
 * bring back.
 *
 * Options: "url", "threads", "prefix" of the calls' ids, "pause", milliseconds between two calls of one caller, and
 * "bytes" that each call carries.
 */
class NodeLoad
{
public:
    NodeLoad(const QJsonObject &options, ZDbusOutcome *bus);
    ~NodeLoad();

    /// Lets the calls that are under way end.
    void stop();
    /// {"handled", "wrong": answers to other calls, "most": calls that failed of one caller, "p50", "p99", "max":
    /// microseconds, "failed": [{"id", "code", "reason", "called", "at", "ms"}], "handled-at": when the last was
    /// handled that came after a failure}
    QJsonObject report() const;

private:
    void call(int caller);
    void note(const QString &id, const QJsonObject &outcome, qint64 began, qint64 nsecs);

    const QUrl m_url;
    const QString m_prefix, m_ballast;
    const int m_pause;
    ZDbusOutcome *const m_bus;
    std::atomic_bool m_isOver{false};
    std::atomic<qint64> m_handled{0}, m_wrong{0};
    mutable QMutex m_mutex; // guards what follows
    std::vector<QJsonObject> m_failed;
    std::vector<int> m_failures; // of each caller
    std::vector<qint64> m_times;
    qint64 m_recovered = 0;
    std::vector<std::thread> m_threads;
};
