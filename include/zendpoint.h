// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zdbus.h"
#include "zdbussubscriber.h"
#include "zlogger.h"
#include "zobject.h"
#include "zschedule.h"
#include "zscheduler.h"
#include "zsettings.h"

#include <QJsonObject>
#include <QSharedPointer>
#include <QUrl>

#include <functional>
#include <memory>

/**
 * A plugin's root that is called on the bus, and handed over live. Derive from it, and write in `called` what it does.
 *
 * When a plugin has been loaded, and its properties are written, its endpoint takes the place of the one before it
 * under the same URL. The one before begins nothing more, and lets its calls and jobs run to their end. Then it answers
 * its state, with which the new one begins, and lets go of itself. Callers wait meanwhile, and the new one answers
 * them: no call is missed. Only a broadcast may be, for it cannot wait. If `handOver` or `begin` throws, the one before
 * stays.
 *
 * A plugin is handed over as a whole. If one of its endpoints cannot begin, or cannot be bound, or if the root lets go
 * while it begins, none of them takes a place. Endpoints of the version before that the next one does not have let go.
 * A part that lets go while it begins counts as one that this version does not have.
 *
 * Ownership: holds itself until it has been handed over, `letGo()` is called, the application quits, or its `ZHost`
 *            ends. `zctl release`, or a call of its URL with the path "/release", has it let go, too. What runs in it
 *            holds it as well.
 * Thread:    `called` on whatever threads call, several at once; activities and jobs on threads of their own; all
 *            others on the thread that loads, or quits.
 * Failure:   what does not end within 5 s is waited for no longer, and a warning says so; a caller that has waited for
 *            10 s gets no answer. Exceptions of jobs and activities are warned of; those of `called` reach the caller.
 */
class ZDEFAULT_EXPORT ZEndpoint : public ZObject, public ZDbusSubscriber
{
    Q_OBJECT
    Q_PROPERTY(ZLogger *zLogger READ zLogger WRITE setZLogger)
    Q_PROPERTY(ZDbus *zDbus READ zDbus WRITE setZDbus)
    Q_PROPERTY(ZScheduler *zScheduler READ zScheduler WRITE setZScheduler)
    Q_PROPERTY(ZConfig *zConfig READ zConfig WRITE setZConfig)

public:
    ~ZEndpoint() override;

    /// Null until they are written, which is before `begin`. They are those of the first host that loads it.
    ZLogger *zLogger() const;
    ZDbus *zDbus() const;
    ZScheduler *zScheduler() const;
    ZConfig *zConfig() const;
    void setZLogger(ZLogger *logger);
    void setZDbus(ZDbus *dbus);
    void setZScheduler(ZScheduler *scheduler);
    void setZConfig(ZConfig *config);

    bool invoked(const QUrl &url, QJsonObject *in, QJsonObject *out) final;

    /// From `begin` on. Has the activities end, lets calls and jobs run to their end, and lets go. Any thread. Within a
    /// call, job or activity of its own it returns at once. It is not destroyed before a slot of its own that calls
    /// this has returned.
    void letGo();

protected:
    /// The root of a plugin, which is to be bound to the host and path of `url`.
    explicit ZEndpoint(const QUrl &url);
    /// A part of a plugin: a child of its root, which is made with it, is wired after it, and begins when it has begun.
    ZEndpoint(const QUrl &url, ZObject *root);

    /// As `ZDbusSubscriber::invoked`.
    virtual bool called(const QUrl &url, QJsonObject *in, QJsonObject *out) = 0;
    /// Is called first, with the state that the one before has handed over; it is empty if there was none. It is called
    /// once more, with the state that this one has handed over, if the next one could not begin.
    virtual void begin(const QJsonObject &state);
    /// Returns what the next one needs to go on. Nothing runs in this one any more. If it throws, this one goes on.
    virtual QJsonObject handOver();

    /// What the configuration has for this plugin. From `begin` on.
    ZSettings settings() const;

    /// Has `deed` done every so many milliseconds. From `begin` on; false if nobody schedules, or it is to end.
    bool every(int msecs, std::function<void()> deed);
    /// The same by a timetable; `deed` answers whether it wants to be done again.
    bool schedule(const QSharedPointer<ZSchedule> &timetable, std::function<bool()> deed);
    /// Has `job` done on a thread of this endpoint's pool, once one is free. From `begin` on, on any thread. False if
    /// the endpoint is to end, unless a call or job of its own asks that is still waited for.
    bool start(std::function<void()> job);
    /// How many jobs run at once: as many as there are processors, unless this is called before the first is started.
    void setMaxJobs(int count);

private:
    friend class ZEndpoints;
    friend class ZTakeover;
    class Private;

    const std::unique_ptr<Private> d;
};
