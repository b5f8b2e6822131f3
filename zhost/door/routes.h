// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "buscalls.h"
#include "busquestion.h"
#include "reply.h"

#include <QMap>
#include <QReadWriteLock>
#include <QSharedPointer>
#include <QStringList>

#include <functional>
#include <vector>

class Host;
class TimetableActivity;
struct Known;

/**
 * What the door answers to which request.
 *
 * Thread: any, but for `enter` and `leave`.
 */
class Routes
{
public:
    explicit Routes(const Known *known);

    struct Question
    {
        QByteArray method;
        QString path;
        QMap<QString, QString> parameters; // of the query
        QByteArray body;
        QStringList parts; // the parts of the path that the stars of the route match

        /// A number in the query; -1 if it is not a number, or out of its range.
        int number(const QString &name, int otherwise, int min, int max) const;
    };
    /// How many of the last lines of the log are wanted; -1 if that is wrong.
    static int linesWanted(const Question &question);
    Reply answer(Question question) const;
    /// Whether anybody may see the answer at `path`.
    static bool isOpen(const QString &path);

    void enter(Host *host);
    /// Waits for requests that are steering the host. Returns the URLs of calls that have not ended.
    QStringList leave();

private:
    struct Route
    {
        QByteArray method;
        QStringList path;
        std::function<Reply(const Question &)> answer;
    };

    void add(const char *method, const char *path, Reply (Routes::*reply)(const Question &) const);
    static Reply tooMany();
    Reply withHost(const std::function<Reply(Host &)> &deed) const;

    Reply withEntry(const Question &question,
                    const std::function<Reply(Host &, const QSharedPointer<TimetableActivity> &)> &deed) const;

    QJsonValue bus() const;

    Reply report(const Question &question) const;
    Reply reportPart(const Question &question) const;
    Reply call(const Question &question) const;
    Reply runEntry(const Question &question) const;
    Reply cancelEntry(const Question &question) const;
    Reply restartEntry(const Question &question) const;
    Reply rollBack(const Question &question) const;
    Reply release(const Question &question) const;
    Reply log(const Question &question) const;
    Reply switchLog(const Question &question) const;
    Reply reload(const Question &question) const;
    Reply stop(const Question &question) const;
    Reply healthy(const Question &question) const;
    Reply ready(const Question &question) const;
    Reply metrics(const Question &question) const;
    Reply file(const Question &question) const;

    const Known *const m_known;
    std::vector<Route> m_routes;
    mutable BusCalls m_calls;
    mutable BusQuestion m_busQuestion{&m_calls};
    mutable QReadWriteLock m_lock; // guards m_host
    Host *m_host = nullptr;
};
