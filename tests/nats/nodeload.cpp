// SPDX-License-Identifier: Apache-2.0
#include "nodeload.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QThread>

#include <zdbusoutcome.h>

#include <algorithm>

NodeLoad::NodeLoad(const QJsonObject &options, ZDbusOutcome *bus)
    : m_url(options.value(QStringLiteral("url")).toString()),
      m_prefix(options.value(QStringLiteral("prefix")).toString(QStringLiteral("load"))),
      m_ballast(options.value(QStringLiteral("bytes")).toInt(), QLatin1Char('x')),
      m_pause(options.value(QStringLiteral("pause")).toInt()), m_bus(bus)
{
    const int threads = options.value(QStringLiteral("threads")).toInt(1);
    m_failures.resize(static_cast<std::size_t>(threads));
    for (int i = 0; i < threads; ++i)
        m_threads.emplace_back([this, i] { call(i); });
}

NodeLoad::~NodeLoad() { stop(); }

void NodeLoad::stop()
{
    m_isOver = true;
    for (std::thread &thread : m_threads)
        thread.join();
    m_threads.clear();
}

void NodeLoad::call(int caller)
{
    bool hasFailed = false;
    for (int i = 0; !m_isOver; ++i) {
        const QString id = QStringLiteral("%1-%2-%3").arg(m_prefix).arg(caller).arg(i);
        QJsonObject in{{QStringLiteral("id"), id}};
        if (!m_ballast.isEmpty())
            in.insert(QStringLiteral("ballast"), m_ballast);
        QJsonObject out, outcome;
        const qint64 began = QDateTime::currentMSecsSinceEpoch();
        QElapsedTimer timer;
        timer.start();
        const bool isHandled = m_bus->call0(m_url, &in, &out, &outcome);
        const qint64 took = timer.nsecsElapsed();
        if (isHandled) {
            ++m_handled;
            if (out.value(QStringLiteral("in")).toObject().value(QStringLiteral("id")).toString() != id)
                ++m_wrong;
        }
        const QMutexLocker locker(&m_mutex);
        m_times.push_back(took / 1000);
        if (!isHandled) {
            ++m_failures[static_cast<std::size_t>(caller)];
            note(id, outcome, began, took);
        } else if (hasFailed) {
            m_recovered = std::max(m_recovered, began + took / 1000000);
        }
        hasFailed = !isHandled;
        if (m_pause > 0)
            QThread::msleep(static_cast<unsigned long>(m_pause));
    }
}

void NodeLoad::note(const QString &id, const QJsonObject &outcome, qint64 began, qint64 nsecs)
{
    if (m_failed.size() >= 1000) // enough to be told
        return;
    QJsonObject failure = outcome;
    failure.insert(QStringLiteral("id"), id);
    failure.insert(QStringLiteral("at"), began);
    failure.insert(QStringLiteral("ms"), nsecs / 1000000);
    m_failed.push_back(failure);
}

QJsonObject NodeLoad::report() const
{
    const QMutexLocker locker(&m_mutex);
    std::vector<qint64> times = m_times;
    std::sort(times.begin(), times.end());
    const auto quantile = [&](std::size_t percent) {
        return times.empty() ? 0 : times[(times.size() - 1) * percent / 100];
    };
    QJsonArray failed;
    for (const QJsonObject &failure : m_failed)
        failed.append(failure);
    return {{QStringLiteral("handled"), m_handled.load()},
            {QStringLiteral("wrong"), m_wrong.load()},
            {QStringLiteral("most"), *std::max_element(m_failures.begin(), m_failures.end())},
            {QStringLiteral("p50"), quantile(50)},
            {QStringLiteral("p99"), quantile(99)},
            {QStringLiteral("max"), quantile(100)},
            {QStringLiteral("failed"), failed},
            {QStringLiteral("handled-at"), m_recovered}};
}
