// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "clocks.h"
#include "connection.h"
#include "failure.h"
#include "subjects.h"
#include "tally.h"
#include "workers.h"

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QUrl>

#include <zdbus.h>
#include <zdbusreach.h>

#include <atomic>
#include <functional>
#include <optional>

struct Body;

/**
 * Answers what other processes call: endpoints of this one whose hosts are served.
 *
 * Thread:  any; endpoints are called on threads of `workers`.
 * Failure: an answer that says so.
 */
class Provider
{
public:
    /// `below` has the endpoints; so has `belowReach`, if that bus can tell whether it has called one.
    Provider(const NatsSettings &settings, const Log &log, Connection &connection, Workers &workers, ZDbus &below,
             ZDbusReach &belowReach);

    void open();
    /// `url` is bound from now on.
    void serve(const QUrl &url);
    /// Serves what is bound, and nothing else.
    void sweep();
    QList<QUrl> served() const;
    const Tally &tally() const { return m_tally; }
    /// Until when the last of those who have asked waits.
    QDeadlineTimer latest() const;

private:
    struct Call;
    using Answerer = void (Provider::*)(Call &);
    MessageHandler queueing(Answerer answerer);
    void read(Call &call);
    void forget(const QByteArray &subject);
    QList<QUrl> allBound() const;
    void answerList(Call &call);
    void answerBroadcast(Call &call);
    void answerCall(Call &call);
    using Reach = std::function<ZDbusReach::Reached(QJsonObject *in, QJsonObject *out)>;
    Failure invoke(const Call &call, Body *body, const Reach &reach);
    ZDbusReach::Reached reach(const QUrl &url, QJsonObject *in, QJsonObject *out);
    void end(const Call &call, Tally::Call &counted, Failure failure, const std::optional<Body> &body);
    QRegularExpression allServed() const;
    void answerFind(const QUrl &url, Call &call);
    void answer(const Call &call, const QByteArray &body);
    void refuse(const Call &call, const Failure &failure);
    natsStatus send(const Call &call, const QByteArray &body, const Failure &failure);
    bool isServed(const QUrl &url) const;

    const NatsSettings &m_settings;
    const Log &m_log;
    const Subjects m_subjects;
    Connection &m_connection;
    Workers &m_workers;
    ZDbus &m_below;
    ZDbusReach &m_belowReach;
    Clocks m_clocks;
    Tally m_tally;
    std::atomic<int> m_unread{0}; // calls of which nobody knows yet how long their callers wait
    mutable QMutex m_mutex;       // guards the following
    QDeadlineTimer m_latest;
    QHash<QByteArray, QUrl> m_served; // by subject
};
