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
    /// `below` has the endpoints.
    Provider(const NatsSettings &settings, const Log &log, Connection &connection, Workers &workers, ZDbus &below);

    void open();
    /// `url` is bound from now on.
    void serve(const QUrl &url);
    /// Serves what is bound, and nothing else.
    void sweep();
    QList<QUrl> served() const;
    const Tally &tally() const { return m_tally; }

private:
    struct Call;
    using Answerer = void (Provider::*)(Call &);
    MessageHandler queueing(Answerer answerer);
    void answerList(Call &call);
    void answerBroadcast(Call &call);
    void answerCall(Call &call);
    Failure invoke(const QUrl &url, Call &call, Body *body);
    void answerFind(const QUrl &url, Call &call);
    bool isHeld(const QUrl &url) const;
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
    Clocks m_clocks;
    Tally m_tally;
    mutable QMutex m_mutex;           // guards m_served
    QHash<QByteArray, QUrl> m_served; // by subject
};
