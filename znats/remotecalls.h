// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "failure.h"
#include "natssettings.h"
#include "requests.h"
#include "seenlately.h"
#include "subjects.h"

#include <QList>
#include <QRegularExpression>
#include <QSet>
#include <QUrl>

class Hosts;

/**
 * Calls what is bound in other processes. A call is made again only if it is certain that nothing was called: nobody
 * was there, or who was there has refused it unread.
 *
 * Thread:  any; a call waits for its answer.
 * Failure: the reason.
 */
class RemoteCalls
{
public:
    RemoteCalls(const NatsSettings &settings, const Log &log, Connection &connection, Requests &requests, Hosts &hosts);

    /// Calls the endpoint of `url`; if that has a user, in the process of this name. Sets `host` to who has answered.
    Failure call(const QUrl &url, QJsonObject *in, QJsonObject *out, QString *host);
    /// Calls all endpoints of all processes that take part, and puts what they answer into `out`. Fails if none
    /// handled it.
    Failure callAll(const QUrl &url, const QJsonObject *in, QJsonObject *out);
    bool find(const QUrl &url);
    QList<QUrl> findAll(const QRegularExpression &expression);

private:
    class Route;
    struct Call;
    Failure attempt(Call &call, QJsonObject *in, QJsonObject *out, QString *host);
    bool mayTryAgain(const Failure &failure, Call &call);
    void note(const NatsMessage &answer, qint64 tripMs);
    Requests::Answer ask(const Request &request, const QDeadlineTimer &deadline);
    Failure gather(const Request &request, const Requests::Each &each);

    const NatsSettings &m_settings;
    const Log &m_log;
    const Subjects m_subjects;
    Connection &m_connection;
    Requests &m_requests;
    Hosts &m_hosts;
    SeenLately m_seen;
    SeenLately m_bare;        // what was found at its bare host
    QMutex m_mutex;           // guards the following
    QSet<QString> m_toldSkew; // hosts
};
