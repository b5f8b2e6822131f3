// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zendpoint.h"

#include "zgate.h"
#include "zjobpool.h"
#include "znamedlogger.h"

#include <QMutex>
#include <QVector>
#include <QWeakPointer>

/**
 * The life of an endpoint: what passes it, what it begins, and how it ends. `ZTakeover` leads it when it takes the
 * place of another one, or hands its own over.
 *
 * Ownership: the endpoint's; holds the endpoint from `enter` on, until it lets go.
 * Thread:    any.
 * Failure:   told in the log.
 */
class ZEndpoint::Private
{
public:
    Private(ZEndpoint *endpoint, const QUrl &where, ZObject *owner)
        : url(where), key(url.host(QUrl::FullyDecoded) + url.path(QUrl::FullyDecoded)), q(endpoint),
          root(owner ? owner : endpoint)
    {}
    ~Private();

    /// Holds itself from now on, and has who calls wait. False if it can't, or has been here before.
    bool enter();
    /// False if it can't be bound. Nothing happens if it has let go.
    bool bind();
    bool answer(const QUrl &address, QJsonObject *in, QJsonObject *out);

    /// Not if it lets go, or has.
    bool mayBeReplaced() const;
    /// Is about to hand over. Throws if it is not its turn, for longer than we wait; false if it lets go anyway.
    bool retire();
    /// Answers what the next one begins with. Nothing is under way.
    QJsonObject handOver();
    /// Has handed over, and lets go.
    void leave();
    /// Goes on, for the next one could not begin.
    void resume();
    /// Could not begin, or another of its plugin could not: who has come meanwhile is sent on, and it lets go.
    void giveUp();

    /// Begins to let go, and answers true; unless it has, or the next one is about to take its place.
    bool close();
    /// Lets go. May be the end of it.
    void drop();
    void warnIfBusy() const;

    bool schedule(const QSharedPointer<ZSchedule> &timetable, std::function<bool()> deed);
    bool start(std::function<void()> job);

    /// What keeps it, while it holds itself.
    QSharedPointer<ZDbusSubscriber> self() const;

    /// Throws: the URL, and `why` it cannot be replaced, or take a place.
    [[noreturn]] void fail(const char *why) const;

    const QUrl url;
    const QString key; // by which endpoints that replace each other are known
    ZLogger *logger = nullptr;
    ZDbus *dbus = nullptr;
    ZScheduler *scheduler = nullptr;
    ZConfig *config = nullptr;
    ZNamedLogger log;
    int maxJobs = 0;
    ZEndpoint *const q;
    ZObject *const root;
    ZGate gate;

private:
    class Release;

    void warn(const QString &text) const;
    void tellThrown(const QString &thrown) const;
    bool forward(const QUrl &address, QJsonObject *in, QJsonObject *out) const;
    bool enter(const QSharedPointer<ZScheduledActivity> &activity);
    void endActivities();
    QSharedPointer<QObject> share() const;
    ZJobPool *jobs();

    QJsonObject m_state;                       // what was handed over last
    bool m_hasHandedOver = false;              // and may have to begin once more
    mutable QMutex m_mutex;                    // guards all that follow
    QSharedPointer<ZDbusSubscriber> m_self;    // as it is bound
    QSharedPointer<ZDbusSubscriber> m_release; // bound as well
    bool m_isRetiring = false;
    bool m_isToLetGo = false; // should the next one not take its place
    QVector<QWeakPointer<ZScheduledActivity>> m_activities;
    std::unique_ptr<ZJobPool> m_jobs;
};
